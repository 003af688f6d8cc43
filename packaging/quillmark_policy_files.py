"""Administrators' policy files: read as the browsers read them, and what they say of the extension."""

import json
import re
from pathlib import Path

from quillmark_machine import REGISTRATION, list_of, object_at, read_json
from quillmark_policies import problems_in, shown
from quillmark_report import FAILURE, OK, WARNING

FIREFOX_STORAGE = ("/usr/lib/mozilla/managed-storage", "/usr/share/mozilla/managed-storage")
# What the extension cannot do without: with one of these forbidden, browsers switch it off.
PERMISSIONS = {"idle", "nativeMessaging", "storage"}
FORBIDDING = ("blocked", "removed")

STRING = r'("(?:\\.|[^"\\])*")'
COMMENT = re.compile(STRING + r"|//[^\r\n]*|/\*.*?\*/", re.DOTALL)
TRAILING_COMMA = re.compile(STRING + r"|(?<![\[{,\s])(\s*),(?=\s*[\]}])", re.DOTALL)


def read_as_chromium(file):
    """What is in the file, by Chromium's rules for policies; None when it would leave out the whole file.

    Comments, a comma behind the last value, line breaks in texts and a byte order mark are all right there.
    """
    try:
        text = Path(file).read_text(encoding="utf-8-sig")
        text = COMMENT.sub(lambda match: match[1] or " ", text)
        text = TRAILING_COMMA.sub(lambda match: match[1] or " ", text)
        return json.loads(text, strict=False, parse_constant=refuse)
    except (OSError, ValueError, RecursionError):
        return None


def refuse(constant):
    raise ValueError(constant)


def chromium_files(machine, folder):
    """All files count, whatever their names end with."""
    return sorted(file for file in machine.path(f"{folder}/managed").glob("*") if not file.is_dir())


def merged(machine, row):
    """Browsers merge the files of their folder; of what several say, the last counts. By name, (value, file)."""
    result = {}
    for file in chromium_files(machine, row["policies"]) if row["policies"] else []:
        policy = read_as_chromium(file)
        if isinstance(policy, dict):
            result |= {name: (value, file) for name, value in policy.items()}
    return result


# ---- whether the browser may have the extension


def check_extension_policy(report, machine, row):
    if not row["policies"]:
        return
    forbidding = forbidding_firefox if row["family"] == "firefox" else forbidding_chromium
    problem = forbidding(machine, row)
    if problem:
        file, words = problem
        remedy = f"Ask your administrator to allow the extension {' and '.join(ids(row))} there"
        report.add("policies", FAILURE, f"{row['title']}: the policy {file} {words}", remedy, browser=row["title"])


def ids(row):
    return REGISTRATION["firefoxExtensions" if row["family"] == "firefox" else "chromiumExtensions"]


def forbidding_chromium(machine, row):
    """(file, words) when a policy keeps all of the extension's ids out, else None."""
    policy = merged(machine, row)
    problems = [why_forbidden(policy, each) for each in ids(row)]
    return problems[0] if all(problems) else None


def why_forbidden(policy, identifier):
    def value(name):
        return policy.get(name, (None, None))[0]

    def file(*names):
        return next(policy[name][1] for name in names if name in policy)

    settings = value("ExtensionSettings")
    default, own = settings_for(settings, "*"), settings_for(settings, identifier)
    blocked = texts(value("ExtensionInstallBlocklist"))
    lists = texts(value("ExtensionInstallAllowlist")) | texts(value("ExtensionInstallForcelist"))
    wanted = {each.split(";")[0] for each in lists}
    by_lists = "allowed" if identifier in wanted else "blocked" if identifier in blocked else None
    mode = own.get("installation_mode") or by_lists
    types = default.get("allowed_types", value("ExtensionAllowedTypes"))
    if mode is None and isinstance(types, list) and "extension" not in types:
        return file("ExtensionSettings", "ExtensionAllowedTypes"), "allows no extensions but of other types"
    by_default = default.get("installation_mode") or ("blocked" if "*" in blocked else "allowed")
    if (mode or by_default) in FORBIDDING:
        return file(*(["ExtensionSettings"] if own or default else []), "ExtensionInstallBlocklist"), "forbids the extension"
    permissions = texts(default.get("blocked_permissions")) - texts(own.get("allowed_permissions"))
    permissions = (permissions | texts(own.get("blocked_permissions"))) & PERMISSIONS
    if permissions:
        names = ", ".join(sorted(permissions))
        return file("ExtensionSettings"), f"forbids the extension what it needs ({names} in blocked_permissions)"
    return None


def texts(value):
    return {each for each in list_of(value) if isinstance(each, str)}


def settings_for(settings, name):
    """A key may name several extensions, with commas between them."""
    found = {}
    for key, value in object_at(settings).items():
        if name in [each.strip() for each in key.split(",")] and isinstance(value, dict):
            found |= value
    return found


def forbidding_firefox(machine, row):
    file = machine.path(row["policies"])
    settings = object_at(read_json(file), "policies", "ExtensionSettings")
    default = object_at(settings, "*")
    for identifier in ids(row):
        own = object_at(settings, identifier)
        types = default.get("allowed_types")
        if own.get("installation_mode", default.get("installation_mode")) == "blocked":
            return file, "forbids the extension"
        if not own and isinstance(types, list) and "extension" not in types:
            return file, "allows no add-ons but of other types"
    return None


# ---- what they say to the extension


def check_policies(report, machine):
    for file, problem in for_extension(machine):
        if problem:
            remedy = "Ask your administrator to correct it; docs/settings.md has the rules"
            report.add("policies", WARNING, f"The policy for the extension in {file}: {problem}", remedy)
        else:
            report.add("policies", OK, f"The policy for the extension in {file} can be understood")


def for_extension(machine):
    """What the files say of the extension: (file, what is wrong with it), None in its place when all can be understood."""
    for file, read, way, manifest_of in extension_files(machine):
        if not file.exists():
            continue
        content = read(file)
        policy, problem = policy_in(content, way)
        if content is None:
            yield file, "it cannot be read as JSON, so that browsers leave out all of it"
        elif problem:
            yield file, problem
        elif manifest_of and (content.get("name"), content.get("type")) != (manifest_of, "storage"):
            yield file, f'Firefox does not read it: its name has to be "{manifest_of}", and its type "storage"'
        elif policy is not None:
            yield from ((file, words) for words in [each.words for each in problems_in(policy)] or [None])


def extension_files(machine):
    """(file, how it is read, the names that lead to the policy in it, the add-on whose manifest it is, if it is one)"""
    for folder in policies_of(machine, "chromium"):
        for file in chromium_files(machine, folder):
            for each in REGISTRATION["chromiumExtensions"]:
                yield file, read_as_chromium, ("3rdparty", "extensions", each), None
    folders = [machine.home / ".mozilla/managed-storage", *map(machine.path, FIREFOX_STORAGE)]
    for each in REGISTRATION["firefoxExtensions"]:
        for file in policies_of(machine, "firefox"):
            yield machine.path(file), read_json, ("policies", "3rdparty", "Extensions", each), None
        yield from ((folder / f"{each}.json", read_json, ("data",), each) for folder in folders)


def policies_of(machine, family):
    """The places of administrators' policies, each once: some browsers share one."""
    return dict.fromkeys(row["policies"] for row in machine.rows if row["policies"] and row["family"] == family)


def policy_in(content, way):
    """(the policy, None), (None, what is wrong with it), or (None, None) when there is none."""
    for depth in range(len(way) + 1):
        if not isinstance(content, dict):
            return None, f"{shown('.'.join(way[:depth])) if depth else 'its content'} is no JSON object, and browsers do not read it"
        if depth == len(way):
            return content, None
        if way[depth] not in content:
            return None, None
        content = content[way[depth]]
