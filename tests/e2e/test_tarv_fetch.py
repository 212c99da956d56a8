"""tarv-fetch in front of the updater: over connections that break, from servers that lie, for nobody else."""
import concurrent.futures
import contextlib
import os
import pathlib
import random
import signal
import socket
import subprocess
import time
import unittest

from lab.certificates import make_authority, make_certificate, server_context
from lab.expected import expected_flash
from lab.fetching import CHUNK, Origin, Signer, cut, digests, fetch, running, status, temporary_folder
from lab.module import BIN_DIR
from lab.packages import Image, Package, images, noise
from lab.servers import free_port
from lab.sim_module import SimModule

PACKAGE = images("system", 400_001, "boot", 100_001)
DATA = PACKAGE.bytes()
LEN = len(DATA)
SHARE = float(os.environ.get("TARV_FETCH_SHARE", "0.02"))  # of the 1,000 places where the connection breaks
OUTAGE = 45  # seconds: longer than the updater waits for a byte

# An updater that is none: it notes its address and what it is told on the way, and keeps what it gets.
RECORDER = """#!/usr/bin/env -S python3 -u
import pathlib, sys, time, urllib.request
folder = pathlib.Path("/tmp")
(folder / "words").write_text("\\n".join(sys.argv[1:]))
(folder / "url.part").write_text(sys.argv[2][6:])
(folder / "url.part").rename(folder / "url")
while not (folder / "go").exists():
    time.sleep(0.02)
answer = urllib.request.urlopen(sys.argv[2][6:])
(folder / "got").write_bytes(answer.read())
sys.exit(int((folder / "go").read_text() or 0))
"""


def setUpModule():
    global FOLDER, MAKER, STRANGER, FILES, RECORD
    FOLDER = pathlib.Path(unittest.enterModuleContext(temporary_folder()))
    MAKER, STRANGER = Signer(FOLDER), Signer(FOLDER, "stranger")
    FILES = MAKER.files(DATA)
    RECORD = FOLDER / "recorder"
    RECORD.write_text(RECORDER)
    RECORD.chmod(0o755)
    make_authority(FOLDER)
    make_certificate(FOLDER, "server")
    make_certificate(FOLDER, "elsewhere", "DNS:elsewhere.test")
    Updates.outage = concurrent.futures.ThreadPoolExecutor(1).submit(survive_outage)


def survive_outage():
    """Beside the other tests, since it takes as long as it takes. Returns what must be true of it."""
    with SimModule() as module, Origin(FILES, [cut(CHUNK + 5)], rest=status(503)) as origin:
        with running(module, "--key", MAKER.public, origin.url()) as process:
            time.sleep(OUTAGE)
            counted = int(module.text("download_size") or 0), module.history()
            origin.rest = None
            _, errors = process.communicate(timeout=60)
        return process.returncode, counted, module.dumps() == expected_flash(PACKAGE, module), errors


class FetchTest(unittest.TestCase):
    def check_updated(self, module, run, package=PACKAGE):
        self.assertEqual(run.status, 0, run.errors)
        self.assertEqual(module.history()[-1], "RESTORE")
        self.assertTrue(module.dumps() == expected_flash(package, module))

    def check_refused(self, module, run, words, number=3, started=False):
        self.assertEqual(run.status, number, run.errors)
        self.assertIn(words, run.errors)
        self.assertEqual(module.history(), ["IDLE", "DOWNLOAD", "FAILED"] if started else [])
        self.assertTrue(module.is_untouched())


class Updates(FetchTest):
    def test_connections_that_break(self):
        trouble = [cut(0), cut(5 * CHUNK + 7), cut(5 * CHUNK + 8, reset=True), status(503, "retry-after: 2")]
        for name, key, plan, starts in (
                ("signed", ["--key", MAKER.public], trouble, [None, None, 5 * CHUNK, 5 * CHUNK, 5 * CHUNK]),
                ("unsigned", ["--unsigned"], trouble, [None, None, 5 * CHUNK + 7, 5 * CHUNK + 8, 5 * CHUNK + 8]),
                ("no trouble", ["--key", STRANGER.public, "--key", MAKER.public], [], [None])):
            with self.subTest(name), SimModule() as module, Origin(FILES, plan) as origin:
                run = fetch(module, *key, origin.url())
                self.check_updated(module, run)
                self.assertEqual(origin.starts(), starts)
                self.assertEqual(run.errors.count("goes on in"), len(plan))
                self.assertEqual("signed: package 1" in run.errors, name != "unsigned")

    def test_random_places(self):
        """Each place in a run of its own; the unit tests have all of them on a network of paper."""
        places = random.Random(time.time()).sample(range(LEN), max(2, int(1000 * SHARE)))

        def visit(place):
            with SimModule() as module, Origin(FILES, [cut(place), cut(place + 1)]) as origin:
                run = fetch(module, "--key", MAKER.public, origin.url())
                return place, run.status, module.dumps() == expected_flash(PACKAGE, module)
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            for place, number, right in pool.map(visit, places):
                self.assertEqual((place, number, right), (place, 0, True))

    def test_outage(self):
        number, (received, history), right, errors = self.outage.result()
        self.assertEqual((number, right), (0, True), errors)
        # While the network was away the updater had no more than a few bytes of the first chunk.
        self.assertEqual((received, history), (0, ["IDLE", "DOWNLOAD"]))

    def test_servers_of_all_kinds(self):
        with Origin(FILES) as other:
            def moved(answer, _):
                answer.give(302, b"", f"location: {other.url()}", "content-length: 0")

            def chunked(answer, data):
                answer.give(200, b"", "transfer-encoding: chunked")
                for at in range(0, len(data), 50_000):
                    piece = data[at:at + 50_000]
                    answer.wfile.write(b"%x\r\n%b\r\n" % (len(piece), piece))
                answer.wfile.write(b"0\r\n\r\n")

            def endless(answer, data):
                answer.give(200, data, "x: y")
                for _ in range(10_000):
                    answer.wfile.write(b"surplus " * 10_000)

            def whole_again(answer, data):
                answer.first = None
                answer.honest(data)
            for name, key, path, plan in (
                    ("redirect", "signed", "/p.img", [moved]),
                    ("chunked", "signed", "/p.img", [chunked]),
                    ("chunked, unsigned", "unsigned", "/p.img", [chunked]),
                    ("never ends", "signed", "/p.img", [endless]),
                    ("knows no ranges", "signed", "/p.img", [cut(3 * CHUNK), whole_again]),
                    ("knows no ranges, unsigned", "unsigned", "/p.img", [cut(3 * CHUNK), whole_again]),
                    ("long URL", "signed", "/p.img?X-Signature=" + "s" * 7950, [])):
                with self.subTest(name), SimModule() as module, Origin(FILES, plan) as origin:
                    trust = ["--key", MAKER.public] if key == "signed" else ["--unsigned"]
                    run = fetch(module, *trust, origin.url(path, user="user:secret@"))
                    self.check_updated(module, run)
                    self.assertNotIn("secret", run.errors + run.output + module.log())
                    self.assertNotIn("ssss", run.errors + run.output + module.log())

    def test_trust_in_servers(self):
        """Certificates are read before the updater takes the data volume away."""
        take_away = FOLDER / "take-away"
        take_away.write_text(f'#!/bin/sh\nrm -r /data/cert\nexec /host{BIN_DIR}/tarvolin-sim "$@"\n')
        take_away.chmod(0o755)
        for name, certificate, words, fault in (
                ("authority", "server", ["--ca", "/data/cert/ca.crt"], None),
                ("none", "server", [], "certificate"),
                ("another name", "elsewhere", ["--ca", "/data/cert/ca.crt"], "certificate")):
            tls = server_context(FOLDER)
            tls.load_cert_chain(FOLDER / f"{certificate}.crt", FOLDER / f"{certificate}.key")
            with self.subTest(name), SimModule() as module, Origin(FILES, [cut(3 * CHUNK)], tls=tls) as origin:
                (module.folder / "data" / "cert").mkdir()
                (module.folder / "data" / "cert" / "ca.crt").write_bytes((FOLDER / "ca.crt").read_bytes())
                run = fetch(module, "--key", MAKER.public, *words, origin.url(), updater=take_away)
                if fault:
                    self.check_refused(module, run, fault)
                else:
                    self.check_updated(module, run)

    def test_both_forms_of_signature_and_other_places(self):
        listed = FILES["/p.img.digests"]
        for name, files, words in (
                ("legacy", MAKER.files(DATA, legacy=True), []),
                ("chunks of 16 KiB", MAKER.files(DATA, chunk=16384), []),
                ("chunks of 1 MiB", MAKER.files(DATA, chunk=1 << 20), []),
                ("digests elsewhere", {"/p.img": DATA, "/d": listed, "/s": FILES["/p.img.digests.minisig"]},
                 ["--digests", "/d?token=1", "--signature", "/s?token=2"])):
            with self.subTest(name), SimModule() as module, Origin(files) as origin:
                places = [origin.url(word) if word.startswith("/") else word for word in words]
                self.check_updated(module, fetch(module, "--key", MAKER.public, *places, origin.url()))
        (FOLDER / "here").write_bytes(listed)
        (FOLDER / "here.minisig").write_bytes(FILES["/p.img.digests.minisig"])
        with SimModule() as module, Origin({"/p.img": DATA}) as origin:
            self.check_updated(module, fetch(module, "--key", MAKER.public, "--digests", FOLDER / "here", origin.url()))


class Refusals(FetchTest):
    def test_before_the_updater_is_started(self):
        other = MAKER.files(images("boot", 5000).bytes())
        signature, listed = FILES["/p.img.digests.minisig"], FILES["/p.img.digests"]
        changed = signature.replace(b"package 1", b"package 2")
        half_open = DATA[:CHUNK] + b"x" + DATA[CHUNK + 1:]
        secure = server_context(FOLDER)
        with Origin(FILES) as plain:
            def downgrade(answer, _):
                answer.give(302, b"", f"location: {plain.url()}", "content-length: 0")
            for name, files, words, fault in (
                    ("key of another", {}, ["--key", STRANGER.public], "made with another key"),
                    ("signed by another", {"/p.img.digests.minisig": STRANGER.sign(listed)}, [], "another key"),
                    ("signature of another file", {"/p.img.digests.minisig": other["/p.img.digests.minisig"]}, [],
                     "not the signature of this file"),
                    ("comment changed", {"/p.img.digests.minisig": changed}, [], "comment was changed"),
                    ("no signature", {"/p.img.digests.minisig": None}, [], "404"),
                    ("no digests", {"/p.img.digests": None}, [], "404"),
                    ("no package", {"/p.img": None}, [], "404"),
                    ("signature without end", {"/p.img.digests.minisig": b"x" * 100_000}, [], "too long"),
                    ("digests without end", {"/p.img.digests": b"x" * 6_000_000}, [], "too long"),
                    ("digests of another package", {k: v for k, v in other.items() if k != "/p.img"}, [], "bytes, not"),
                    ("first chunk changed", {"/p.img": b"x" + DATA[1:]}, [], "not those that were signed, three times"),
                    ("proven to the last byte", {"/p.img": half_open}, ["--check"], f"bytes from {CHUNK} on")):
                words = words if "--key" in words else ["--key", MAKER.public, *words]
                with self.subTest(name), SimModule() as module, Origin({**FILES, **files}) as origin:
                    self.check_refused(module, fetch(module, *words, origin.url()), fault)
            with SimModule() as module, Origin(FILES, rest=downgrade, tls=secure) as origin:
                run = fetch(module, "--key", MAKER.public, "--ca", FOLDER / "ca.crt", origin.url())
                self.check_refused(module, run, "from https to http")
                self.assertEqual(plain.requests, [])
        with SimModule() as module, Origin({"/p.img": DATA}) as origin:
            (module.folder / "bin" / "tarvolin").symlink_to("/bin/true")
            run = fetch(module, "--key", MAKER.public, "--give-up", "2", f"http://127.0.0.1:{free_port()}/p.img")
            self.check_refused(module, run, "gives up on the signature", number=4)

    def test_no_byte_of_a_wrong_chunk_reaches_the_updater(self):
        """Not even of a recovery image, which the updater would write in place."""
        package = Package([Image("recovery", noise(400_000))])
        data = package.bytes()
        for name, place, files in (("second chunk", CHUNK + 9, {}), ("last byte", len(data) - 1, {})):
            files = MAKER.files(data)
            wrong = data[:place] + bytes([data[place] ^ 1]) + data[place + 1:]
            with self.subTest(name), SimModule() as module, Origin({**files, "/p.img": wrong}) as origin:
                run = fetch(module, "--key", MAKER.public, origin.url())
                self.assertEqual((run.status, module.history()[-1]), (3, "FAILED"), run.errors)
                self.assertLessEqual(int(module.text("download_size") or 0), place // CHUNK * CHUNK)
                self.assertEqual(len(origin.starts()), 3)
                self.assertEqual(origin.requests[-1][2].get("Cache-Control"), "no-cache")
                self.assertIn("download stop", module.text("fail_reason"))

    def test_while_the_updater_runs(self):
        def replaced(answer, _):
            answer.give(200, b"y" * LEN, f"content-length: {LEN}", "etag: \"2\"")

        gone = status(404)
        for name, words, plan, rest, fault, number in (
                ("replaced", ["--unsigned"], [cut(5 * CHUNK)], replaced, "the file was replaced", 3),
                ("gone", ["--key", MAKER.public], [cut(5 * CHUNK)], gone, "status 404", 3),
                ("away", ["--key", MAKER.public, "--give-up", "4"], [cut(5 * CHUNK)], status(502), "gives up", 4)):
            with self.subTest(name), SimModule() as module, Origin(FILES, plan, rest) as origin:
                run = fetch(module, *words, origin.url())
                self.assertEqual((run.status, module.history()), (number, ["IDLE", "DOWNLOAD", "FAILED"]), run.errors)
                self.assertIn(fault, run.errors)

    def test_wrong_usage(self):
        url = "http://127.0.0.1:1/p"
        for words in ([], [url], ["--key", "x", "--unsigned", url], ["--unsigned", "ftp://h/p"],
                      ["--unsigned", url, url], ["--check", "--unsigned", url], ["--unsigned", "--give-up", "0", url],
                      ["--unsigned", "--cert", "x", url], ["--unsigned", "--limit-rate", "5", url],
                      ["--unsigned", "--digests", "x", url], ["--nonsense", url],
                      ["--unsigned", url, "--", "--url=http://h/"], ["--unsigned", url, "--", "-du", "h"], ["--key"]):
            run = subprocess.run([BIN_DIR / "tarv-fetch", *words], capture_output=True, text=True, check=False)
            self.assertEqual((run.returncode, run.stderr.count("\n")), (2, 2), words)


class Surroundings(FetchTest):
    """With an updater that is none, so that what happens between the two is seen."""

    @contextlib.contextmanager
    def waiting(self, *words, files=None, plan=(), rest=None):
        """A run whose updater has been started and has not yet asked for the package."""
        with SimModule() as module, Origin(files or FILES, plan, rest) as origin:
            words = ["--key", MAKER.public, *words, origin.url(), "--", "--version", "31405"]
            with running(module, *words, updater=RECORD) as process:
                self.origin, deadline = origin, time.monotonic() + 20
                while not (module.folder / "tmp" / "url").exists():
                    self.assertLess(time.monotonic(), deadline)
                    time.sleep(0.02)
                yield module, process, (module.folder / "tmp" / "url").read_text()

    def go(self, module, number=0):
        (module.folder / "tmp" / "go.part").write_text(str(number))
        (module.folder / "tmp" / "go.part").rename(module.folder / "tmp" / "go")

    def got(self, module):
        return (module.folder / "tmp" / "got").read_bytes()

    def test_nobody_else_gets_the_stream(self):
        with self.waiting() as (module, process, url):
            port, path = int(url.split(":")[2].split("/")[0]), "/" + url.split("/", 3)[3]

            def ask(path):
                with socket.create_connection(("127.0.0.1", port), 5) as strange, contextlib.suppress(OSError):
                    strange.sendall(f"GET {path} HTTP/1.1\r\n\r\n".encode())
                    return strange.recv(100)
                return b""
            self.assertRegex(path, "^/[0-9a-f]{32}/package.img$")
            silent = [socket.create_connection(("127.0.0.1", port), 5) for _ in range(12)]
            self.assertEqual([ask("/package.img"), ask(path[:-1]), ask("/" + "0" * 32 + "/package.img")], [b""] * 3)
            as_nobody = ("import os, socket, sys; os.setgid(65534); os.setuid(65534)\n"
                         "s = socket.socket(); s.connect(('127.0.0.1', int(sys.argv[1])))\n"
                         "s.sendall(f'GET {sys.argv[2]} HTTP/1.1\\r\\n\\r\\n'.encode())\n"
                         "try: sys.exit(len(s.recv(100)))\nexcept OSError: pass")
            if os.geteuid() == 0:
                stranger = subprocess.run(["python3", "-c", as_nobody, str(port), path], check=False)
                self.assertEqual(stranger.returncode, 0)
            self.go(module)
            process.wait(30)
            self.assertEqual((process.returncode, self.got(module) == DATA), (0, True))
            with self.assertRaises(OSError):
                socket.create_connection(("127.0.0.1", port), 1)
            for connection in silent:
                connection.close()

    def test_package_that_fits_between_the_two(self):
        """All of it has come before the updater asks: nothing is asked for twice."""
        data = noise(5 * 16384 + 100)
        with self.waiting(files=MAKER.files(data, chunk=16384)) as (module, process, _):
            time.sleep(1)
            self.go(module)
            self.assertEqual((process.wait(20), self.got(module) == data), (0, True))
            self.assertEqual(process.stderr.read().count("goes on in"), 0)
            self.assertEqual(len(self.origin.requests), 3)

    def test_second_connection_finds_no_door(self):
        with self.waiting(plan=[cut(3 * CHUNK)], rest=cut(3 * CHUNK, stall=3)) as (module, process, url):
            port = int(url.split(":")[2].split("/")[0])
            self.go(module)
            deadline = time.monotonic() + 10
            with contextlib.suppress(ConnectionRefusedError):
                while time.monotonic() < deadline:
                    socket.create_connection(("127.0.0.1", port), 1).close()
                    time.sleep(0.05)
            self.assertLess(time.monotonic(), deadline)
            process.send_signal(signal.SIGTERM)
            process.wait(20)
            self.assertEqual(process.returncode, 128 + signal.SIGTERM)

    def test_statuses(self):
        for number, wanted in ((0, 0), (1, 1), (253, 253), (254, 254), (255, 255), (2, 5), (77, 5)):
            with self.subTest(number), self.waiting() as (module, process, _):
                self.go(module, number)
                self.assertEqual(process.wait(20), wanted)
                words = (module.folder / "tmp" / "words").read_text().split("\n")
                self.assertEqual((words[0], words[2:]), ("--debug", ["--version", "31405"]))
        for updater, wanted in (("/bin/true", 5), ("/nowhere/tarvolin", 5), ("/bin/false", 1)):  # without the package
            with self.subTest(updater), SimModule() as module, Origin(FILES) as origin:
                run = fetch(module, "--key", MAKER.public, origin.url(), updater=updater)
                self.assertEqual(run.status, wanted, run.errors)

    def test_killed(self):
        """The updater sees the end of its download; what waits for it has an end, too."""
        for name, place in (("at the start", CHUNK), ("in the middle", 5 * CHUNK)):
            for number in (signal.SIGKILL, signal.SIGTERM):
                stalled = cut(place, stall=60)
                with self.subTest(name, number=number), SimModule() as module, Origin(FILES, [stalled]) as origin:
                    with running(module, "--key", MAKER.public, origin.url()) as process:
                        deadline = time.monotonic() + 20
                        while module.history() != ["IDLE", "DOWNLOAD"] and time.monotonic() < deadline:
                            time.sleep(0.02)
                        process.send_signal(number)
                        process.wait(20)
                        self.assertEqual(process.returncode, 143 if number == signal.SIGTERM else -9)
                        while module.history()[-1:] != ["FAILED"] and time.monotonic() < deadline:
                            time.sleep(0.02)
                    self.assertEqual(module.history(), ["IDLE", "DOWNLOAD", "FAILED"])
                    self.assertIn("download stop", module.text("fail_reason"))

    def test_updater_killed(self):
        with self.waiting() as (module, process, _):
            child = subprocess.run(["pgrep", "-P", str(process.pid)], capture_output=True, text=True, check=True).stdout
            os.kill(int(child), signal.SIGKILL)
            self.assertEqual(process.wait(20), 5)

    def test_what_is_left_open(self):
        """Nothing on the data volume, and nothing of libcurl's in the updater."""
        with self.waiting() as (module, process, _):
            child = subprocess.run(["pgrep", "-P", str(process.pid)], capture_output=True, text=True, check=True).stdout
            for pid in process.pid, int(child):
                self.assertEqual(os.readlink(f"/proc/{pid}/cwd"), os.readlink(f"/proc/{pid}/root"))
            opened = [os.readlink(path) for path in pathlib.Path(f"/proc/{int(child)}/fd").iterdir()]
            self.assertFalse([name for name in opened if name.startswith("socket:")], opened)
            self.go(module)
            self.assertEqual(process.wait(20), 0)

    def test_spread_check_and_json(self):
        with SimModule() as module, Origin(FILES, [cut(CHUNK)]) as origin:
            run = fetch(module, "--key", MAKER.public, "--check", "--json", "--spread", "1", "--id", "x", origin.url())
            self.assertEqual((run.status, run.errors), (0, ""))
            self.assertEqual([one["event"] for one in run.news()], ["waiting", "signed", "broke", "proven"])
            self.assertEqual(run.news()[2]["position"], CHUNK)
            self.assertEqual(module.history(), [])

    def test_digests_of_our_own_tool(self):
        (FOLDER / "own.img").write_bytes(DATA)
        (FOLDER / "bad.img").write_bytes(DATA[:-1] + b"x")
        for name, number in (("own.img", 0), ("bad.img", 1), ("maker.pub", 1)):
            run = subprocess.run([BIN_DIR / "tarv-pkg", "digests", FOLDER / name], capture_output=True, check=False)
            self.assertEqual((run.returncode, (FOLDER / f"{name}.digests").exists()), (number, number == 0), run.stderr)
        self.assertEqual((FOLDER / "own.img.digests").read_bytes(), digests(DATA))
