"""Real servers and proxies on loopback, on free ports and in folders of their own."""
import contextlib
import pathlib
import socket
import subprocess
import tempfile
import time

from lab.module import REPOSITORY
from lab.servers import free_port

UNPACKED = REPOSITORY / "build" / "servers" / "usr"
START_LIMIT = 20  # seconds

APACHE = """ServerRoot {folder}
PidFile {folder}/pid
Listen 127.0.0.1:{port}
ServerName localhost
ErrorLog {folder}/log
LoadModule mpm_event_module /usr/lib/apache2/modules/mod_mpm_event.so
LoadModule authz_core_module /usr/lib/apache2/modules/mod_authz_core.so
DocumentRoot {root}
"""
LIGHTTPD = """server.port = {port}
server.bind = "127.0.0.1"
server.document-root = "{root}"
server.errorlog = "{folder}/log"
"""
HAPROXY = """defaults
  mode http
  timeout connect 5s
  timeout client 60s
  timeout server 60s
frontend front
  bind 127.0.0.1:{port}
  default_backend back
backend back
  server origin 127.0.0.1:{origin}
"""
TINYPROXY = """Port {port}
Listen 127.0.0.1
Timeout 60
LogFile "{folder}/log"
"""


class Daemon:
    """A program that serves `port`, configured by `text`. {folder}, {root}, {port} and {origin} are filled in."""

    def __init__(self, words, text="", origin=None):
        self.temp = tempfile.TemporaryDirectory(prefix="tarv-daemon-", ignore_cleanup_errors=True)
        folder = pathlib.Path(self.temp.name)
        self.root = folder / "www"
        self.root.mkdir()
        folder.chmod(0o755)
        self.port = free_port()
        values = {"folder": folder, "root": self.root, "port": self.port, "origin": origin}
        (folder / "conf").write_text(text.format(**values))
        self.words = [str(word).format(**values) for word in words]

    def __enter__(self):
        self.process = subprocess.Popen(self.words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + START_LIMIT
        while time.monotonic() < deadline and self.process.poll() is None:
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.port), 1):
                return self
            time.sleep(0.05)
        self.__exit__()
        raise AssertionError(f"{self.words[0]} does not start")

    def __exit__(self, *_):
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.temp.cleanup()

    def put(self, files):
        for name, data in files.items():
            (self.root / name.lstrip("/")).write_bytes(data)

    def url(self, path="/p.img"):
        return f"http://127.0.0.1:{self.port}{path}"


def apache():
    return Daemon(["/usr/sbin/apache2", "-DFOREGROUND", "-f", "{folder}/conf"], APACHE)


def lighttpd():
    return Daemon([UNPACKED / "sbin/lighttpd", "-D", "-m", UNPACKED / "lib/lighttpd", "-f", "{folder}/conf"], LIGHTTPD)


def haproxy(origin):
    """As it comes: header names in lower case."""
    return Daemon([UNPACKED / "sbin/haproxy", "-db", "-f", "{folder}/conf"], HAPROXY, origin)


def varnish(origin):
    return Daemon([UNPACKED / "sbin/varnishd", "-F", "-a", "127.0.0.1:{port}", "-b", "127.0.0.1:{origin}",
                   "-n", "{folder}/work", "-s", "malloc,64m"], origin=origin)


def tinyproxy():
    return Daemon(["/usr/bin/tinyproxy", "-d", "-c", "{folder}/conf"], TINYPROXY)
