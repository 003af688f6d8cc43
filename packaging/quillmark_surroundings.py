"""What the host needs around it: one installation, a display, a working folder; and the host itself, started for a trial."""

import json
import os
import re
import signal
import struct
import subprocess
import tempfile
from pathlib import Path

from quillmark_machine import quoted
from quillmark_report import FAILURE, OK, UNKNOWN, WARNING

# The host opens its windows' toolkit and loads the driver before it answers, on a slow machine with a cold cache.
ANSWER_SECONDS = 20
# Enough to recognise a complaint by; who wants more reads the file.
LINES, COLUMNS, READ = 3, 200, 4096
# The command that the launcher names at the end of its words, if any.
COMMAND = re.compile(r"\((chmod .*)\)$")


def check_installations(report, machine):
    """The user's own installation comes before the package's, and is not renewed with it."""
    own, packaged = machine.home / ".local/share/quillmark", machine.path("/usr/lib/quillmark")
    if not all((folder / "quillmark-host").is_file() for folder in (own, packaged)):
        return
    text = f"Quillmark is installed twice, for you alone in {own} and for all users in {packaged}: yours comes first, its "
    text += "commands in ~/.local/bin too, and updates of the package do not renew it"
    commands = machine.home / ".local/bin"
    copies = [each.name for each in sorted(own.iterdir()) if not each.is_symlink() and (packaged / each.name).is_file()]
    links = [each.name for each in sorted(commands.glob("quillmark-*")) if own in each.resolve().parents]
    command = f"quillmark-browsers unregister; cd {quoted(own)} && rm {quoted(*copies)}"
    command += f"; cd {quoted(commands)} && rm {quoted(*links)}" if links else ""
    report.add("installation", WARNING, text, "Delete the copy that is yours alone; settings and logs stay", command)


def check_display():
    display = os.environ.get("WAYLAND_DISPLAY") or os.environ.get("DISPLAY")
    if display:
        return OK, f"The display is {display}", None
    text = "There is no display for the signing program's windows, so it is not started here"
    return UNKNOWN, text, "Run this in your desktop session"


def check_folder(report, machine):
    folder = machine.folder
    if machine.folder_problem:
        command = COMMAND.search(machine.folder_problem)
        remedy = "Take the folder back, close it to others, and run this again"
        report.add("folder", FAILURE, machine.folder_problem, remedy, command and command[1])
    elif not folder.is_dir():
        report.add("folder", OK, f"{folder}, the signing program's working folder, is made when it first starts")
    elif not os.access(folder, os.W_OK):
        text = f"{folder} cannot be written, so there will be no log"
        report.add("folder", WARNING, text, command=f"chmod u+w {quoted(folder)}")
    else:
        report.add("folder", OK, f"The working folder is {folder}")


def check_noise(report, machine):
    """What the launcher keeps: words of the token makers' modules, seldom about a fault."""
    log = machine.folder / "modules.log"
    last = last_lines(log)
    if last:
        report.add("modules", OK, f"What modules wrote to stderr is kept in {log}, at its end: {last}")


def last_lines(log):
    if not log.is_file() or not os.access(log, os.R_OK):
        return ""
    with log.open("rb") as file:
        file.seek(-min(READ, log.stat().st_size), os.SEEK_END)
        lines = [line for line in file.read().decode(errors="replace").splitlines() if line]
    return ", ".join(f'"{line[:COLUMNS]}"' for line in lines[-LINES:])


def check_program(report, machine, commands):
    """`commands` are those that browsers would start, (path, arguments), each with the browsers' titles."""
    level, text, remedy = check_display()
    report.add("display", level, text, remedy)
    if level != OK or machine.folder_problem:  # the launcher would say it again
        return
    for (path, args), titles in commands.items():
        problem = echo(path, args)
        names = " and ".join(titles)
        for title in titles if problem else titles[:1]:
            shared = None if len(titles) > 1 and not problem else title
            said = f"Started as {names} would, the signing program {problem or 'answers'}"
            report.add("program", FAILURE if problem else OK, said, **(machine.repair() if problem else {}), browser=shared)


def echo(launcher, args):
    """Sends one request that needs neither window nor token. None when it is answered, else what happened.

    All that the host writes goes to a folder that is removed afterwards.
    """
    with tempfile.TemporaryDirectory(prefix="quillmark-") as scratch:
        try:
            output, status = run_in(Path(scratch), launcher, args)
        except OSError as error:
            return f"cannot be started: {error.strerror}"
        last = last_lines(Path(scratch, "QMSignerExtHostLog.txt"))
    log = f"; its log ends with {last}" if last else ""
    if output is None:
        return f"does not answer within {ANSWER_SECONDS} seconds; it may be showing an error in a window{log}"
    if not output:
        return f"ends without an answer, with status {status}{log}"
    return None if is_echo(output) else f"answers something else than it was asked for{log}"


def request():
    text = json.dumps({"text": "quillmark-doctor", "nonce": "1"}).encode()
    # The input ends with the request, so the host ends by itself once it has answered.
    return struct.pack("=I", len(text)) + text


def run_in(scratch, launcher, args):
    """(what the host writes, its status); (None, None) when it has not ended in time."""
    env = {**os.environ, "XDG_STATE_HOME": str(scratch / "state"), "XDG_CACHE_HOME": str(scratch / "cache")}
    process = subprocess.Popen(
        [launcher, "--try", scratch, *args],
        cwd=Path(launcher).parent,
        env=env,
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL,
        start_new_session=True,
    )
    try:
        return process.communicate(request(), timeout=ANSWER_SECONDS)[0], process.returncode
    except subprocess.TimeoutExpired:
        return None, None
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)  # with what it has started
        except ProcessLookupError:
            pass
        process.wait()


def is_echo(output):
    try:
        (length,) = struct.unpack("=I", output[:4])
        answer = json.loads(output[4:])
    except (struct.error, ValueError):
        return False
    return len(output) == 4 + length and answer == {"status_cd": 0, "result": "QMHost Error: echo: quillmark-doctor", "nonce": "1"}
