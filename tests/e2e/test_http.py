"""Downloads over plain HTTP: what the socket client makes of a response, from scripted servers and from the real nginx.
What a header may look like, and any way to cut a response, is in the unit tests response_test and intake_test."""
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

from lab.expected import differences, expected_flash
from lab.packages import Image, Package, images, no_images
from lab.servers import Nginx, Reset, ScriptedServer, free_port, header
from lab.sim_module import SimModule

EMPTY, MIXED = no_images(), images("boot", 5000, "system", 9000)
HEAD, WHOLE = EMPTY.bytes(), MIXED.bytes()
HEADER, WIRE = header(len(WHOLE)), header(len(WHOLE)) + WHOLE
PROMISED = Package([Image("boot", b"x" * 100, size=0xFFFFFFFF - 3536)]).bytes()  # a table of 2^32 - 1 bytes in all
CHUNKED = b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
LONG = header(3536, extra=("X: " + "x" * 5000,))
# Responses that bring the whole package.
ACCEPTED = {
    "header of 4096 bytes": (EMPTY, [LONG[:4092] + b"\r\n\r\n", HEAD]),
    "header in two pieces with a full block behind": (MIXED, [WIRE[:20], WIRE[20:]]),
    "surplus in the first block": (EMPTY, [header(3536) + HEAD + b"x" * 400]),
    "surplus after the package": (MIXED, [WIRE[:3000], WIRE[3000:], b"x" * 10000]),
    "chunked": (MIXED, [CHUNKED + b"4480;x=y\r\n" + WHOLE, b"\r\n0\r\n\r\n"]),
    "another status": (EMPTY, [header(3536, "500 Internal Server Error") + HEAD]),
}
# Responses that do not, flash left alone: script, failure reason, line in the log where that is another.
REFUSED = {
    "404 in two pieces": ([b"HTTP/1.1 404 Not", b" Found\r\n"], "404 Not Found"),
    "no length": ([b"HTTP/1.1 200 OK\r\n\r\n" + HEAD], "Transfer-Encoding: chunked not find"),
    "length 3535": ([header("3535") + HEAD], "file_len error\n", "ginfo->file_len: 3535, error"),
    "length 2^32 - 1": ([header("-1") + PROMISED], "download stop: 3636/-1\n"),
    "chunk size by itself": ([CHUNKED, b"dd0\r\n" + HEAD], None, "rnrn to rn, ret is not 0"),
    "surplus in a later block": ([header(3536), HEAD + b"x"], None, "ERROR! fileoffset[3537] is greater than file_len"),
    "header of 4097 bytes": ([LONG[:4093] + b"\r\n\r\n" + HEAD], None, "buffer overflow, len[4097]"),
}
# How much of its response a server sends before it stops: nothing, half a header, the header, half a head, the head,
# and on into an image, between images, into the store, to the last byte but one.
STOPS = [0, 40, *(len(HEADER) + n for n in (0, 3000, 3536, 6000, 8536, 12000, len(WHOLE) - 1))]


class Responses(unittest.TestCase):
    def download(self, module, script, status):
        with ScriptedServer(script) as server:
            run = module.run(server.url())
        self.assertEqual(run.status, status, module.log()[-2000:])

    def test_accepted(self):
        for name, (package, script) in ACCEPTED.items():
            with self.subTest(name), SimModule() as module:
                self.download(module, script, 0)
                self.assertEqual(differences(module, package, module.files()["http_header"]), [])

    def test_refused(self):
        for name, (script, reason, *log) in REFUSED.items():
            with self.subTest(name), SimModule() as module:
                self.download(module, script, 255)
                self.assertEqual(module.text("fail_reason"), reason)
                self.assertIn(log[0] if log else reason.strip(), module.log())
                self.assertEqual((module.history(), module.is_untouched()), (["IDLE", "DOWNLOAD", "FAILED"], True))

    def check_stopped(self, sent, *end):
        """Returns the seconds that the run took."""
        start = time.monotonic()
        with self.subTest(sent=sent, end=end), SimModule() as module:
            self.download(module, [WIRE[:sent][:len(HEADER)], WIRE[:sent][len(HEADER):], *end], 255)
            got = sent - len(HEADER)
            counts = "0/0" if got < 0 else f"{got if got >= 3536 else 0}/{len(WHOLE)}"
            self.assertEqual(module.text("fail_reason"), f"download stop: {counts}\n")
            self.assertEqual(module.history(), ["IDLE", "DOWNLOAD", "FAILED"])
            arrived = Package([Image("system", WHOLE[8536:got])] if got >= 3536 else [])
            self.assertTrue(module.dumps() == expected_flash(arrived, module, armed=False))
        return int(time.monotonic() - start)

    def test_server_stops(self):
        for sent in STOPS:
            self.check_stopped(sent)
            self.check_stopped(sent, Reset)

    def test_server_stalls(self):
        for seconds in self.stalls:
            self.assertIn(seconds, range(30, 40))

    def test_request(self):
        for scheme in ("http://", ""):
            for path in ("", "/dir/pkg.img?v=1&x=%20:8", "/" + "p" * 255):
                with self.subTest(path, scheme=scheme), SimModule() as module, ScriptedServer([]) as server:
                    url = (scheme + server.url(path)[7:])[:255]
                    module.run(url)
                    path = url[len(scheme) :].partition("/")[2]
                    self.assertEqual(server.requests, [
                        f"GET /{path} HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 0\r\n".encode() +
                        b"Range: bytes=0-\r\nConnection: Close\r\n\r\n"])

    def test_no_connection(self):
        for url, reason in ((f"http://127.0.0.1:{free_port()}/x", "Connect Error: Connection refused\n"),
                            (f"http://{'x' * 64}/x", "Gethostname error")):  # longer than a host's name may be
            with self.subTest(url), SimModule() as module:
                self.assertEqual((module.run(url).status, module.text("fail_reason")), (255, reason))

    def test_nginx(self):
        package = images("system", 5_000_001, "boot", 300_001, "modem", 5_000)
        for configuration, status in (("", b"206 Partial Content"), ("max_ranges 0;", b"200 OK")):
            with self.subTest(status), SimModule() as module, Nginx(server=configuration) as nginx:
                url = nginx.put("pkg.img", package.bytes())
                self.assertEqual(module.run(url).status, 0, module.log()[-2000:])
                response = module.files()["http_header"]
                self.assertTrue(response.startswith(b"HTTP/1.1 " + status), response)
                self.assertRegex(module.log(), rf"_http_download\(\d+\): download: \d+/{len(package.bytes())}\n")
                self.assertEqual(differences(module, package, response), [])
                self.assertEqual((module.run(url + ".none").status, module.text("fail_reason")), (255, "404 Not Found"))


def setUpModule():
    """All stalls run beside the other tests: each takes the whole of the client's patience."""
    Responses.stalls = ThreadPoolExecutor(len(STOPS)).map(lambda sent: Responses().check_stopped(sent, 60), STOPS)
