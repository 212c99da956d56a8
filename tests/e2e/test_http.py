"""Downloads over plain HTTP: the ways in which a response may arrive, from scripted servers and from the real nginx."""
import itertools
import random
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

from module import Module
from packages import Image, Package, differences, expected_flash, images, no_images
from servers import Nginx, Reset, ScriptedServer, free_port, header

EMPTY, MIXED = no_images(), images("boot", 5000, "system", 9000)
HEAD, WHOLE = EMPTY.bytes(), MIXED.bytes()
HEADER, WIRE = header(len(HEAD)), header(len(WHOLE)) + WHOLE
PROMISED = Package([Image("boot", b"x" * 100, size=0xFFFFFFFF - 3536)]).bytes()  # a table of 2^32 - 1 bytes in all
PLAIN, CHUNKED = b"HTTP/1.1 200 OK\r\n\r\n", b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
LAST_CHUNK = b"\r\n0\r\n\r\n"
LONG = header(3536, extra=("X: " + "x" * 5000,))
# Responses that bring the whole package.
ACCEPTED = {
    "header of 4096 bytes": (EMPTY, [LONG[:4092] + b"\r\n\r\n", HEAD]),
    "header in two pieces with a full block behind": (MIXED, [WIRE[:20], WIRE[20:]]),
    "surplus in the first block": (EMPTY, [HEADER + HEAD + b"x" * 400]),
    "surplus after the package": (MIXED, [WIRE[:3000], WIRE[3000:], b"x" * 10000]),
    "chunked": (MIXED, [CHUNKED + b"4480;x=y\r\n" + WHOLE, LAST_CHUNK]),
    "chunked in one block": (EMPTY, [CHUNKED + b"0xDD0\r\n" + HEAD + LAST_CHUNK]),
    "length and chunked": (EMPTY, [header(3536, extra=("Transfer-Encoding: chunked",)) + HEAD]),
    "another status": (EMPTY, [header(3536, "500 Internal Server Error") + HEAD]),
}
NO_LENGTH = "Transfer-Encoding: chunked not find"
# Responses that do not, flash left alone: script, failure reason, line in the log where that is another.
REFUSED = {
    "nothing": ([], "download stop: 0/0\n"),
    "half a header": ([HEADER[:40]], "download stop: 0/0\n"),
    "header only": ([HEADER], "download stop: 0/3536\n"),
    "half a head": ([HEADER + HEAD[:3535]], "download stop: 0/3536\n"),
    "404": ([header(3536, "404 Not Found") + HEAD], "404 Not Found"),
    "404 in two pieces": ([b"HTTP/1.1 404 Not", b" Found\r\n"], "404 Not Found"),
    "no length": ([PLAIN + HEAD], NO_LENGTH),
    "length in lower case": ([HEADER.lower() + HEAD], NO_LENGTH),
    "length in the body only": ([PLAIN + b"Content-Length: 3536\r\n\r\n" + HEAD], NO_LENGTH),
    "length 3535": ([header("3535") + HEAD], "file_len error\n", "ginfo->file_len: 3535, error"),
    "no number": ([header("many") + HEAD], "file_len error\n", "ginfo->file_len: 0, error"),
    "length -1": ([header("-1") + HEAD], "package len error: 4294967295/3536\n"),
    "length 2^31": ([header("2147483648") + HEAD], "package len error: 2147483647/3536\n"),
    "length 2^32 + 3536": ([header("4294970832") + HEAD], "package len error: 2147483647/3536\n"),
    "length of 20 digits": ([header("9" * 20) + HEAD], "package len error: 2147483647/3536\n"),
    "length -2^31 - 1": ([header("-2147483649") + HEAD], "package len error: 2147483648/3536\n"),
    "length 2^32 - 1": ([header("-1") + PROMISED], "download stop: 3636/-1\n"),
    "chunk of 2^36 bytes": ([CHUNKED + b"1000000dd0\r\n" + HEAD], "package len error: 4294967295/3536\n"),
    "small first chunk": ([CHUNKED + b"dcf\r\n" + HEAD], "file_len error\n", "ginfo->file_len: 3535, error"),
    "chunk size by itself": ([CHUNKED, b"dd0\r\n" + HEAD], None, "rnrn to rn, ret is not 0"),
    "last chunk too early": ([CHUNKED + b"dd0\r\n", HEAD + LAST_CHUNK], None, "[3543] is greater than file_len[3536]"),
    "surplus in a later block": ([HEADER, HEAD + b"x"], None, "ERROR! fileoffset[3537] is greater than file_len[3536]"),
    "header of 4097 bytes": ([LONG[:4093] + b"\r\n\r\n" + HEAD], None, "buffer overflow, len[4097]"),
}


def header_copies(script):
    """What the header file holds: all that had been gathered after each piece, the header alone at last."""
    gathered = list(itertools.accumulate(script))
    last = next(n for n, text in enumerate(gathered) if b"\r\n\r\n" in text)
    return b"".join(gathered[:last]) + gathered[last].partition(b"\r\n\r\n")[0] + b"\r\n\r\n"


class Responses(unittest.TestCase):
    def download(self, module, script, status):
        with ScriptedServer(script) as server:
            run = module.run(server.url())
        self.assertEqual(run.status, status, module.log()[-2000:])

    def test_accepted(self):
        for name, (package, script) in ACCEPTED.items():
            with self.subTest(name), Module() as module:
                self.download(module, script, 0)
                self.assertEqual(differences(module, package, header_copies(script)), [])

    def test_refused(self):
        for name, (script, reason, *log) in REFUSED.items():
            with self.subTest(name), Module() as module:
                self.download(module, script, 255)
                self.assertEqual(module.text("fail_reason"), reason)
                self.assertIn(log[0] if log else reason.strip(), module.log())
                self.assertEqual((module.history(), module.is_untouched()), (["IDLE", "DOWNLOAD", "FAILED"], True))

    def test_cut_while_storing(self):
        saved = Package([Image("system", MIXED.images[1].data[:-1000])])
        for end in ((), (Reset,)):
            with self.subTest(end), Module() as module:
                self.download(module, [WIRE[:3000], WIRE[3000:-1000], *end], 255)
                self.assertEqual(module.text("fail_reason"), "download stop: 16536/17536\n")
                self.assertTrue(module.dumps() == expected_flash(saved, module, armed=False))

    def test_any_split_is_the_same(self):
        borders = [len(WIRE) - len(WHOLE) + n for n in (0, 3536, 3536 + 5000, len(WHOLE) - 6)]
        seed = random.randrange(1 << 32)
        splits = {"none": [], "header by lines": [n + 1 for n, byte in enumerate(WIRE[: borders[0]]) if byte == 10],
                  "every byte at the borders": [border + n for border in borders for n in range(-5, 6)],
                  f"seed {seed}": random.Random(seed).sample(range(1, len(WIRE)), 60)}
        counts = []
        for name, positions in splits.items():
            with self.subTest(name), Module() as module:
                cuts = [0, *sorted(positions), len(WIRE)]
                script = [WIRE[a:b] for a, b in zip(cuts, cuts[1:])]
                self.download(module, script, 0)
                self.assertEqual(differences(module, MIXED, header_copies(script)), [])
                counts.append(module.counts())
        self.assertEqual(counts, counts[:1] * len(splits), splits.keys())

    def test_request(self):
        for scheme in ("http://", ""):
            for path in ("", "/", "/dir/pkg.img?v=1&x=%20:8", "/" + "p" * 255):
                with self.subTest(path, scheme=scheme), Module() as module, ScriptedServer([]) as server:
                    url = (scheme + server.url(path)[7:])[:255]
                    module.run(url)
                    path = url[len(scheme) :].partition("/")[2]
                    self.assertEqual(server.requests, [
                        f"GET /{path} HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 0\r\n".encode() +
                        b"Range: bytes=0-\r\nConnection: Close\r\n\r\n"])

    def test_no_connection(self):
        for url, reason in ((f"http://127.0.0.1:{free_port()}/x", "Connect Error: Connection refused\n"),
                            (f"http://{'x' * 64}/x", "Gethostname error")):  # longer than a host's name may be
            with self.subTest(url), Module() as module:
                self.assertEqual((module.run(url).status, module.text("fail_reason")), (255, reason))


class RealServer(unittest.TestCase):
    def test_nginx(self):
        package = images("system", 3000001, "boot", 300001, "modem", 100000)
        for configuration, status in (("", b"206 Partial Content"), ("max_ranges 0;", b"200 OK")):
            with self.subTest(status), Module() as module, Nginx(server=configuration) as nginx:
                url = nginx.put("pkg.img", package.bytes())
                self.assertEqual(module.run(url).status, 0, module.log()[-2000:])
                response = module.files()["http_header"]
                self.assertTrue(response.startswith(b"HTTP/1.1 " + status), response)
                self.assertEqual(differences(module, package, response), [])
                self.assertEqual((module.run(url + ".none").status, module.text("fail_reason")), (255, "404 Not Found"))


class Silence(unittest.TestCase):
    """Runs beside the other tests: it takes the whole of the client's patience."""

    @staticmethod
    def wait():
        with Module() as module, ScriptedServer([WIRE[:-1], 60]) as server:
            start = time.monotonic()
            status = module.run(server.url()).status
            return status, module.text("fail_reason"), int(time.monotonic() - start)

    def test_given_up_after_30_seconds(self):
        *outcome, seconds = self.aside.result()
        self.assertEqual(outcome, [255, "download stop: 17535/17536\n"])
        self.assertIn(seconds, range(30, 40))


def setUpModule():
    Silence.aside = ThreadPoolExecutor(1).submit(Silence.wait)
