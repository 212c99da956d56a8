"""tarv-pkg from the outside: what it makes, what it refuses, what it says about damaged packages.

Runs the executable of the folder TARV_BIN_DIR and compares with packages built here by independent means.
"""
import json
import os
import pathlib
import random
import resource
import signal
import struct
import subprocess
import tempfile
import time
import unittest
import zlib

TOOL = os.path.join(os.path.abspath(os.environ["TARV_BIN_DIR"]), "tarv-pkg")
LIMIT = 2**31 - 1


def jamcrc(data):
    return zlib.crc32(data) ^ 0xFFFFFFFF


def package(images, version=b"31406-1.0", major=0, minor=0, magic=0x7665786F, head_size=3536, count=None):
    """A package of (name, file_name, data) images; `count` replaces their number."""
    table = b"".join(struct.pack("<32s68sII", n, f, len(d), jamcrc(d)) for n, f, d in images)
    count = len(images) if count is None else count
    head = struct.pack("<IHH64sHH", magic, major, minor, version, head_size, count) + table.ljust(3456, b"\0")
    return head + struct.pack("<I", jamcrc(head)) + b"".join(d for _, _, d in images)


def patched(data, offset, replacement, seal=True):
    """`data` with bytes replaced, its head CRC made right again unless it is not to be."""
    data = data[:offset] + replacement + data[offset + len(replacement):]
    return data[:3532] + struct.pack("<I", jamcrc(data[:3532])) + data[3536:] if seal else data


class TarvPkg(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def run_tool(self, *args, **options):
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "cwd": self.folder, **options}
        return subprocess.run([TOOL, *args], check=False, timeout=60, **options)

    def write(self, **files):
        for name, data in files.items():
            (self.folder / name).write_bytes(data)

    def contents(self):
        return {p.name: p.read_bytes() for p in self.folder.iterdir() if p.is_file() and p.stat().st_size < 1e6}

    def test_made_packages(self):
        a, b, c = random.Random(1).randbytes(65537), b"", b"123456789"
        self.write(a=a, b=b, c=c)
        long_version, long_name = "31406" + "v" * 58, "n" * 67
        cases = [
            (["boot=a", "system=b", "tz=c"], {}, [(b"boot", b"a", a), (b"system", b"b", b), (b"tz", b"c", c)]),
            (["recovery=c", "recoveryfs=./a"], {}, [(b"recovery", b"c", c), (b"recoveryfs", b"a", a)]),
            (["modem=c", "system=c", "abl=c"], {}, [(n, b"c", c) for n in (b"modem", b"system", b"abl")]),
            (["--major", "65535", "--minor=010", "tz=c"], {"major": 65535, "minor": 10}, [(b"tz", b"c", c)]),
            (["--save-as", "tz=" + long_name, "--save-as=abl=x", "tz=c", "abl=b"], {},
             [(b"tz", long_name.encode(), c), (b"abl", b"x", b)]),
            (["--version", long_version, "tz=c"], {"version": long_version.encode()}, [(b"tz", b"c", c)]),
        ]
        for args, fields, images in cases:
            with self.subTest(args=args):
                version = [] if "--version" in args else ["--version", "31406-1.0"]
                made = self.run_tool("create", *version, "--output", "out", *args)
                self.assertEqual((made.returncode, made.stdout), (0, b""), made.stderr)
                expected = package(images, **fields)
                self.assertEqual((self.folder / "out").read_bytes(), expected)
                checked = self.run_tool("check", "out")
                self.assertEqual(checked.returncode, 0, checked.stderr)
                self.assertIn(b"images %d, bytes %d\n" % (len(images), len(expected)), checked.stdout)
                shown = json.loads(self.run_tool("show", "--json", "out").stdout)
                self.assertEqual(shown["package_length"], len(expected))
                self.assertEqual(
                    [(e["name"], e["file_name"], e["size"], e["crc"]) for e in shown["images"]],
                    [(n.decode(), f.decode(), len(d), jamcrc(d)) for n, f, d in images])

    def test_package_without_images(self):
        for version, doubted in (("52703", False), ("31534-1", True), ("5270", True)):
            made = self.run_tool("create", "--version", version, "--output", "out")
            self.assertEqual((made.returncode, b"project id" in made.stderr), (0, doubted), version)
            # The unused first entry carries a name for the updater to classify.
            expected = patched(package([], version=version.encode()), 76, b"system")
            self.assertEqual((self.folder / "out").read_bytes(), expected)
            self.assertEqual(self.run_tool("check", "out").returncode, 0)

    def test_refusals_leave_no_trace(self):
        self.write(a=b"data", status=b"x", out=b"an earlier package", **{".hidden": b"x"})
        (self.folder / "dir").mkdir()
        os.mkfifo(self.folder / "pipe")
        for name, size in (("half", 2**30), ("rest", LIMIT + 1 - 3536 - 2**30)):
            with open(self.folder / name, "wb") as file:
                file.truncate(size)
        known = ["31406-1", "out"]
        cases = [
            (1, known, ["foo=a"], "no group use one of system boot recovery"),
            (1, known, ["x" * 40 + "=a"], "no group use one of"),
            (1, known, ["boot=a", "recovery=a"], "recovery package of their own"),
            (1, known, ["boot=a", "boot=status", "--save-as", "boot=b"], '"boot" earlier save-as'),
            (1, known, ["modem=a", "modem=status"], '"modem" twice overwrite'),
            (1, known, ["system=a"] * 9, "9 store-group 8"),
            (1, known, ["system=a"] * 33, "33 32"),
            (1, known, ["tz=a", "abl=a"], '"a" earlier save-as'),
            (1, known, ["tz=status"], '"status" updater itself save-as'),
            (1, known, ["tz=.hidden"], '".hidden" begins save-as'),
            (1, known, ["tz=a", "--save-as", "tz=" + "n" * 68], "68 67 save-as"),
            (1, known, ["tz=a", "--save-as", "tz=a\x1b[1m"], "control character \\x1b"),
            (1, known, ["tz=missing"], "missing No such file"),
            (1, known, ["tz=pipe"], "pipe not a regular file"),
            (1, known, ["tz=a", "boot=/proc/version"], "/proc/version became longer"),
            (1, known, ["tz=a", "boot=/sys/kernel/uevent_seqnum"], "/sys/kernel/uevent_seqnum became shorter"),
            (1, known, ["modem=half", "system=rest"], "2147483648 2147483647"),
            (1, ["", "out"], ["tz=a"], "version empty"),
            (1, ["3" * 64, "out"], ["tz=a"], "version 64 63"),
            (1, ["31406", "a"], ["tz=a"], "one of the image files"),
            (1, ["31406", "dir"], ["tz=a"], "dir no regular file"),
            (2, known, ["tz"], "PARTITION=FILE"),
            (2, known, ["tz=a", "--save-as", "abl=x"], '--save-as "abl"'),
            (2, known, ["tz=a", "--major", "65536"], "--major 65535"),
            (2, known, ["--save-as=", "tz=a", "abl=a"], "--save-as= no value"),
        ]
        before, names = self.contents(), set(os.listdir(self.folder))
        for status, (version, output), args, words in cases:
            with self.subTest(args=args, version=version, output=output):
                refused = self.run_tool("create", "--version", version, "--output", output, *args)
                self.assertEqual((refused.returncode, refused.stdout), (status, b""))
                for word in words.split():
                    self.assertIn(word, refused.stderr.decode())
                self.assertEqual((self.contents(), set(os.listdir(self.folder))), (before, names))

    def test_unfinished_output_disappears(self):
        self.write(a=bytes(200000), out=b"an earlier package")
        with open(self.folder / "big", "wb") as file:
            file.truncate(2**30)
        before = self.contents()
        create = ["create", "--version", "31406", "--output", "out"]
        limits = (resource.RLIMIT_FSIZE, (100000, 100000))
        cut_off = self.run_tool(*create, "tz=a", preexec_fn=lambda: resource.setrlimit(*limits))
        self.assertEqual((cut_off.returncode, b"too large" in cut_off.stderr), (1, True))
        self.assertEqual(self.contents(), before)
        with subprocess.Popen([TOOL, *create, "tz=big"], cwd=self.folder, stderr=subprocess.DEVNULL) as tool:
            while len(os.listdir(self.folder)) == 3 and tool.poll() is None:
                time.sleep(0.001)
            tool.send_signal(signal.SIGTERM)
            self.assertEqual(tool.wait(timeout=60), 1)
        self.assertEqual((self.contents(), len(os.listdir(self.folder))), (before, 3))

    def test_first_fault_of_damaged_packages(self):
        boot, system = (b"boot", b"f", b"abc"), (b"system", b"g", b"defg")
        good = package([boot, system])
        wrapping = struct.pack("<I104xI", 2**32 - 1, 8)  # sizes whose 32-bit sum is that of `good`
        cases = [
            (b"", "0 bytes"), (good[:3535], "3535 3536"),
            (package([boot], magic=0x6F786576, head_size=9, count=40) + b"?", "magic 0x6f786576"),
            (package([boot], head_size=9, count=33) + b"?", "33 images 32"),
            (package([(b"foo", b"f", b"")], head_size=9) + b"?", "3537 3536"),
            (good[:-1], "3542 3543"),
            (package([], count=2)[:176] + wrapping + bytes(3543 - 176 - len(wrapping)), "3543 4294970839"),
            (patched(package([boot], head_size=3535), 3400, b"?", seal=False), "3535 3536 size"),
            (patched(package([(b"foo", b"f", b"")]), 3400, b"?", seal=False), "header_crc32 damaged"),
            (package([(b"foo\n", b"f", b""), boot]), '"foo\\x0a" no group'),
            (package([(b"n" * 32, b"f", b"")]), "no group"),
            (package([boot, (b"recovery", b"f", b"")]), "image 1 recovery-group"),
            (package([(b"recovery", b"f", b""), boot]), "image 1 recovery-group"),
            (package([(b"boot", b"n" * 68, b"")]), "image 0 no NUL"),
            (package([boot, (b"tz", b"f", b"")]), 'image 1 "f" earlier'),
            (package([boot, (b"boot", b"g", b"abc")]), "image 1 twice"),
            (package([]), "no images entry 0 no group"),
            (patched(good, 3536, b"X", seal=False), 'image 0 "boot" data are damaged'),
            (patched(good, 3542, b"X", seal=False), 'image 1 "system" data are damaged'),
        ]
        for data, words in cases:
            with self.subTest(words=words):
                self.write(p=data)
                checked = self.run_tool("check", "p")
                self.assertEqual((checked.returncode, checked.stdout), (1, b""))
                self.assertEqual(checked.stderr.count(b"\n"), 1)
                for word in words.split():
                    self.assertIn(word, checked.stderr.decode())

    def test_longest_package_that_the_updater_takes(self):
        for length, word in ((LIMIT, b"header_crc32"), (LIMIT + 1, b"2147483647")):
            head = patched(package([(b"system", b"", b"")]), 176, struct.pack("<I", length - 3536))
            self.write(p=patched(head, 3500, b"?", seal=False))
            os.truncate(self.folder / "p", length)
            self.assertIn(word, self.run_tool("check", "p").stderr)

    def test_hostile_heads_print_safely(self):
        rng = random.Random(2)
        nasty = b'\x1b]0;"\\\n\x7f\xc2\x9b\xff\xed\xa0\x80\xf4\x90\x80\x80\xe2\x82' + "\u00e4\u20ac".encode()
        heads = [package([(nasty, nasty * 2, b"")], version=nasty * 2), b"\xff" * 3536, bytes(3536)]
        heads += [rng.randbytes(3536) for _ in range(10)]
        for head in heads:
            self.write(p=head)
            text = self.run_tool("show", "p")
            shown = self.run_tool("show", "--json", "p")
            self.assertEqual((text.returncode, shown.returncode), (0, 0))
            for output in (text.stdout, shown.stdout):
                self.assertFalse([c for c in output.decode() if c < " " and c != "\n" or "\x7f" <= c < "\xa0"])
            fields = json.loads(shown.stdout)
            count = struct.unpack_from("<H", head, 74)[0]
            self.assertEqual(len(fields["images"]), min(count, 32))
            self.assertEqual(fields["package_length"] is None, count > 32)
            self.assertEqual(fields["magic"], struct.unpack_from("<I", head)[0])
        self.write(p=heads[0])
        self.assertIn("\u00e4\u20ac", json.loads(self.run_tool("show", "--json", "p").stdout)["img_version"])
        self.assertIn("\\x1b]0;\"\\\\\\x0a\\x7f\\xc2\\x9b\\xff\\xed", self.run_tool("show", "p").stdout.decode())

    def test_usage_and_lost_output(self):
        self.write(p=package([(b"tz", b"f", b"abc")]), show=package([(b"tz", b"f", b"abc")]))
        for status, args in ((2, []), (2, ["show"]), (2, ["check", "p", "p"]), (2, ["create", "--output", "o"]),
                             (0, ["--help"]), (0, ["create", "--help"]), (0, ["-V"]), (0, ["check", "show"])):
            self.assertEqual(self.run_tool(*args).returncode, status, args)
        for args in (["show", "p"], ["show", "--json", "p"], ["check", "p"], ["--help"]):
            with open("/dev/full", "wb") as full:
                self.assertEqual(self.run_tool(*args, stdout=full).returncode, 1, args)
            closed = self.run_tool(*args, stdout=None, preexec_fn=lambda: os.close(1))
            self.assertEqual(closed.returncode, 1, args)
        # Nothing that the tool says may end up in the package.
        self.write(a=b"abc")
        self.run_tool("create", "--version", "1", "--output", "out", "tz=a", preexec_fn=lambda: os.closerange(0, 3))
        self.assertEqual((self.folder / "out").read_bytes(), package([(b"tz", b"a", b"abc")], version=b"1"))


if __name__ == "__main__":
    unittest.main()
