"""Whether browsers find the host: their registrations, and policies that forbid programs."""

import os
from pathlib import Path

import quillmark_policy_files as policies
from quillmark_machine import HOST_NAME, REGISTRATION, is_executable, list_of, quoted, read_json
from quillmark_report import FAILURE, OK, WARNING


def check_registration(report, machine, row):
    """Returns the command that the browser would start, (path, arguments), None when it would start none."""
    title = row["title"]
    policy = policies.merged(machine, row) if row["family"] == "chromium" else {}
    only_all, file = policy.get("NativeMessagingUserLevelHosts", (True, None))
    if only_all is False:
        row = {**row, "user": None}
    problem = problem_with(machine, row)
    if problem and only_all is False and not effective(row):
        problem = (f"the policy {file} forbids programs of single users", for_all_users(machine, row))
    for text, repair in filter(None, (problem, blocking_policy(policy))):
        report.add("browsers", FAILURE, f"{title}: {text}", **repair, browser=title)
    if report.is_failed(title):
        return None
    manifest = effective(row)
    report.add("browsers", OK, f"{title}: registered, in {manifest['manifest']}", browser=title)
    return (machine.program(manifest["path"]), arguments(manifest))


def check_running(report, machine, row):
    """A Chromium that was started with --user-data-dir looks into that folder for its user's programs."""
    if row["family"] != "chromium" or effective(row) is not row["user"]:
        return
    usual = Path(row["user"]["manifest"])
    for folder in folders_of_running(machine, row["browser"]):
        hosts = folder / usual.parent.name
        if not (hosts / usual.name).exists():
            text = f"{row['title']} runs with --user-data-dir={folder}, and finds no signing program there"
            manifests = sorted(usual.parent.glob("quillmark.*.json"))
            report.add("browsers", WARNING, text, command=f"mkdir -p {quoted(hosts)} && cp {quoted(*manifests, hosts)}")


def folders_of_running(machine, browser):
    """What the user's running browsers of this name were given as --user-data-dir."""
    folders = set()
    for file in machine.path("/proc").glob("[0-9]*/cmdline"):
        try:
            words = os.fsdecode(file.read_bytes()).split("\0") if file.stat().st_uid == os.getuid() else [""]
        except OSError:
            continue  # it has ended
        if Path(words[0]).name.endswith(browser):
            folders.update(Path(word.removeprefix("--user-data-dir=")) for word in words if word.startswith("--user-data-dir=/"))
    return sorted(folders)


def effective(row):
    """The manifest that counts: the user's own hides the system's, whatever is in it."""
    return next((row[scope] for scope in ("user", "system") if row[scope] and row[scope]["state"] != "missing"), None)


def problem_with(machine, row):
    """(words, repair) of the manifest that counts; None when it is in order."""
    manifest = effective(row)
    for_all = manifest is not None and manifest is row["system"]
    hides = manifest is row["user"] and row["system"] and row["system"]["state"] == "registered"
    also = ", and hides the registration for all users" if hides else ""
    renew = machine.repair() if for_all and machine.is_packaged else {"command": renewal(row, for_all, hides)}
    if manifest is None:
        return "the signing program is not registered", renew
    file, sudo = manifest["manifest"], "sudo " if for_all else ""
    if manifest["state"] == "foreign":
        moved = f"{sudo}mv {quoted(file, file + '.old')}"
        command = moved if hides else f"{moved}; {renew['command']}"
        return f"{file} is not Quillmark's{also}", {"remedy": "Look at it, and move it away", "command": command}
    path = machine.program(manifest["path"] or "")
    if not os.path.isfile(path):
        return f"{file} names {manifest['path'] or ''}, which is not there{also}", renew
    if not is_executable(path):
        return f"{path} may not be executed{also}", {"command": f"{sudo}chmod +x {quoted(path)}"}
    return (why_stale(row, manifest) + also, renew) if manifest["state"] == "stale" else None


def renewal(row, for_all, hides):
    command = f"quillmark-browsers {'unregister' if hides else 'register'} --browser {row['browser']}"
    return f"sudo {command} --system" if for_all else command


def why_stale(row, manifest):
    found, expected = allowed(manifest), expected_origins(row)
    if found == expected:
        return f"{manifest['manifest']} is of another version or place"
    others = " and ".join(map(str, found)) or "of nobody"
    return f"{manifest['manifest']} is for the extension {others}, not for {' and '.join(expected)}"


def expected_origins(row):
    if row["family"] == "firefox":
        return REGISTRATION["firefoxExtensions"]
    return [f"chrome-extension://{each}/" for each in REGISTRATION["chromiumExtensions"]]


def allowed(manifest):
    content = read_json(manifest["manifest"])
    if not isinstance(content, dict):
        return []
    return list_of(content.get("allowed_extensions", content.get("allowed_origins")))


def arguments(manifest):
    """What the browser puts behind the host's path."""
    first = allowed(manifest)[0]
    return (first,) if first.startswith("chrome-extension:") else (manifest["manifest"], first)


def blocking_policy(policy):
    allowlist, _ = policy.get("NativeMessagingAllowlist", ((), None))
    blocklist, file = policy.get("NativeMessagingBlocklist", ((), None))
    if {"*", HOST_NAME}.intersection(map(str, list_of(blocklist))) and HOST_NAME not in list_of(allowlist):
        remedy = f"Ask your administrator to put {HOST_NAME} into NativeMessagingAllowlist"
        return f"the policy {file} forbids the signing program", {"remedy": remedy}
    return None


def for_all_users(machine, row):
    if machine.is_for_all:
        return {"command": f"sudo quillmark-browsers register --system --browser {row['browser']}"}
    return {"remedy": "Where you have Quillmark's source", "command": "sudo ./install --system"}
