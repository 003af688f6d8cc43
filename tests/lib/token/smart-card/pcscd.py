"""Starts pcscd with a socket and readers of its own, beside any that the machine runs: pcscd.py SOCKET COMMAND...

pcscd knows one place for its socket, but takes a listening one as systemd hands it over: descriptor 3 (sd_listen_fds(3)).
"""

import os
import socket
import sys

path, *command = sys.argv[1:]
if os.path.exists(path):
    os.unlink(path)
os.umask(0)
listener = socket.socket(socket.AF_UNIX)
listener.bind(path)
listener.listen()
os.dup2(listener.fileno(), 3)
os.set_inheritable(3, True)  # which dup2 leaves undone when it is 3 already
os.environ.update(LISTEN_PID=str(os.getpid()), LISTEN_FDS="1")
os.execvp(command[0], command)
