#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: serve-test.py FBR EXAMPLE

Runs `fbr serve` as people do: says what it listens on, lets the tool and the example client of the
remote protocol at a store, ends on Ctrl-C with the store closed, and frees its name.
"""

import os
import runpy
import signal
import struct
import subprocess
import sys
import tempfile

fbr, example = sys.argv[1:3]
# Not ignored, as it is in the background of a script, and so not by what is started here.
signal.signal(signal.SIGINT, signal.default_int_handler)
remote = [fbr, "--method", "remote-container"]
client = runpy.run_path(example)


def run(*words, status=0):
    result = subprocess.run(words, capture_output=True, text=True, timeout=60)
    assert result.returncode == status, (words, result)
    return result.stdout


class Server:
    def __init__(self, *words):
        self.process = subprocess.Popen([fbr, "serve", *words], stderr=subprocess.PIPE, text=True)
        line = self.process.stderr.readline()
        assert line.startswith("fbr: listening on "), line
        self.socket = line.split()[-1]

    def interrupt(self, how):
        self.process.send_signal(how)
        _, messages = self.process.communicate(timeout=20)
        assert self.process.returncode == 0, self.process.returncode
        assert messages.endswith("fbr: stopped, every store is closed\n"), messages
        assert not os.path.exists(self.socket)


with tempfile.TemporaryDirectory() as folder:
    os.environ["XDG_RUNTIME_DIR"] = folder
    server = Server("name", "--root", folder)
    assert server.socket == os.path.join(folder, "zrfs", "name")
    assert os.stat(os.path.dirname(server.socket)).st_mode & 0o777 == 0o700
    demo = ["name|x.fbr", "Software\\Demo"]
    run(*remote, "set", *demo, "Count", "dword", "42")
    run(*remote, "set", *demo, "", "sz", "text")
    assert run(*remote, "get", *demo, "Count") == "42\n"
    assert run(sys.executable, example, server.socket, "x.fbr") == (
        "(root)\n"
        "  FBRVersion type 4, 4 bytes\n"
        "  Software\n"
        "    Demo\n"
        "      (Default) type 1, 10 bytes\n"
        "      Count type 4, 4 bytes\n"
    )
    refused = subprocess.run([sys.executable, example, server.socket, "../x.fbr"],
                             capture_output=True, text=True, timeout=60)
    assert refused.returncode == 1 and "status 2" in refused.stderr, refused
    # The name is taken while the server lives.
    run(fbr, "serve", "name", status=1)
    # A client that is connected does not keep the server from ending, nor the store open.
    idle = client["Store"](server.socket)
    assert idle.ask(0, client["string"]("x.fbr") + struct.pack("<I", 4)) == (b"", 0)
    assert idle.ask(8, struct.pack("<QI", 0, 1) + client["string"]("Volatile"))[1] == 0
    server.interrupt(signal.SIGINT)
    assert idle.socket.recv(1) == b""
    local = os.path.join(folder, "x.fbr")
    assert "Volatile" not in run(fbr, "ls", local)
    assert run(fbr, "get", local, "Software\\Demo", "Count") == "42\n"
    Server("name", "--root", folder).interrupt(signal.SIGTERM)
