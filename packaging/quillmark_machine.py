"""Where this machine keeps what the doctor looks at, and by which command each part of Quillmark is put right."""

import functools
import json
import os
import shlex
import subprocess
from pathlib import Path

HERE = Path(__file__).resolve().parent
REGISTRATION = json.loads((HERE / "registration.json").read_text(encoding="utf-8"))
HOST_NAME = REGISTRATION["hosts"][0]["name"]


class Machine:
    """`root` stands before the paths of all users; empty but in tests."""

    def __init__(self, root):
        self._root = root
        self.home = Path.home()
        self.config = Path(os.environ.get("XDG_CONFIG_HOME") or self.home / ".config")
        # The launcher knows the working folder, and what would keep it from starting the host there.
        command = ["/bin/sh", HERE / "quillmark-host", "--check-folder"]
        checked = subprocess.run(command, capture_output=True, text=True, errors="surrogateescape", check=False)
        self.folder = Path(checked.stdout.removesuffix("\n") or HERE)
        self.folder_problem = checked.stderr.strip() if checked.returncode else None

    def path(self, text):
        return Path(self._root + text)

    def program(self, text):
        """The path that a registration names, which may be one of a machine that is under construction at the root."""
        return self.path(text) if self._root and self.path(text).is_file() else Path(text)

    @functools.cached_property
    def rows(self):
        """All browsers that Quillmark knows, as `quillmark-browsers status --json` tells them."""
        command = [HERE / "quillmark-browsers", "status", "--json"] + (["--root", self._root] if self._root else [])
        return json.loads(subprocess.run(command, capture_output=True, text=True, check=False).stdout)["browsers"]

    @property
    def is_packaged(self):
        return self.is_for_all and self.path("/var/lib/dpkg/info/quillmark.list").exists()

    @property
    def is_for_all(self):
        return HERE == self.path("/usr/lib/quillmark").resolve()

    @property
    def settings_file(self):
        """The settings that the host would read: the administrator's hold until the user has some."""
        own, system = self.folder / "QMHostSettings.json", self.path("/etc/quillmark/QMHostSettings.json")
        return system if self.is_for_all and system.exists() and not own.exists() else own

    def repair(self):
        """How Quillmark's own files are put back, as the arguments of a finding."""
        if self.is_packaged:
            words = "If the package came as a file, with its path in the place of the name"
            return {"remedy": words, "command": "sudo apt install --reinstall quillmark"}
        command = "sudo ./install --system" if self.is_for_all else "./install"
        return {"remedy": "Where you have Quillmark's source", "command": command}


def quoted(*paths):
    return shlex.join(str(path) for path in paths)


def read_json(path):
    """What is in the file, None when it cannot be read as JSON."""
    try:
        return json.loads(Path(path).read_text(encoding="utf-8"))
    except (OSError, ValueError, RecursionError):
        return None


def object_at(value, *names):
    """The JSON object behind these names, an empty one where there is none."""
    for name in names:
        value = value.get(name) if isinstance(value, dict) else None
    return value if isinstance(value, dict) else {}


def list_of(value):
    return value if isinstance(value, list) else []


def is_executable(path):
    return path.is_file() and os.access(path, os.X_OK)
