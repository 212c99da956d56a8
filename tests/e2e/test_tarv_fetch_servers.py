"""tarv-fetch with real servers and proxies, some of which fail meanwhile."""
import os
import pathlib
import signal
import subprocess
import time
import unittest

from lab.certificates import make_authority, make_certificate
from lab.daemons import apache, haproxy, lighttpd, tinyproxy, varnish
from lab.expected import expected_flash
from lab.fetching import CHUNK, Signer, fetch, running, temporary_folder
from lab.packages import images
from lab.servers import Nginx, free_port
from lab.sim_module import SimModule

PACKAGE = images("system", 1_500_001, "boot", 100_001)
DATA = PACKAGE.bytes()
SLOW = "limit_rate 600k; sendfile off; output_buffers 1 16k;"


def setUpModule():
    global FOLDER, MAKER, FILES
    FOLDER = pathlib.Path(unittest.enterModuleContext(temporary_folder()))
    MAKER = Signer(FOLDER)
    FILES = MAKER.files(DATA)
    make_authority(FOLDER)
    make_certificate(FOLDER, "server")


def nginx(listen="", server=""):
    pair = f"ssl_certificate {FOLDER}/server.crt; ssl_certificate_key {FOLDER}/server.key;" if "ssl" in listen else ""
    return Nginx(listen=listen, server=pair + server)


def fill(server):
    for name, data in FILES.items():
        url = server.put(name[1:], data)
        if name == "/p.img":
            package = url
    return package


def worker(server):
    children = subprocess.run(["pgrep", "-P", str(server.process.pid)], capture_output=True, text=True, check=True)
    return int(children.stdout.split()[0])


class Servers(unittest.TestCase):
    def check(self, url, *words, **options):
        """Signed, then unsigned."""
        for trust in ["--key", MAKER.public], ["--unsigned"]:
            with self.subTest(url=url, trust=trust[0]), SimModule() as module:
                run = fetch(module, *trust, *words, url, **options)
                self.assertEqual(run.status, 0, run.errors)
                self.assertTrue(module.dumps() == expected_flash(PACKAGE, module))
        return run

    def test_nginx(self):
        ca = ["--ca", FOLDER / "ca.crt"]
        for listen, server, words in (("", "", []), ("", "max_ranges 0;", []), ("ssl", "", ca), ("ssl http2", "", ca),
                                      ("", "gzip on; gzip_types *;", []), ("", "", ["--limit-rate", "1M"])):
            with nginx(listen, server) as origin:
                self.check(fill(origin), *words)
                if "http2" in listen:
                    self.assertIn("HTTP/2.0", (origin.folder / "access.log").read_text())

    def test_ipv6(self):
        port = free_port()
        with nginx(server=f"listen [::1]:{port};") as origin:
            self.check(fill(origin).replace(f"127.0.0.1:{origin.port}", f"[::1]:{port}"))

    def test_client_certificate(self):
        make_certificate(FOLDER, "client")
        words = ["--ca", FOLDER / "ca.crt", "--cert", FOLDER / "client.crt", "--cert-key", FOLDER / "client.key"]
        with nginx("ssl", f"ssl_verify_client on; ssl_client_certificate {FOLDER}/ca.crt;") as origin:
            url = fill(origin)
            self.check(url, *words)
            with SimModule() as module:
                self.assertEqual(fetch(module, "--key", MAKER.public, *words[:2], url).status, 3)

    def test_other_servers_and_what_stands_before_them(self):
        for server in apache, lighttpd:
            with server() as origin:
                origin.put(FILES)
                self.check(origin.url())
        with nginx() as origin:
            fill(origin)
            for proxy in haproxy, varnish:
                with proxy(origin.port) as front:
                    self.check(front.url())

    def test_forward_proxy(self):
        with nginx() as origin, nginx("ssl") as secure, tinyproxy() as proxy:
            way = proxy.url("")
            plain, tls = fill(origin), fill(secure)
            self.check(plain, "--proxy", way)
            self.check(tls, "--proxy", way, "--ca", FOLDER / "ca.crt")
            proxy.process.terminate()
            proxy.process.wait(10)
            with SimModule() as module:  # and not around it
                environment = {**os.environ, "http_proxy": way}
                run = fetch(module, "--unsigned", "--give-up", "1", plain, env=environment)
                self.assertEqual(run.status, 4, run.errors)

    def breaks(self, origin, url, action, *words):
        """Does `action` in the middle of a slow transfer. Returns the status."""
        with SimModule() as module, running(module, *words, url) as process:
            deadline = time.monotonic() + 30
            while int(module.text("download_size") or 0) < 5 * CHUNK and time.monotonic() < deadline:
                time.sleep(0.02)
            self.assertGreaterEqual(int(module.text("download_size") or 0), 5 * CHUNK)
            action(origin)
            _, errors = process.communicate(timeout=60)
            right = module.dumps() == expected_flash(PACKAGE, module)
            self.assertEqual(right, process.returncode == 0, errors)
            return process.returncode, errors.count("goes on in")

    def test_worker_killed(self):
        def kill_worker(origin):
            os.kill(worker(origin), signal.SIGKILL)
        for listen, words in ("", []), ("ssl http2", ["--ca", FOLDER / "ca.crt"]):
            for trust in ["--key", MAKER.public], ["--unsigned"]:
                with self.subTest(listen=listen, trust=trust[0]), nginx(listen, SLOW) as origin:
                    self.assertEqual(self.breaks(origin, fill(origin), kill_worker, *trust, *words), (0, 1))

    def test_file_replaced(self):
        def replace(data):
            def action(origin):
                (origin.root / "new").write_bytes(data)
                (origin.root / "new").rename(origin.root / "p.img")
                os.kill(worker(origin), signal.SIGKILL)
            return action
        signed, unsigned, changed = ["--key", MAKER.public], ["--unsigned"], bytes(len(DATA))
        for name, data, trust, status in (
                ("touched, signed", DATA, signed, 0), ("touched, unsigned", DATA, unsigned, 3),
                ("changed, signed", changed, signed, 3), ("changed, unsigned", changed, unsigned, 3),
                ("longer, signed", DATA + b"x", signed, 3), ("longer, unsigned", DATA + b"x", unsigned, 3)):
            with self.subTest(name), nginx(server=SLOW) as origin:
                url = fill(origin)
                os.utime(origin.root / "p.img", (0, 0))
                self.assertEqual(self.breaks(origin, url, replace(data), *trust)[0], status)
