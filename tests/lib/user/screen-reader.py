"""What a screen reader is told by the programs of an accessible desktop, as lines of JSON; for screen-reader.mjs.

Its argument is a regular expression: processes that are called otherwise are not listened to, and asked nothing.
Writes {"ready": true}, then an object for each event. For each line {"tree": TITLE} that it reads it writes the tree of the
window with that title.
"""

import json
import re
import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

# Programs are asked while they start, load a token or lay out a page: a question waits for them.
PATIENCE_MILLISECONDS = 10_000

EVENTS = [
    "window:activate",
    "object:state-changed:focused",
    "object:state-changed:checked",
    "object:state-changed:expanded",
    "object:active-descendant-changed",
    "object:announcement",
    "object:text-changed:insert",
]

WINDOWS = {"frame", "dialog", "alert", "window", "file chooser"}
STATES = {
    "selected": Atspi.StateType.SELECTED,
    "checked": Atspi.StateType.CHECKED,
    "pressed": Atspi.StateType.PRESSED,
    "expanded": Atspi.StateType.EXPANDED,
    "required": Atspi.StateType.REQUIRED,
    "invalid": Atspi.StateType.INVALID_ENTRY,
}

# Stands in a text for what is embedded there.
EMBEDDED = "\N{OBJECT REPLACEMENT CHARACTER}"


def say(what):
    print(json.dumps(what, ensure_ascii=False), flush=True)


def description_of(node):
    """One object of a program: what it is, how it is called, and what is to be said of its state."""
    states = node.get_state_set()
    told = [name for name, state in STATES.items() if states.contains(state)]
    if not states.contains(Atspi.StateType.SENSITIVE):
        told.append("unavailable")
    found = {"role": node.get_role_name(), "name": node.get_name() or "", "states": told}
    if node.get_description():
        found["description"] = node.get_description()
    return found


def is_heard(node):
    """Whether it is of one of the programs, which is not asked for that: the host does not answer between two requests."""
    try:
        with open(f"/proc/{node.get_process_id()}/comm", encoding="utf8") as name:
            return re.search(sys.argv[1], name.read().strip()) is not None
    except OSError:  # it has ended
        return False


def children_of(node):
    children = (node.get_child_at_index(i) for i in range(node.get_child_count()))
    return [child for child in children if child is not None]


def window_of(node):
    """The window that the object is in. The outermost one: browsers nest dialogs of pages in it."""
    window = None
    while node is not None and node.get_role() != Atspi.Role.APPLICATION:
        if node.get_role_name() in WINDOWS:
            window = node
        node = node.get_parent()
    return window


def is_label_of_something(label):
    return any(relation.get_relation_type() == Atspi.RelationType.LABEL_FOR for relation in label.get_relation_set())


def texts_of(node):
    """The texts of a dialog that belong to nothing in it, which are read out when it opens."""
    if node.get_role() == Atspi.Role.LABEL:
        shows = node.get_state_set().contains(Atspi.StateType.SHOWING)
        return [node.get_name()] if shows and node.get_name() and not is_label_of_something(node) else []
    return [text for child in children_of(node) for text in texts_of(child)]


def heard(event):
    if not is_heard(event.source):
        return
    node = event.any_data if event.type.startswith("object:active-descendant-changed") else event.source
    is_left = event.type.startswith("object:state-changed:focused") and not event.detail1
    if is_left or not isinstance(node, Atspi.Accessible):
        return
    window = window_of(node)
    found = {
        "event": event.type,
        "detail": event.detail1,
        "application": node.get_application().get_name(),
        "window": window.get_name() if window else "",
        **description_of(node),
    }
    if isinstance(event.any_data, str):
        found["text"] = event.any_data.replace(EMBEDDED, "")
    if event.type.startswith("object:text-changed"):
        found["live"] = node.get_attributes().get("container-live", "off")
    if event.type == "window:activate" and node.get_role_name() in ("dialog", "alert"):
        found["texts"] = texts_of(node)
    say(found)


def on_event(event):
    try:
        heard(event)
    except GLib.Error as error:  # the object is gone, and with it what there was to be told
        say({"event": event.type, "gone": error.message})


def place_of(node):
    """Where it is, in the units of its window."""
    box = node.get_extents(Atspi.CoordType.WINDOW)
    return {"x": box.x, "y": box.y, "width": box.width, "height": box.height}


def text_of(node):
    """Its own text, without that of what is embedded in it."""
    return Atspi.Text.get_text(node, 0, -1).replace(EMBEDDED, "").strip() if node.get_text_iface() else ""


def tree_of(node):
    place = place_of(node) if node.get_component_iface() else None
    has_keyboard = node.get_state_set().contains(Atspi.StateType.FOCUSED)
    return {**description_of(node), "focused": has_keyboard, "text": text_of(node), "place": place,
            "children": [tree_of(child) for child in children_of(node)]}


def windows():
    desktop = Atspi.get_desktop(0)
    for program in children_of(desktop):
        yield from children_of(program)


def on_command(source, _condition):
    line = source.readline()
    if not line:
        loop.quit()
        return False
    title = json.loads(line)["tree"]
    try:
        say({"tree": next((tree_of(window) for window in windows() if window.get_name() == title), None)})
    except GLib.Error as error:
        say({"tree": None, "gone": error.message})
    return True


loop = GLib.MainLoop()
Atspi.init()
Atspi.set_timeout(PATIENCE_MILLISECONDS, PATIENCE_MILLISECONDS)
listener = Atspi.EventListener.new(on_event)
for name in EVENTS:
    listener.register(name)
GLib.io_add_watch(sys.stdin, GLib.PRIORITY_DEFAULT, GLib.IOCondition.IN | GLib.IOCondition.HUP, on_command)
say({"ready": True})
loop.run()
