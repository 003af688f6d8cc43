"""The token driver, the modules behind it, and the tokens that they see."""

import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

from quillmark_machine import HERE, object_at, quoted, read_json
from quillmark_readers import check_readers
from quillmark_report import FAILURE, OK, UNKNOWN, WARNING

# A driver that asks a token for its certificates may have to wait for a card reader.
TOKENS_SECONDS = 60
LOAD_SECONDS = 20
# A module of p11-kit's own that knows certificates and no token.
TRUST_MODULE = "p11-kit-trust"
OF_PACKAGES = "/usr/share/p11-kit/modules"
NOT_ENABLED = "not enabled for QMTokenDriver"

# Every PKCS#11 module has this entry point. Quillmark's own driver leaves it to p11-kit, through which it looks.
LOADER = """
import ctypes, sys
module, p11_kit = ctypes.CDLL(sys.argv[1]), ctypes.CDLL("libp11-kit.so.0")
module.C_Initialize
entry = lambda library: ctypes.cast(library.C_GetFunctionList, ctypes.c_void_p).value
sys.exit(0 if entry(module) == entry(p11_kit) else 3)
"""
IS_A_MAKERS = 3


def check_driver(report, machine):
    """Returns the module that is in the place of Quillmark's own driver, None when it is the driver."""
    file = machine.settings_file
    settings = read_json(file)
    if file.exists() and not isinstance(settings, dict):
        text = f"{file} is no JSON object, and is not read"
        report.add("module", WARNING, text, "Correct it, or for the defaults", moved_away(machine, file))
    named = object_at(settings).get("TokenDriverFullPath")
    if named:
        module = machine.folder / str(named)
        words = f"Correct TokenDriverFullPath in {file}, or for Quillmark's own driver"
        repair = {"remedy": words, "command": moved_away(machine, file)}
    else:
        module, repair = driver_in_place(machine)
    if not module.is_file():
        report.add("module", FAILURE, f"The token driver {module} is not there", **repair)
        return None
    is_makers, reason = load(module)
    if reason:
        report.add("module", FAILURE, f"The token driver {module} cannot be loaded: {reason}", **repair)
        return None
    report.add("module", OK, f"The token driver is {module}")
    if not is_makers:
        return None
    text = f"{module} is the module of a token's maker, whose tokens cannot be looked at; those below are p11-kit's"
    report.add("module", UNKNOWN, text, **registered_with_p11_kit(machine, module, file if named else None))
    return module


def moved_away(machine, file):
    real = file.resolve()
    sudo = "" if machine.home in real.parents else "sudo "
    return f"{sudo}mv {quoted(real, str(real) + '.old')}"


def driver_in_place(machine):
    """(the module that stands in the driver's place, how it is put right)"""
    here, there = machine.folder / "QMTokenDriver.so", HERE / "QMTokenDriver.so"
    if machine.is_for_all and here.is_file() and here.resolve() != there.resolve():
        return here, {"remedy": "Delete the stale copy", "command": f"rm {quoted(here)}"}
    # Before the first start of a program for all users, its driver is not yet in the working folder.
    return here if here.exists() else there, machine.repair()


def load(module):
    """(whether it is a maker's, why it cannot be loaded), in a process of its own: a module may do anything."""
    try:
        command = [sys.executable, "-c", LOADER, module]
        loaded = subprocess.run(command, capture_output=True, text=True, errors="replace", timeout=LOAD_SECONDS, check=False)
    except subprocess.TimeoutExpired:
        return False, f"it did not load within {LOAD_SECONDS} seconds"
    if loaded.returncode in (0, IS_A_MAKERS):
        return loaded.returncode == IS_A_MAKERS, None
    return False, loaded.stderr.strip().rsplit("\n", 1)[-1] or f"it ends with status {loaded.returncode}"


def registered_with_p11_kit(machine, module, settings_file):
    """How a maker's module gets behind the driver instead of into its place, which the settings give it or its name."""
    if settings_file:
        kept, free = module, moved_away(machine, settings_file)
    else:
        kept = module.with_name("makers-module.so")
        free = f"mv {quoted(module, kept)}" + ("" if machine.is_for_all else f"; {machine.repair()['command']}")
    folder = machine.config / "pkcs11/modules"
    file = folder / f"{kept.name.split('.')[0]}.module"
    command = f"mkdir -p {quoted(folder)}; echo {quoted(f'module: {kept}')} > {quoted(file)}; {free}"
    return {"remedy": "Register it with p11-kit, and put Quillmark's driver back into its place", "command": command}


# ---- modules and tokens


def check_tokens(report, machine, makers_module):
    """Looks through p11-kit as the driver does. A maker's module in its place may know other tokens. Returns what
    `quillmark-tokens --json` says, None when it says nothing.
    """
    missing = WARNING if makers_module else FAILURE
    try:
        listing = list_tokens()
    except (OSError, ValueError, subprocess.TimeoutExpired) as error:
        report.add("tokens", missing, f"The tokens could not be listed: {error}", **machine.repair())
        return None
    modules = [module for module in listing["modules"] if module["name"] != TRUST_MODULE]
    if not any(module["used"] for module in modules):
        text = "p11-kit knows no module for tokens"
        report.add("p11-kit", missing, text, "Or your token maker's package in its place", "sudo apt install opensc")
    for module in modules:
        if module["used"]:
            report.add("p11-kit", OK, f"p11-kit knows the module {module['name']}")
        else:
            file = module_file(machine, module["name"])
            reason = why_unused(machine, module, file)
            repair = repair_module(machine, file, reason) if file else {}
            report.add("p11-kit", WARNING, f"The module {module['name']} is not used: {reason}", **repair)
    tokens = [slot["token"] for module in modules for slot in module.get("slots", []) if slot.get("token")]
    for token in tokens:
        for certificate in token["certificates"] if token["offered"] else []:
            report.add("tokens", *words_for(token, certificate))
    if not any(token["offered"] for token in tokens):
        report.add("tokens", missing, "No token that can sign is there", "Plug in your token; quillmark-tokens lists what is seen")
        check_readers(report, machine, [module["name"] for module in modules if module["used"]], tokens)
    elif not listing["canSign"]:
        report.add("tokens", missing, "No certificate can sign", "quillmark-tokens says why not, for each", "quillmark-tokens")
    return listing


def list_tokens():
    with tempfile.TemporaryDirectory(prefix="quillmark-") as scratch:
        # The driver's log and what modules remember go there. What they write on stderr is not for the user.
        env = {**os.environ, "XDG_STATE_HOME": scratch, "XDG_CACHE_HOME": scratch}
        command = [HERE / "quillmark-tokens", "--json"]
        result = subprocess.run(command, capture_output=True, env=env, timeout=TOKENS_SECONDS, check=False)
    return json.loads(result.stdout.decode(errors="replace"))


def words_for(token, certificate):
    name = f"{certificate.get('subject', 'A certificate')} on \"{token['label']}\""
    if certificate["canSign"]:
        login = "; its key shows after login only" if certificate["needsLogin"] else ""
        return OK, f"{name} can sign{login}"
    return WARNING, f"{name} cannot sign: {', '.join(certificate['reasons'])}"


def module_file(machine, name):
    """The file by which p11-kit knows a module, None when it is not found."""
    folders = [machine.config / "pkcs11/modules", *map(machine.path, ("/etc/pkcs11/modules", OF_PACKAGES))]
    return next((file for folder in folders if (file := folder / f"{name}.module").is_file()), None)


def why_unused(machine, module, file):
    """p11-kit leaves out without a word what it cannot load, so that the driver cannot tell that from what is switched off."""
    reason = module.get("reason", "it failed")
    if not file or not reason.startswith(NOT_ENABLED):
        return reason
    try:
        content = file.read_text(encoding="utf-8", errors="replace")
    except OSError as error:
        return f"{file} cannot be read: {error.strerror}"
    found = re.search(r"^\s*module:\s*(.+?)\s*$", content, re.MULTILINE)
    if not found:
        return f"{file} has no line that begins with module:"
    places = [Path(found[1])] if found[1].startswith("/") else machine.path("/usr/lib").glob(f"*/pkcs11/{found[1]}")
    library = next((each for each in places if each.is_file()), None)
    if library is None:
        return f"{found[1]}, which {file} names, is not there"
    _, failure = load(library)
    return f"{library} cannot be loaded: {failure}" if failure else reason


def repair_module(machine, file, reason):
    if reason.startswith(NOT_ENABLED):
        return {"remedy": f"If it shall be: look at disable-in and enable-in in {file}"}
    package = file.parent == machine.path(OF_PACKAGES) and owner(machine, f"{OF_PACKAGES}/{file.name}")
    if package:
        return {"remedy": f"{file} is of the package {package}", "command": f"sudo apt install --reinstall {package}"}
    return {"remedy": f"Correct the path behind \"module:\" in {file}, or to do without it", "command": moved_away(machine, file)}


def owner(machine, path):
    """The Debian package that a file is of, None when it is of none."""
    for listing in sorted(machine.path("/var/lib/dpkg/info").glob("*.list")):
        if path in listing.read_text(encoding="utf-8", errors="replace").split("\n"):
            return listing.name.removesuffix(".list").split(":")[0]
    return None
