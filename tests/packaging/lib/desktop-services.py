"""The desktop's services that start programs for sandboxed browsers, as far as the doctor asks them.

Owns the names that are given as arguments: "proxy" looks for registrations as the desktop's own does, "portal" has the
WebExtensions interface and the permission store. Writes a line when it has them.
"""

import os
import sys
from pathlib import Path

from gi.repository import Gio, GLib

INTERFACES = """
<node>
  <interface name="org.freedesktop.NativeMessagingProxy">
    <method name="GetManifest">
      <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="a{sv}" direction="in"/><arg type="s" direction="out"/>
    </method>
  </interface>
  <interface name="org.freedesktop.portal.WebExtensions"><property name="version" type="u" access="read"/></interface>
  <interface name="org.freedesktop.impl.portal.PermissionStore">
    <method name="Lookup">
      <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="a{sas}" direction="out"/><arg type="v" direction="out"/>
    </method>
    <method name="SetPermission">
      <arg type="s" direction="in"/><arg type="b" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
      <arg type="as" direction="in"/>
    </method>
  </interface>
</node>
"""
PROXY, PORTAL, STORE = Gio.DBusNodeInfo.new_for_xml(INTERFACES).interfaces
SERVICES = {
    "proxy": [("org.freedesktop.NativeMessagingProxy", "/org/freedesktop/nativemessagingproxy", PROXY)],
    "portal": [
        ("org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop", PORTAL),
        ("org.freedesktop.impl.portal.PermissionStore", "/org/freedesktop/impl/portal/PermissionStore", STORE),
    ],
}
permissions = {}


def answer(_connection, _sender, _path, _interface, method, arguments, invocation):
    values = arguments.unpack()
    if method == "GetManifest":
        file = Path.home() / ".mozilla/native-messaging-hosts" / f"{values[0]}.json"
        if values[1] == "mozilla" and file.is_file():
            return invocation.return_value(GLib.Variant("(s)", (file.read_text(),)))
    if method == "SetPermission":
        table, _, name, app, given = values
        permissions.setdefault((table, name), {})[app] = given
        return invocation.return_value(None)
    if method == "Lookup" and values in permissions:
        return invocation.return_value(GLib.Variant("(a{sas}v)", (permissions[values], GLib.Variant("y", 0))))
    return invocation.return_dbus_error("org.freedesktop.DBus.Error.Failed", "not found")


def version(*_):
    return GLib.Variant("u", 1)


bus = Gio.bus_get_sync(Gio.BusType.SESSION)
for service in sys.argv[1:]:
    for name, path, interface in SERVICES[service]:
        bus.register_object(path, interface, answer, version, None)
        Gio.bus_own_name_on_connection(bus, name, Gio.BusNameOwnerFlags.NONE)
bus.call_sync("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId", None, None, 0, -1)
print(os.environ["DBUS_SESSION_BUS_ADDRESS"], flush=True)
GLib.MainLoop().run()
