"""Card readers and the cards in them, as their service (pcscd) tells, where no module sees a token."""

import getpass
import json
import subprocess
import sys

from quillmark_machine import quoted
from quillmark_report import OK, WARNING

SECONDS = 20

# Asks pcscd by its own library: the answer's code, and each reader with its card's answer to reset. In a process of its own,
# for a library may do anything; the card is connected to only to see whether that is allowed, and left as it is.
ASK = """
import ctypes, json
from ctypes import byref, c_char_p, c_long, c_ubyte, c_ulong, c_void_p
class State(ctypes.Structure):
    _fields_ = [("reader", c_char_p), ("data", c_void_p), ("current", c_ulong), ("event", c_ulong), ("length", c_ulong), ("atr", c_ubyte * 33)]
library = ctypes.CDLL("libpcsclite.so.1")
context, size, readers = c_long(), c_ulong(0), []
code = library.SCardEstablishContext(c_ulong(2), None, None, byref(context)) & 0xFFFFFFFF
if code == 0 and library.SCardListReaders(context, None, None, byref(size)) == 0:
    names = ctypes.create_string_buffer(size.value)
    library.SCardListReaders(context, None, names, byref(size))
    for name in filter(None, names.raw.split(b"\\0")):
        state = State(reader=name)
        library.SCardGetStatusChange(context, c_ulong(0), byref(state), c_ulong(1))
        atr, card, protocol = bytes(state.atr[:min(state.length, 33)]), c_long(), c_ulong()
        connected = atr and library.SCardConnect(context, name, c_ulong(2), c_ulong(3), byref(card), byref(protocol)) & 0xFFFFFFFF
        if atr and connected == 0: library.SCardDisconnect(card, c_ulong(0))
        readers.append({"name": name.decode(errors="replace"), "atr": atr.hex(" ").upper(), "connected": connected or 0})
if code == 0: library.SCardReleaseContext(context)
print(json.dumps({"code": code, "readers": readers}))
"""
NO_SERVICE, REFUSED = (0x8010001D, 0x8010001E), 0x8010006A

# Debian packages with modules for cards that are told by a part of their answer to reset; OpenSC's is tried before.
PACKAGES = {
    "59 75 62 69 4B 65 79": "ykcs11",  # "YubiKey"
    "31 C5 73 C0 01": "scute",  # OpenPGP
    "31 F5 73 C0 01": "scute",
}
# Names of cards, of Debian's package pcsc-tools.
CARD_LIST = "/usr/share/pcsc/smartcard_list.txt"


def check_service(report, machine):
    if machine.path("/run/pcscd/pcscd.comm").exists():
        report.add("pcscd", OK, "The service for card readers (pcscd) is there")
    else:
        text = "The service for card readers (pcscd) does not run; cards and most USB tokens need it"
        report.add("pcscd", WARNING, text, command="sudo apt install pcscd; sudo systemctl enable --now pcscd.socket")


def check_readers(report, machine, modules, tokens):
    """What is in the readers where no token can sign; `modules` are those that p11-kit has loaded, `tokens` what they see."""
    answer = ask()
    if answer is None:
        return
    if answer["code"] == REFUSED:
        report.add("readers", WARNING, refused("access_pcsc"), **allowed_by_rule())
    for reader in answer["readers"]:
        name, atr = reader["name"], reader["atr"]
        if not atr:
            report.add("readers", WARNING, f'No card is in the reader "{name}"', "Put your card into it")
        elif reader["connected"] == REFUSED:
            report.add("readers", WARNING, refused("access_card"), **allowed_by_rule())
        elif not tokens:
            card = card_name(machine, atr)
            text = f'No module takes the card in the reader "{name}"{f", {card}" if card else ""}; its ATR is {atr}'
            report.add("readers", WARNING, text, **likely_module(atr, modules))


def ask():
    """What pcscd answers, None when it cannot be asked."""
    try:
        asked = subprocess.run([sys.executable, "-c", ASK], capture_output=True, text=True, timeout=SECONDS, check=False)
        return json.loads(asked.stdout)
    except (ValueError, subprocess.TimeoutExpired):
        return None


def refused(action):
    return f"pcscd refuses you the cards: polkit does not allow you the action org.debian.pcsc-lite.{action}"


def allowed_by_rule():
    user = json.dumps(getpass.getuser())
    rule = 'polkit.addRule(function(action, subject) { if (action.id.indexOf("org.debian.pcsc-lite.") == 0 && '
    rule += f"subject.user == {user}) return polkit.Result.YES; }});"
    words = "Log in at the computer itself, for polkit allows it there; or have your administrator allow it"
    return {"remedy": words, "command": f"echo {quoted(rule)} | sudo tee /etc/polkit-1/rules.d/50-pcscd.rules"}


def likely_module(atr, modules):
    package = next((package for part, package in PACKAGES.items() if part in atr), None)
    if not any("opensc" in name for name in modules):
        package = "opensc"
    if package:
        return {"remedy": "Its module is likely in a Debian package", "command": f"sudo apt install {package}"}
    return {"remedy": "Install its maker's PKCS#11 module, and register it with p11-kit, as docs/settings.md says"}


def card_name(machine, atr):
    """What pcsc-tools' list, where it is there, calls the card: lines that begin with a tab below the line with its ATR."""
    try:
        lines = machine.path(CARD_LIST).read_text(encoding="utf-8", errors="replace").splitlines()
        following = lines[lines.index(atr) + 1 :]
    except (OSError, ValueError):
        return None
    return following[0].strip() if following and following[0].startswith("\t") else None
