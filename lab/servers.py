"""HTTP servers on loopback: one that follows a script, and the real nginx."""
import contextlib
import pathlib
import socket
import struct
import subprocess
import tempfile
import threading
import time

PAUSE = 0.02  # seconds between two looks at an event
TAKEN_LIMIT = 5  # seconds that a client gets to read a piece


def header(length, status="200 OK", extra=()):
    lines = [f"HTTP/1.1 {status}", "Server: script", f"Content-Length: {length}", "Connection: close", *extra]
    return "\r\n".join(lines).encode() + b"\r\n\r\n"


class Reset:
    """In a script: end the connection with a TCP reset."""


class ScriptedServer:
    """Answers each connection with the same script: pieces of bytes, each read by itself, numbers (seconds to wait),
    events to wait for and Reset. With an ssl.SSLContext in `tls` it speaks HTTPS; a script's end is then a cut, without
    TLS's own farewell."""

    def __init__(self, script, tls=None):
        self.script, self.tls = script, tls
        self.requests = []
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.stopped = threading.Event()
        self.thread = threading.Thread(target=self._serve, daemon=True)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.stopped.set()
        with contextlib.suppress(OSError):
            self.socket.shutdown(socket.SHUT_RDWR)
        self.socket.close()
        self.thread.join(5)

    def url(self, path="/pkg.img"):
        return f"{'https' if self.tls else 'http'}://127.0.0.1:{self.port}{path}"

    def _serve(self):
        while not self.stopped.is_set():
            try:
                connection, _ = self.socket.accept()
            except OSError:
                return
            with connection, contextlib.suppress(OSError), self._prepare(connection) as channel:
                self._answer(channel)

    def _prepare(self, connection):
        connection.settimeout(120)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return self.tls.wrap_socket(connection, server_side=True) if self.tls else connection

    def _answer(self, connection):
        request = b""
        while not request.endswith(b"\r\n\r\n"):
            piece = connection.recv(4096)
            if not piece:
                return
            request += piece
        self.requests.append(request)
        for step in self.script:
            if isinstance(step, (int, float)):
                self.stopped.wait(step)
            elif isinstance(step, threading.Event):
                while not self.stopped.is_set() and not step.wait(PAUSE):
                    pass
            elif step is Reset:
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                return
            else:
                connection.sendall(step)
                wait_until_read(connection)


def wait_until_read(connection):
    """Waits until the client has read all that was sent, so that it cannot arrive as one with what follows."""
    ends = connection.getsockname()[1], connection.getpeername()[1]
    deadline = time.monotonic() + TAKEN_LIMIT
    while _unread(*ends) and time.monotonic() < deadline:
        time.sleep(0.0005)


def _unread(server_port, client_port):
    """Bytes that stand in the kernel between the two ends of a connection over loopback."""
    total = 0
    for line in pathlib.Path("/proc/net/tcp").read_text().splitlines()[1:]:
        local, remote, _, queues = line.split()[1:5]
        ports = int(local[-4:], 16), int(remote[-4:], 16)
        if ports == (server_port, client_port):
            total += int(queues[:8], 16)
        elif ports == (client_port, server_port):
            total += int(queues[9:], 16)
    return total


def serve(package, **kwargs):
    """A scripted server that sends a package in one piece."""
    return ScriptedServer([header(len(package)) + package], **kwargs)


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]


class Nginx:
    """nginx serving a folder of its own on a free port. `listen` and `server` add to its configuration."""

    def __init__(self, listen="", server=""):
        self.temp = tempfile.TemporaryDirectory(prefix="tarv-nginx-")
        self.folder = pathlib.Path(self.temp.name)
        self.root = self.folder / "www"
        self.root.mkdir()
        self.port = free_port()
        self.scheme = "https" if "ssl" in listen.split() else "http"
        (self.folder / "nginx.conf").write_text(f"""
daemon off; pid {self.folder}/pid; error_log {self.folder}/error.log; worker_processes 1; user root;
events {{ worker_connections 1024; }}
http {{
  access_log {self.folder}/access.log;
  client_body_temp_path {self.folder}/body; proxy_temp_path {self.folder}/proxy;
  fastcgi_temp_path {self.folder}/fastcgi; uwsgi_temp_path {self.folder}/uwsgi; scgi_temp_path {self.folder}/scgi;
  server {{ listen 127.0.0.1:{self.port} {listen}; root {self.root}; {server} }}
}}
""")

    def __enter__(self):
        command = ["nginx", "-e", str(self.folder / "error.log"), "-c", str(self.folder / "nginx.conf")]
        self.process = subprocess.Popen(command, stderr=subprocess.DEVNULL)
        for _ in range(200):
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.port), 1):
                return self
            if self.process.poll() is not None:
                break
            time.sleep(0.05)
        raise AssertionError("nginx does not start: " + (self.folder / "error.log").read_text())

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait(10)
        self.temp.cleanup()

    def put(self, name, data):
        (self.root / name).write_bytes(data)
        return f"{self.scheme}://127.0.0.1:{self.port}/{name}"
