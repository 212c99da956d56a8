"""What tarv-fetch needs around it: signed packages, a server that can misbehave, and its runs."""
import contextlib
import hashlib
import json
import os
import pathlib
import socket
import struct
import subprocess
import tempfile
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

from lab.module import BIN_DIR

CHUNK = 65536
# What stands before a path of this machine on a simulated module.
HOST = "" if os.environ.get("TARV_FLASH") == "mtd" else "/host"


def digests(data, chunk=CHUNK):
    """As the format is described, not as our tool makes it."""
    lines = ["tarvolin-digests 1", f"length {len(data)}", f"chunk {chunk}"]
    lines += [f"sha256 {hashlib.sha256(data[at:at + chunk]).hexdigest()}" for at in range(0, len(data), chunk)]
    return "\n".join(lines).encode() + b"\n"


class Signer:
    """A key pair of minisign's own in a folder."""

    def __init__(self, folder, name="maker"):
        self.folder, self.name = pathlib.Path(folder), name
        self._minisign("-GW", "-p", f"{name}.pub", "-s", f"{name}.sec")
        self.public = self.folder / f"{name}.pub"

    def _minisign(self, *words):
        subprocess.run(["minisign", *words], cwd=self.folder, check=True, stdout=subprocess.DEVNULL)

    def sign(self, content, comment="package 1", legacy=False):
        (self.folder / "signed").write_bytes(content)
        form = ["-l"] if legacy else ["-H"]
        self._minisign("-S", *form, "-m", "signed", "-s", f"{self.name}.sec", "-t", comment)
        return (self.folder / "signed.minisig").read_bytes()

    def files(self, data, name="/p.img", chunk=CHUNK, legacy=False):
        """A package and what lies beside it."""
        listed = digests(data, chunk)
        return {name: data, f"{name}.digests": listed, f"{name}.digests.minisig": self.sign(listed, legacy=legacy)}


class Answer(BaseHTTPRequestHandler):
    """One request to an Origin. What `origin.plan` holds for requests of the package is done once each, in order."""

    protocol_version = "HTTP/1.1"

    def log_message(self, *_):
        pass

    def do_GET(self):
        path = self.path.partition("?")[0]
        origin = self.server.origin
        data = origin.files.get(path)
        asked = self.headers.get("Range")
        self.first = int(asked[6:].split("-")[0]) if asked else None
        origin.requests.append((self.path, self.first, dict(self.headers)))
        step = None
        if path in origin.planned:
            with origin.lock:
                step = origin.plan.pop(0) if origin.plan else origin.rest
        with contextlib.suppress(OSError):
            if data is None:
                self.give(404, b"not here")
            elif step:
                step(self, data)
            else:
                self.honest(data)
        self.close_connection = self.close_connection or step is not None

    def give(self, status, body, *fields):
        self.send_response(status)
        for field in fields or (f"content-length: {len(body)}",):
            self.send_header(*field.split(": ", 1))
        self.end_headers()
        self.wfile.write(body)

    def header(self, data, last=None):
        """The header of an honest answer, and the offset of its body."""
        first, last = self.first or 0, len(data) - 1 if last is None else last
        fields = [f"content-length: {last + 1 - first}", "etag: \"1\""]
        if self.first is not None:
            fields.append(f"content-range: bytes {first}-{last}/{len(data)}")
        self.give(200 if self.first is None else 206, b"", *fields)
        return first

    def honest(self, data):
        self.wfile.write(data[self.header(data):])


def cut(place, reset=False, stall=None):
    """Sends what stands before this byte of the package, and breaks."""
    def step(answer, data):
        answer.wfile.write(data[answer.header(data):place])
        if stall:
            answer.server.origin.stopped.wait(stall)
        if reset:
            answer.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            answer.connection.close()
    return step


def status(number, *fields):
    return lambda answer, data: answer.give(number, b"", "content-length: 0", *fields)


class Origin:
    """A server on loopback. `plan` is what becomes of the first requests of `planned` paths, `rest` of all others."""

    def __init__(self, files, plan=(), rest=None, planned=("/p.img",), tls=None):
        self.files, self.plan, self.rest, self.planned = dict(files), list(plan), rest, planned
        self.requests, self.lock, self.stopped = [], threading.Lock(), threading.Event()
        self.server = ThreadingHTTPServer(("127.0.0.1", 0), Answer)
        self.server.daemon_threads, self.server.origin = True, self
        self.server.handle_error = lambda *_: None
        self.scheme = "https" if tls else "http"
        if tls:
            self.server.socket = tls.wrap_socket(self.server.socket, server_side=True, do_handshake_on_connect=False)

    def __enter__(self):
        threading.Thread(target=self.server.serve_forever, args=(0.05,), daemon=True).start()
        return self

    def __exit__(self, *_):
        self.stopped.set()
        self.server.shutdown()
        self.server.server_close()

    def url(self, path="/p.img", user=""):
        return f"{self.scheme}://{user}127.0.0.1:{self.server.server_port}{path}"

    def starts(self):
        """The first bytes that were asked for of the package."""
        return [first for path, first, _ in self.requests if path.partition("?")[0] == "/p.img"]


def command(module, *words, updater=None, program="tarv-fetch"):
    """How tarv-fetch is started on a module. Paths of the machine's own files are pathlib's."""
    paths = [f"{HOST}{word}" if isinstance(word, pathlib.Path) else str(word) for word in words]
    updater = updater or BIN_DIR / module.program
    return [*module.command(program), "--updater", f"{HOST}{updater}", *paths]


class Fetched:
    def __init__(self, done):
        self.status, self.output, self.errors = done.returncode, done.stdout, done.stderr
        if "Sanitizer" in self.errors or "runtime error" in self.errors:
            raise AssertionError(self.errors)

    def news(self):
        return [json.loads(line) for line in self.output.splitlines()]


def fetch(module, *words, updater=None, timeout=120, env=None):
    """A whole run."""
    return Fetched(subprocess.run(command(module, *words, updater=updater), capture_output=True, text=True,
                                  errors="replace", timeout=timeout, check=False, stdin=subprocess.DEVNULL,
                                  env=env or module.environment()))


@contextlib.contextmanager
def running(module, *words, updater=None, **options):
    """A run under way."""
    with subprocess.Popen(command(module, *words, updater=updater), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, stdin=subprocess.DEVNULL, **options) as process:
        try:
            yield process
        finally:
            process.kill()


def temporary_folder():
    return tempfile.TemporaryDirectory(prefix="tarv-fetch-")
