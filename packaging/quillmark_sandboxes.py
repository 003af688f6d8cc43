"""Browsers as snaps and Flatpaks: they start programs through a service of the desktop, or not at all.

There are two such services, and both look for registrations where Firefox itself does. The native-messaging proxy starts
programs for whoever may talk to it; the WebExtensions portal asks the user, and keeps the answer in the permission store.
"""

import configparser
import json
import shutil
import subprocess

from quillmark_machine import HOST_NAME
from quillmark_registrations import check_registration
from quillmark_report import FAILURE, OK, UNKNOWN, WARNING

BUS = "org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus"
PROXY_NAME = "org.freedesktop.NativeMessagingProxy"
PROXY = f"{PROXY_NAME} /org/freedesktop/nativemessagingproxy {PROXY_NAME}"
PORTAL = "org.freedesktop.portal.Desktop /org/freedesktop/portal/desktop org.freedesktop.portal.WebExtensions"
STORE_NAME = "org.freedesktop.impl.portal.PermissionStore"
STORE = f"{STORE_NAME} /org/freedesktop/impl/portal/PermissionStore {STORE_NAME}"
TABLE = "webextensions"
SECONDS = 30  # the bus may have to start the service


class NoBus(Exception):
    """The session bus cannot be asked."""


def bus(*command):
    """What busctl gets as the answer, by its JSON; None when the call fails."""
    try:
        words = ["busctl", "--user", "--json=short", *command]
        asked = subprocess.run(words, capture_output=True, text=True, timeout=SECONDS, check=False)
        return json.loads(asked.stdout)["data"] if asked.returncode == 0 else None
    except (OSError, ValueError, subprocess.TimeoutExpired):
        return None


def call(service, method, *arguments):
    return bus("call", *service.split(), method, *arguments)


def has_proxy():
    names = [call(BUS, method) for method in ("ListNames", "ListActivatableNames")]
    if None in names:
        raise NoBus
    return any(PROXY_NAME in each[0] for each in names)


def has_portal():
    return bus("get-property", *PORTAL.split(), "version") is not None


def check_snap(report, row):
    """A browser that is there as a snap."""
    if row["family"] == "chromium":
        text = f"{row['title']}: is a snap, which cannot start programs"
        report.add("browsers", FAILURE, text, f"Install {row['title']} as a Debian package", browser=row["title"])
    else:
        check_services(report, row, row["title"], "a snap", f"snap.{row['browser']}", True)


def flatpaks(machine):
    """The browsers that are there as Flatpaks, each with its name as one."""
    for row in machine.rows:
        name = row["flatpak"]
        places = machine.path("/var/lib/flatpak/app"), machine.home / ".local/share/flatpak/app"
        if name and any((place / name).is_dir() for place in places):
            yield row, name


def check_flatpak(report, machine, row, name):
    title = flatpak_title(row)
    if row["family"] == "chromium":
        text = f"{title} cannot start the signing program"
        report.add("flatpak", FAILURE, text, f"Use {row['title']} as a Debian package for signing", browser=title)
        return
    check_registration(report, machine, {**row, "title": title})
    check_services(report, row, title, "a Flatpak", name, may_talk(machine, name))


def flatpak_title(row):
    return f"{row['title']} as a Flatpak"


def check_services(report, row, title, kind, app, talks):
    """`app` is the browser's name for the desktop; `talks` tells whether it may talk to the proxy."""
    try:
        proxy, portal = has_proxy(), has_portal()
    except NoBus:
        text = f"{title} is {kind}: the session bus cannot be asked whether it can start the signing program"
        report.add("flatpak", UNKNOWN, text, "Run this in your desktop session, with systemd's busctl", browser=title)
        return
    if proxy and talks:
        check_proxy(report, row, title, kind)
    elif portal:
        check_permission(report, title, kind, app)
    elif proxy:
        text = f"{title} is {kind} that may not talk to the desktop's native-messaging proxy"
        command = f"flatpak override --user --talk-name={PROXY_NAME} {app}"
        report.add("flatpak", FAILURE, text, "Allow it, which allows it every program that is registered for it", command, title)
    else:
        text = f"{title} is {kind}, and this desktop has neither the native-messaging proxy nor the WebExtensions portal"
        report.add("flatpak", FAILURE, text, f"Use {row['title']} as a Debian package for signing", browser=title)


def check_proxy(report, row, title, kind):
    """Asks the proxy for the registration by the very call that the browser makes."""
    manifest = call(PROXY, "GetManifest", "ssa{sv}", HOST_NAME, "mozilla", "0")
    if manifest is None:
        text = f"{title} is {kind}: the desktop's native-messaging proxy does not find the signing program for it"
        command = f"quillmark-browsers register --browser {row['browser']}"
        report.add("flatpak", FAILURE, text, command=command, browser=title)
    else:
        report.add("flatpak", OK, f"{title} is {kind}: the desktop's native-messaging proxy finds the signing program", browser=title)


def check_permission(report, title, kind, app):
    stored = call(STORE, "Lookup", "ss", TABLE, HOST_NAME)
    permission = (stored[0] if stored else {}).get(app)
    if permission == ["yes"]:
        report.add("flatpak", OK, f"{title} is {kind}, which the desktop's portal allows the signing program", browser=title)
    elif permission is None:
        text = f"{title} is {kind}: it asks once whether the extension may start the signing program"
        report.add("flatpak", WARNING, text, "Allow it when it asks, or now", permit(app), title)
    else:
        text = f"{title} is {kind}, which the desktop's portal forbids the signing program"
        report.add("flatpak", FAILURE, text, command=permit(app), browser=title)


def permit(app):
    if shutil.which("flatpak"):
        return f"flatpak permission-set {TABLE} {HOST_NAME} {app} yes"
    return f"busctl --user call {STORE} SetPermission sbssas {TABLE} true {HOST_NAME} {app} 1 yes"


def may_talk(machine, name):
    """Whether the Flatpak may talk to the proxy: its own wishes, then the overrides of all users and of this one."""
    allowed = False
    here = machine.home / ".local/share/flatpak"
    for folder in (machine.path("/var/lib/flatpak"), here):
        for file in (folder / "app" / name / "current/active/metadata", folder / "overrides/global", folder / "overrides" / name):
            settings = configparser.RawConfigParser(strict=False)
            settings.optionxform = str
            try:
                settings.read(file, encoding="utf-8")
                allowed = settings.get("Session Bus Policy", PROXY_NAME, fallback="talk" if allowed else "none") in ("talk", "own")
            except (configparser.Error, OSError, ValueError):
                pass
    return allowed
