#!/usr/bin/env python3
"""Drives draizu-installer over the request protocol: installs a build and shows the progress.

    examples/installer_client.py INSTALLER OFFLINE_INSTALLER TARGET [--version V] [--platform P]

The client listens on a local socket and starts `INSTALLER --server SOCKET`, which connects to
it. It asks for "install" with the install options in their JSON form, prints each PROGRESS as
a percentage and each MESSAGE, WARNING and ERROR as a line, then the result of the COMPLETE, and
ends the session with SHUTDOWN. The installer keeps its records where its environment says
(DRAIZU_REPOSITORY). Exits with 0 when the install succeeded. docs/protocol.md describes the
messages and the installer's functions.
"""

import argparse
import codecs
import json
import os
import socket
import subprocess
import sys
import tempfile
import urllib.parse


def send(connection, cmd, tag, body):
    """One client message: the header line, then the body, whose length counts bytes."""
    data = body.encode()
    header = "1 cmd=%s tag=%s content-length=%d\r\n" % (cmd, tag, len(data))
    connection.sendall(header.encode() + data)


def call(connection, tag, function, args, kwargs=None):
    array = json.dumps([function, args, kwargs or {}])
    send(connection, "API_FUNCTION", tag, "json=" + urllib.parse.quote(array))


class Reader:
    """Cuts the server's messages out of the stream: a header line ended by CR LF, a body whose
    content-length counts UTF-16 code units of the text, then one LF that is not counted."""

    def __init__(self, connection):
        self.connection = connection
        self.buffer = b""

    def _more(self):
        chunk = self.connection.recv(65536)
        if not chunk:
            raise EOFError("the installer closed the connection")
        self.buffer += chunk

    def message(self):
        while b"\r\n" not in self.buffer:
            self._more()
        line, self.buffer = self.buffer.split(b"\r\n", 1)
        words = line.decode().split(" ")
        fields = dict(word.split("=", 1) for word in words[1:] if "=" in word)
        units = int(fields.get("content-length", "0"))
        decoder = codecs.getincrementaldecoder("utf-8")()
        body, counted, used = [], 0, 0
        while counted < units:
            if used == len(self.buffer):
                self._more()
            character = decoder.decode(self.buffer[used:used + 1])
            used += 1
            if character:
                body.append(character)
                counted += 2 if ord(character) > 0xFFFF else 1
        while used == len(self.buffer):
            self._more()
        self.buffer = self.buffer[used + 1:]
        return fields, "".join(body)


def options(offline_installer, target, version, platform):
    """The install options in the JSON form that the installer deserializes: every key given."""
    return {"verb": "install", "product": "Orvanis", "version": version, "platform": platform,
            "offline-installer": offline_installer, "install-dir": target, "existing-install-dir": "",
            "features": {}, "other-options": {}, "licenses": [], "build-type": ""}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("installer", help="the draizu-installer executable")
    parser.add_argument("offline_installer", help="an offline installer, an image or a directory")
    parser.add_argument("target", help="the installation directory")
    parser.add_argument("--version", default="21.0.512")
    parser.add_argument("--platform", default="linux_x86_64_gcc12")
    arguments = parser.parse_args()

    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "installer.socket")
        server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        server.bind(path)
        server.listen(1)
        host = subprocess.Popen([arguments.installer, "--server", path])
        connection, _ = server.accept()
        reader = Reader(connection)

        call(connection, "install", "install", [options(os.path.abspath(arguments.offline_installer),
                                                         os.path.abspath(arguments.target),
                                                         arguments.version, arguments.platform)])
        while True:
            fields, body = reader.message()
            cmd = fields.get("cmd")
            if cmd == "PROGRESS":
                done, total = (int(number) for number in body.split())
                print("progress %3d%%" % (done * 100 // max(total, 1)), flush=True)
            elif cmd in ("MESSAGE", "WARNING", "ERROR"):
                print("%s: %s" % (cmd.lower(), body), flush=True)
            elif cmd == "COMPLETE":
                result = json.loads(body)
                print("result (status %s): %s" % (fields.get("status"), result.get("message", "")))
                break

        send(connection, "SHUTDOWN", "bye", "x")
        host.wait(timeout=60)
        connection.close()
        return 0 if fields.get("status") == "200" and host.returncode == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
