#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Lists a store over the socket of `fbr serve`: every key and the names and sizes of its values.

usage: remote_list.py SOCKET STORE [METHOD]

SOCKET is the path that `fbr serve` prints, STORE a store's path as the server sees it, METHOD its
method number (4, a container, if none is given). The packets are told in docs/remote-protocol.md.
"""

import os
import socket
import struct
import sys

INITIALISE, DEINITIALISE, QUERY, OPEN, CLOSE, VALUES, KEYS = 0, 1, 7, 9, 13, 20, 21
SUCCESS, NO_MORE = 0, 5


def string(text):
    data = text.encode("utf-16-le", "surrogatepass") + b"\0\0"
    return struct.pack("<I", len(data)) + data


class Store:
    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.connect(path)
        self.trust(path)

    def trust(self, path):
        """Anybody may have laid a socket where a server is looked for, to hear what is asked."""
        peer = self.socket.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12)
        user = struct.unpack("iII", peer)[1]
        folder = os.stat(os.path.dirname(os.path.abspath(path)))
        alone = folder.st_uid == user and folder.st_mode & 0o022 == 0
        if user not in (0, os.geteuid()) and not alone:
            raise PermissionError(f"{path} is served by user {user}, who is nobody to ask")

    def receive(self, size):
        data = b""
        while len(data) < size:
            piece = self.socket.recv(size - len(data))
            if not piece:
                raise ConnectionError("the server closed the connection")
            data += piece
        return data

    def ask(self, code, fields=b""):
        """Sends one request; returns the reply's fields and its status."""
        payload = struct.pack("<I", code) + fields
        self.socket.sendall(struct.pack("<II", 42, len(payload) + 8) + payload)
        _, total = struct.unpack("<II", self.receive(8))
        reply = self.receive(total - 8)
        if struct.unpack_from("<I", reply)[0] != code + 1:
            raise ConnectionError("the reply does not match the request")
        return reply[4:-4], struct.unpack("<I", reply[-4:])[0]

    def names(self, code, key):
        fields, status = self.ask(code, struct.pack("<Q", key))
        if status not in (SUCCESS, NO_MORE):
            raise OSError(f"enumeration failed with status {status}")
        at, names = 4, []
        for _ in range(struct.unpack_from("<I", fields)[0]):
            size = struct.unpack_from("<I", fields, at)[0]
            names.append(fields[at + 4 : at + 2 + size].decode("utf-16-le", "surrogatepass"))
            at += 4 + size
        return names

    def list(self, path, depth=0):
        fields, status = self.ask(OPEN, struct.pack("<Q", 0) + string(path))
        if status != SUCCESS:
            raise OSError(f"cannot open {path}: status {status}")
        key = struct.unpack("<Q", fields)[0]
        print("  " * depth + (path.rpartition("\\")[2] or "(root)"))
        for name in self.names(VALUES, key):
            request = struct.pack("<Q", key) + string(name) + struct.pack("<I", 0)
            fields, _ = self.ask(QUERY, request)
            kind, size = struct.unpack_from("<II", fields)
            print("  " * depth + f"  {name} type {kind}, {size} bytes")
        children = self.names(KEYS, key)
        self.ask(CLOSE, struct.pack("<Q", key))
        for child in children:
            self.list(path.rstrip("\\") + "\\" + child, depth + 1)


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    store = Store(sys.argv[1])
    method = int(sys.argv[3]) if len(sys.argv) == 4 else 4
    _, status = store.ask(INITIALISE, string(sys.argv[2]) + struct.pack("<I", method))
    if status != SUCCESS:
        sys.exit(f"cannot open {sys.argv[2]}: status {status}")
    store.list("\\")
    store.ask(DEINITIALISE)


if __name__ == "__main__":
    main()
