#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: among-others-test.py FBR EXAMPLE

Runs the tool where it is not alone: with a store that others change, with Ctrl-C in the midst of its
work, and as the server of itself and of the example client of the remote protocol.
"""

import os
import runpy
import select
import signal
import struct
import subprocess
import sys
import tempfile
import time

fbr, example = map(os.path.abspath, sys.argv[1:3])
# Not ignored, as it is in the background of a script, and so not by what is started here.
signal.signal(signal.SIGINT, signal.default_int_handler)
KEYS = 20000


def run(*words, status=0, err="", **more):
    result = subprocess.run([fbr, *words], capture_output=True, timeout=60, **more)
    told = result.stderr.decode()
    assert result.returncode == status, (words, result)
    assert told.startswith(err) if err else told == "", (words, told)
    return result.stdout


def content(name):
    with open(name, "rb") as file:
        return file.read()


def write(name, text):
    with open(name, "w") as file:
        file.write(text)


def wait_for(what):
    end = time.monotonic() + 30
    while not what():
        assert time.monotonic() < end, what
        time.sleep(0.0005)


def interrupts():
    # Ctrl-C, or an end asked for, leaves the old file and nothing beside it.
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        write("old", "old")
        work = subprocess.Popen([fbr, "export", "x.fbr", "-o", "old"])
        wait_for(lambda: any(name.endswith(".part") for name in os.listdir(".")))
        work.send_signal(number)
        assert work.wait(20) == -signal.SIGINT, work.returncode
        assert content("old") == b"old"
        assert not [name for name in os.listdir(".") if name.endswith(".part")], os.listdir(".")
    # What an import set stands, and it says how much that is.
    work = subprocess.Popen([fbr, "import", "y.fbr", "x.jsonl"], stderr=subprocess.PIPE)
    wait_for(lambda: os.path.exists("y.fbr") and os.path.getsize("y.fbr") > 100000)
    work.send_signal(signal.SIGINT)
    told = work.communicate(timeout=20)[1].decode()
    assert work.returncode == -signal.SIGINT, work.returncode
    assert told.startswith("fbr: x.jsonl:") and told.count("\n") == 1, told
    words = told.split()
    assert told.endswith(" set; the rest of the file was not applied; the same import goes on from "
                         "there\n"), told
    values = int(words[words.index("values") - 1])
    assert 0 < values < KEYS, told
    run("check", "y.fbr")
    exported = run("export", "y.fbr", "--format", "jsonl").decode()
    assert exported.count('"name":"n"') == values, (exported.count('"name":"n"'), told)


def watching():
    # Each change is told when it is there, whoever makes it, and a file that is exchanged followed.
    run("create", "w.fbr")
    run("set", "w.fbr", "a\\b", "n", "dword", "1")
    run("set", "w.fbr", "other", "n", "dword", "1")
    watch = subprocess.Popen([fbr, "watch", "w.fbr", "a"], stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
    # Once it tells a change it has had its first look.
    changes, line = 1, ""
    while not select.select([watch.stdout], [], [], 0.3)[0]:
        changes += 1
        assert changes < 100
        run("set", "w.fbr", "a", "ready", "dword", str(changes))
    while not line.endswith(f"REG_DWORD {changes} (0x{changes:08x})\n"):
        line = watch.stdout.readline().decode()

    def told(*lines):
        for line in lines:
            found = watch.stdout.readline().decode()
            assert found == line + "\n", (found, line)

    run("set", "w.fbr", "other", "n", "dword", "2")  # which it is not asked about
    run("set", "w.fbr", "a\\b", "n", "dword", "2")
    told('~ \\a\\b "n" REG_DWORD 1 (0x00000001) -> REG_DWORD 2 (0x00000002)')
    run("set", "w.fbr", "a\\c\\d", "", "sz", "new")
    told("+ \\a\\c\\", "+ \\a\\c\\d\\", "+ \\a\\c\\d (Default) REG_SZ new")
    run("export", "w.fbr", "-o", "w.reg")
    run("rm", "-r", "w.fbr", "a\\c")
    told("- \\a\\c\\")
    run("import", "w2.fbr", "w.reg")
    os.rename("w2.fbr", "w.fbr")
    told("+ \\a\\c\\", "+ \\a\\c\\d\\", "+ \\a\\c\\d (Default) REG_SZ new")
    time.sleep(1)
    ticks = [int(n) for n in open(f"/proc/{watch.pid}/stat").read().rsplit(") ")[1].split()[11:13]]
    assert sum(ticks) < 50, ticks  # hundredths of a second in all
    watch.send_signal(signal.SIGINT)
    out, err = watch.communicate(timeout=20)
    err = [line for line in err.splitlines() if not line.startswith(b"fbr: waiting for the lock")]
    assert (watch.returncode, out, err) == (-signal.SIGINT, b"", []), (watch.returncode, out, err)


def serve(folder):
    # Says what it listens on, in a folder that is the user's alone.
    server = subprocess.Popen([fbr, "serve", "name", "--root", folder], stderr=subprocess.PIPE,
                              text=True)
    socket = os.path.join(folder, "zrfs", "name")
    line = server.stderr.readline()
    assert line.startswith("fbr: listening on ") and line.split()[-1] == socket, line
    assert os.stat(os.path.dirname(socket)).st_mode & 0o777 == 0o700
    return server, socket


def end(server, socket, how):
    server.send_signal(how)
    _, messages = server.communicate(timeout=20)
    assert server.returncode == 0, server.returncode
    assert messages.endswith("fbr: stopped, every store is closed\n"), messages
    assert not os.path.exists(socket)


def serving(folder):
    os.environ["XDG_RUNTIME_DIR"] = folder
    server, socket = serve(folder)
    remote, demo = ["--method", "remote-container"], ["name|r.fbr", "Software\\Demo"]
    run(*remote, "set", *demo, "Count", "dword", "42")
    run(*remote, "set", *demo, "", "sz", "text")
    assert run(*remote, "get", *demo, "Count") == b"42\n"
    # What a server does not find the time of is told.
    run(*remote, "set", "name|t.fbr", "a:b", "n", "dword", "1")
    run(*remote, "find", "name|t.fbr", "--since", "1h", status=1, err="fbr: key \\a:b in name|t.fbr ")
    listed = subprocess.run([sys.executable, example, socket, "r.fbr"], capture_output=True)
    assert listed.stdout == (b"(root)\n  FBRVersion type 4, 4 bytes\n  Software\n    Demo\n"
                             b"      (Default) type 1, 10 bytes\n      Count type 4, 4 bytes\n"), listed
    refused = subprocess.run([sys.executable, example, socket, "../r.fbr"], capture_output=True)
    assert refused.returncode == 1 and b"status 2" in refused.stderr, refused
    # The name is taken while the server lives.
    run("serve", "name", status=1, err="fbr: ")
    # A client that is connected does not keep the server from ending, nor the store open.
    client = runpy.run_path(example)
    idle = client["Store"](socket)
    assert idle.ask(0, client["string"]("r.fbr") + struct.pack("<I", 4)) == (b"", 0)
    assert idle.ask(8, struct.pack("<QI", 0, 1) + client["string"]("Volatile"))[1] == 0
    end(server, socket, signal.SIGINT)
    assert idle.socket.recv(1) == b""
    assert b"Volatile" not in run("ls", "r.fbr")
    assert run("get", "r.fbr", "Software\\Demo", "Count") == b"42\n"
    end(*serve(folder), signal.SIGTERM)


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    watching()
    serving(folder)
    text = ['{"key":"\\\\a%d","name":"n","type":3,"data":"%s"}\n' % (i, "01" * 20)
            for i in range(KEYS)]
    write("x.jsonl", "".join(text))
    run("import", "x.fbr", "x.jsonl")
    interrupts()
