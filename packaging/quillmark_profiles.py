"""Whether the extension is in a browser's profiles and switched on, as far as their files tell."""

import base64
import hashlib
from pathlib import Path

from quillmark_machine import REGISTRATION, list_of, object_at, read_json
from quillmark_report import FAILURE, OK, UNKNOWN, WARNING

NAME = "Quillmark"
# Where Chromium has extensions from that stay in the folder from which they were loaded.
UNPACKED, COMMAND_LINE = 4, 8
NOT_USERS = ("System Profile", "Guest Profile")
FIREFOX = "{ec8030f7-c20a-464f-9b0e-13a3a9e97384}"

ACTIVE = (None, None)


def check_profiles(report, machine, row):
    title = row["title"]
    for_all = extension_for_all(machine, row)
    look = firefox_profiles if row["family"] == "firefox" else chromium_profiles
    states = dict(look(row, for_all))
    active = [name for name, (level, _) in states.items() if level is None]
    if active:
        report.add("extension", OK, f"{title}: the extension is on in the profile {active[0]}", browser=title)
    elif not states and for_all:
        report.add("extension", OK, f"{title}: the extension is there for all users, in {for_all}", browser=title)
    elif not states:
        text = f"{title}: no profile has been seen, so that nothing is known of the extension there"
        report.add("extension", WARNING, text, "Start it, and put the extension into it", browser=title)
    else:
        for name, (level, words) in states.items():
            page = "about:addons" if row["family"] == "firefox" else "chrome://extensions"
            remedy = f"Put the extension into it, and switch it on, on {page}"
            report.add("extension", level, f"{title}, profile {name}: {words}", remedy, browser=title)


def extension_for_all(machine, row):
    """The file or folder by which all users of the browser have the extension, None without."""
    for folder in map(machine.path, row["extensions"]):
        if row["family"] == "firefox":
            places = [folder / FIREFOX / (each + end) for each in REGISTRATION["firefoxExtensions"] for end in ("", ".xpi")]
        else:
            places = [folder / f"{each}.json" for each in REGISTRATION["chromiumExtensions"]]
            places += [each for each in sorted(folder.glob("*/")) if id_of_folder(each) in REGISTRATION["chromiumExtensions"]]
        found = next((each for each in places if each.exists()), None)
        if found:
            return found
    return None


def id_of_folder(folder):
    """The identifier that Chromium makes of the key in an unpacked extension's manifest; None without a key."""
    key = object_at(read_json(folder / "manifest.json")).get("key")
    try:
        digest = hashlib.sha256(base64.b64decode(key)).hexdigest()[:32]
    except (TypeError, ValueError):
        return None
    return digest.translate(str.maketrans("0123456789abcdef", "abcdefghijklmnop"))


# ---- the Chromium family


def chromium_profiles(row, for_all):
    for folder in map(Path, row["profiles"]):
        for file in sorted(folder.glob("*/Preferences")):
            if file.parent.name not in NOT_USERS:
                yield file.parent, state_in_chromium(file.parent, for_all)


def state_in_chromium(profile, for_all):
    """(None, None) when the extension is on, else (level, words)."""
    contents = [read_json(profile / name) for name in ("Preferences", "Secure Preferences")]
    if contents[0] is None:
        return UNKNOWN, "its file Preferences cannot be read"
    settings = {}
    for content in contents:
        found = object_at(content, "extensions", "settings").items()
        # Of an extension that was taken out Chromium keeps an entry without a location.
        settings |= {each: entry for each, entry in found if "location" in object_at(entry)}
    known = REGISTRATION["chromiumExtensions"]
    found = next((object_at(settings, each) for each in known if each in settings), None)
    if found is None and any(each in list_of(object_at(contents[0], "extensions").get("external_uninstalls")) for each in known):
        return FAILURE, "the extension was removed from it by hand"
    if found is None:
        other = next((each for each, entry in settings.items() if name_in_chromium(entry) == NAME), None)
        return ACTIVE if for_all and not other else why_missing(other, known)
    path = Path(str(found.get("path")))
    if found.get("location") in (UNPACKED, COMMAND_LINE) and not for_all and not (path / "manifest.json").is_file():
        return FAILURE, f"the extension was loaded from {path}, and is no longer there"
    # Lists, and in older versions numbers with a bit for each reason.
    if found.get("disable_reasons") or found.get("state") == 0:
        return FAILURE, "the extension is switched off"
    return ACTIVE


def name_in_chromium(entry):
    manifest = object_at(entry, "manifest") or read_json(Path(str(object_at(entry).get("path"))) / "manifest.json")
    return object_at(manifest).get("name")


def why_missing(other, known):
    if other:
        words = f"the extension there has the id {other}, and the signing program is registered for {' and '.join(known)}"
        return FAILURE, words
    return FAILURE, "the extension is missing"


# ---- the Firefox family


def firefox_profiles(row, for_all):
    for folder in map(Path, row["profiles"]):
        for file in sorted(folder.glob("*/extensions.json")):
            yield file.parent, state_in_firefox(file, for_all)


def state_in_firefox(file, for_all):
    content = read_json(file)
    if not isinstance(content, dict):
        return UNKNOWN, "its file extensions.json cannot be read"
    addons = [each for each in list_of(content.get("addons")) if isinstance(each, dict)]
    known = REGISTRATION["firefoxExtensions"]
    found = next((each for each in addons if each.get("id") in known), None)
    if found:
        return ACTIVE if found.get("active") else (FAILURE, "the extension is switched off")
    if for_all:
        return ACTIVE
    other = next((each.get("id") for each in addons if object_at(each, "defaultLocale").get("name") == NAME), None)
    if other:
        return why_missing(other, known)
    return UNKNOWN, "the extension is not in its files, as with a temporary one, which Firefox keeps until it ends"
