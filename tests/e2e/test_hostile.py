"""Servers and packages made to do harm: a run fails and says why, or the right bytes are on flash; it never arms a
store that is not whole, and writes only to its own places. Plain refusals are in test_http and test_refusals."""
import struct
import unittest
from concurrent.futures import ThreadPoolExecutor

from module import Module
from packages import RECOVERY_NAMES, RESTORE, Image, Package, differences, expected_flash, images, jamcrc, noise
from servers import Reset, ScriptedServer, header

MIXED = images("boot", 5000, "system", 9000)
WHOLE, HEADER = MIXED.bytes(), header(len(MIXED.bytes()))
LINE, NO_LENGTH = b"X: " + b"x" * 995 + b"\r\n", "Transfer-Encoding: chunked not find"
DATA, LARGE = noise(9000), noise(300000, 2)
RUN_FILES = ("status_str fail_reason download_time check_time install_time total_time download_size file_size pt_type"
             " head tarv_log").split()
WRONG_LENGTH = f"package len error: 4294967295/{len(WHOLE)}\n"


def length_line(value):
    return [b"HTTP/1.1 200 OK\r\nContent-Length:" + value + b"\r\n\r\n" + WHOLE[:3900]]


def first_chunk(size):
    return [b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + size + b"\r\n" + WHOLE[:3900]]


def sent(*table, **fields):
    """A script for a package, with the length that its head gives, modulo 2^32."""
    package = Package(list(table), **fields)
    length = 3536 + sum(len(i.data) if i.size is None else i.size for i in package.images) & 0xFFFFFFFF
    return [header(length) + package.head()[:3000], package.bytes()[3000:]]


# Refused with flash as it was: script, failure reason, a part of the log.
REFUSED = {
    "header without end": ([b"HTTP/1.1 200 OK\r\n", *[LINE] * 8], None, "buffer overflow, len["),
    "header of NULs": ([bytes(1000)] * 8, None, "buffer overflow, len["),
    "NUL in the name": ([HEADER.replace(b"-L", b"\0-L") + WHOLE], NO_LENGTH),
    "NUL before the number": (length_line(b"\x0017536"), "file_len error\n"),
    "NUL in the number": (length_line(b"17\x00536"), "file_len error\n", "file_len: 17, error"),
    "empty": (length_line(b""), "file_len error\n"),
    "sign by itself": (length_line(b"- 17536"), "file_len error\n"),
    "hexadecimal": (length_line(b"0x4480"), "file_len error\n"),
    "two lengths": (length_line(b"17537\r\nContent-Length:17536"), "package len error: 17537/17536\n"),
    "chunk of -1": (first_chunk(b"-1"), WRONG_LENGTH),
    "chunk of 20 digits": (first_chunk(b"f" * 20), WRONG_LENGTH),
    "chunk of NUL": (first_chunk(b"\0" + b"4480"), "file_len error\n"),
    "random bytes": ([header(90000), noise(90000)], "head magic not match.\n"),
    "random head": (sent(version=noise(64), unused=noise(3456), image_num=32, magic=0), "head magic not match.\n"),
    "terminal codes": (sent(Image("\x1b[2J\n[20260101_000000] done\n", DATA)),
                       "unsupport upgrade partition type: \x1b[2J\n[20260101_000000] done\n\n"),
    **{f"file {name}": (sent(Image("boot", DATA, name)), f"image file name error: {name}\n") for name in RUN_FILES},
}
# Packages that pass the head check: exit status, a part of the log, images. With 0 the right bytes must be there.
DECEIVING = {
    "sizes wrap in the store": (254, "mtd_read_data error", [Image("system", DATA[:8192], size=1 << 31),
                                                             Image("modem", b"", size=(1 << 31) + 8192)]),
    "sizes wrap in files": (254, "file open /tmp/tarvolin/b error", [
        Image("boot", DATA), Image("sbl", b"", "a", 1 << 31), Image("efs2bak", b"", "b", 1 << 31)]),
    "sizes wrap in recovery": (254, "mtd_read_data error", [Image("recoveryfs", b"", size=1 << 31)] * 2),
    "inverted CRC": (254, "crc check failed", [Image("system", DATA, crc=jamcrc(DATA) ^ 0xFFFFFFFF)]),
    "file twice": (253, "image[0] boot crc check failed", [Image("boot", DATA), Image("boot", LARGE, "2")]),
    "shorter file second": (253, "image[0] boot crc check failed", [Image("boot", LARGE), Image("boot", DATA, "2")]),
    "recovery twice": (254, "image[0] recovery crc check failed", [Image("recovery", LARGE), Image("recovery", DATA)]),
    "file after recovery": (255, "in recovery mode unsupport type", [Image("recovery", DATA), Image("boot", LARGE)]),
    "store twice": (0, "success", [Image("system", DATA), Image("system", LARGE)]),
    "same file twice": (0, "success", [Image("boot", DATA.ljust(1 << 17, b"\0")), Image("boot", DATA, "2")]),
    "names for a shell": (0, "success", [Image("boot", DATA, "$(reboot);`reboot` &"), Image("sbl", DATA, "\x1b]0;\a\n"),
                                         Image("efs2bak", DATA, "-rf ~ *"), Image("system", DATA, "head")]),
}
# Where a server stops: bytes of the package that it has sent, or none of a header that it has not ended.
STOPS = {"before the header": None, "in the header": -9, "behind the header": 0, "in the head": 3000,
         "behind the head": 3536, "in an image": 6000, "between images": 8536, "in the store": 12000}


def stopping(at):
    """The script up to where the server stops."""
    return [] if at is None else [HEADER[:at]] if at < 0 else [HEADER, *[WHOLE[:at]] * (at > 0)]


def outside(module):
    """All that stands in the module's folders, but for the run directory, the pid file and flash."""
    return {path: path.is_file() and path.read_bytes() for folder in ("tmp", "run", "data", "bin")
            for path in (module.folder / folder).rglob("*")
            if module.run_dir not in (path, *path.parents) and path.name != "tarvolin-sim.pid"}


class Hostile(unittest.TestCase):
    def attack(self, module, script):
        """A run against the script. Returns its exit status."""
        (module.folder / "data" / "cert").mkdir()
        (module.folder / "data" / "cert" / "ssl_verify").touch()
        before = outside(module)
        with ScriptedServer(script) as server:
            status = module.run(server.url()).status
        self.assertEqual(outside(module), before)
        if status != 0:
            self.assertEqual((module.text("status"), module.history()[-1]), ("6", "FAILED"))
            self.assertNotIn(struct.pack("<I", RESTORE), module.dump("userdata"))
        return status

    def check_stopped(self, module, at, status):
        announced, saved = (0, 0) if at is None or at < 0 else (len(WHOLE), at if at >= 3536 else 0)
        self.assertEqual((status, module.text("fail_reason")), (255, f"download stop: {saved}/{announced}\n"))
        arrived = Package([Image("system", WHOLE[8536:saved])] if saved else [])
        self.assertTrue(module.dumps() == expected_flash(arrived, module, armed=False))

    def test_refused(self):
        for name, (script, reason, *log) in REFUSED.items():
            with self.subTest(name), Module() as module:
                self.assertEqual(self.attack(module, script), 255)
                self.assertEqual(module.text("fail_reason"), reason)
                self.assertIn("".join(log), module.log())
                self.assertTrue(module.is_untouched())

    def test_deceiving(self):
        for name, (status, log, table) in DECEIVING.items():
            with self.subTest(name), Module() as module:
                self.assertEqual(self.attack(module, sent(*table)), status, module.log()[-2000:])
                self.assertIn(log, module.log())
                package = Package(table)
                if status == 0:
                    self.assertEqual(differences(module, package, header(len(package.bytes()))), [])
                places = {i.name for i in table if i.name in RECOVERY_NAMES or status in (0, 253)} | {"userdata"}
                changed = {name for name in module.partitions if module.dump(name) != module.initial(name)}
                self.assertLessEqual(changed, places)

    def test_one_byte_at_a_time(self):
        """But for the table's empty rows."""
        package = images("boot", 50, "system", 50)
        head, rows = header(len(package.bytes())), bytes(3000)
        before, _, behind = package.bytes().partition(rows)
        with Module() as module:
            pieces = [bytes([b]) for b in head + before] + [rows] + [bytes([b]) for b in behind]
            self.assertEqual(self.attack(module, pieces), 0)
            copies = b"".join(head[: n + 1] for n in range(len(head)))
            self.assertEqual(differences(module, package, copies), [])

    def test_server_stops(self):
        for name, at in STOPS.items():
            for end in ([], [Reset]):
                with self.subTest(name, end=end), Module() as module:
                    self.check_stopped(module, at, self.attack(module, [*stopping(at), *end]))

    def stall(self, at):
        module = Module()
        return at, module, self.attack(module, [*stopping(at), 60])

    def test_server_stalls(self):
        for at, module, status in self.stalls:
            with self.subTest(at), module:
                self.check_stopped(module, at, status)


def setUpModule():
    """All stalls run beside the other tests: each takes the 30 seconds that the client waits."""
    Hostile.stalls = ThreadPoolExecutor(len(STOPS)).map(Hostile().stall, STOPS.values())
