"""tarv-pkg from the outside, its packages held against some that are built by independent means."""
import json
import os
import pathlib
import pty
import random
import resource
import shutil
import signal
import struct
import subprocess
import tempfile
import time
import unittest

from lab.module import BIN_DIR
from lab.packages import Image, Package, jamcrc


def package(images, version=b"31406-1.0", major=0, minor=0, **fields):
    """One of (name, file_name, data) images."""
    made = Package([Image(n, d, f) for n, f, d in images], version, **fields).bytes()
    return patched(made, 4, struct.pack("<HH", major, minor))


def patched(data, offset, replacement, seal=True):
    """`data` with bytes replaced, its head CRC made right again unless it is not to be."""
    data = data[:offset] + replacement + data[offset + len(replacement):]
    return data[:3532] + struct.pack("<I", jamcrc(data[:3532])) + data[3536:] if seal else data


class TarvPkg(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def run_tool(self, *args, tool="tarv-pkg", **options):
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "cwd": self.folder, **options}
        return subprocess.run([BIN_DIR / tool, *args], check=False, timeout=60, **options)

    def refuses(self, words, *args, status=1):
        """Ends with a sentence that has all of `words`, and after wrong usage with where to find help."""
        run = self.run_tool(*args)
        self.assertEqual((run.returncode, run.stdout), (status, b""), run.stderr)
        text = run.stderr.decode().rpartition("tarv-pkg: ")[2]
        self.assertFalse([word for word in words.split() if word not in text], text)

    def write(self, **files):
        for name, data in files.items():
            (self.folder / name).write_bytes(data)

    def contents(self):
        return {p.name: p.is_file() and p.stat().st_size < 1e6 and p.read_bytes() for p in self.folder.iterdir()}

    def test_made_packages(self):
        a, b, c = random.Random(1).randbytes(65537), b"", b"123456789"
        self.write(a=a, b=b, c=c)
        version, name = "31406" + "v" * 58, "n" * 67
        cases = [  # the number of warnings, words, what else is in the head, images
            (1, "boot=a system=b tz=c", {}, [(b"boot", b"a", a), (b"system", b"b", b), (b"tz", b"c", c)]),
            (0, "recovery=c recoveryfs=./a", {}, [(b"recovery", b"c", c), (b"recoveryfs", b"a", a)]),
            (0, "--major 65535 --minor=010 tz=c", {"major": 65535, "minor": 10}, [(b"tz", b"c", c)]),
            (1, f"--save-as tz={name} --save-as=abl=x tz=c abl=b", {}, [(b"tz", name.encode(), c), (b"abl", b"x", b)]),
            (0, f"--version {version} modem=c system=c abl=c", {"version": version.encode()},
             [(name, b"c", c) for name in (b"modem", b"system", b"abl")]),
            (1, "--version 52703", {"version": b"52703"}, []), (2, "--version 5270", {"version": b"5270"}, [])]
        for warnings, line, fields, images in cases:
            version = "" if "--version" in line else "--version 31406-1.0 "
            made = self.run_tool(*f"create --output out {version}{line}".split())
            self.assertEqual((made.returncode, made.stdout, made.stderr.count(b"\n")), (0, b"", warnings))
            # The first entry of a package without images carries a name for the updater to classify.
            expected = package(images, **fields) if images else patched(package([], **fields), 76, b"system")
            self.assertEqual((self.folder / "out").read_bytes(), expected)
            streamed = self.run_tool(*f"create --output - {version}{line}".split())
            self.assertEqual((streamed.returncode, streamed.stdout), (0, expected))
            self.assertIn(f"s {len(images)}, bytes {len(expected)}\n".encode(), self.run_tool("check", "out").stdout)
            shown = json.loads(self.run_tool("show", "--json", "out").stdout)
            self.assertEqual([(e["name"], e["file_name"], e["size"], e["crc"]) for e in shown["images"]],
                             [(n.decode(), f.decode(), len(d), jamcrc(d)) for n, f, d in images])

    def test_manifests(self):
        """The same bytes from a manifest, the command line and what `extract` has made, wherever and whenever."""
        a, b = random.Random(1).randbytes(70000), b"123456789"
        expected = package([(b"boot", b"a b", a), (b"tz", b" x ", b), (b"abl", b"\xc3\xa4", b"")], b"31406=1", 1, 2)
        text = b"""version = 31406=1\n\tmajor=1\n minor =\t2\n# = [comment\n\n; another\n[boot]\nfile = sub/a b
            [ tz ]\nsave-as = " x "\nfile = "b"\n[abl]\nfile = /dev/..%s/\xc3\xa4""" % bytes(self.folder)
        (self.folder / "sub").mkdir()
        self.write(b=b, ä=b"", m=text, dos=b"\xef\xbb\xbf" + text.replace(b"\n", b"\r\n"), **{"sub/a b": a})
        os.utime(self.folder / "b", (0, 0))
        words = ["--version", "31406=1", "--major=1", "--minor=2", "boot=sub/a b", "tz=b", "abl=ä", "--save-as=tz= x "]
        for args, options in (
                (words, {"umask": 0}), (["--manifest", "m"], {"env": {"LC_ALL": "tr_TR.UTF-8", "TZ": "Asia/Tokyo"}}),
                (["--manifest", "../dos"], {"cwd": self.folder / "sub", "umask": 0o77}),
                (["--manifest", self.folder / "m"], {"cwd": "/"}), (["--manifest", "x/manifest"], {})):
            made = self.run_tool("create", *args, "--output", self.folder / "out", **options)
            self.assertEqual((made.returncode, made.stdout, made.stderr.count(b"\n")), (0, b"", 1), made.stderr)
            self.assertEqual((self.folder / "out").read_bytes(), expected, args)
            self.assertEqual(self.run_tool("extract", "out", "-o", "x").returncode, 0)
        self.run_tool(*"create --manifest m --version 31407 --minor=3 -o out".split())
        self.assertEqual((self.folder / "out").read_bytes()[4:16], struct.pack("<HH8s", 1, 3, b"31407"))
        self.write(boot=package([(b"boot", b"f", b"")]), p=package([(b"system", b'f"\n[sec]\nfile="/etc/passwd', b"")]))
        for words, line in (("is the package", "boot -o ."), ('"p": control', "p -o x"), ('folder "p"', "boot -o p")):
            self.refuses(words, "extract", *line.split())

    def test_refused_manifests(self):
        self.write(a=b"data", out=b"an earlier package")
        cases = [  # behind the version: what stands in the manifest, the number of the line that is named, words
            (b"\0" * 9, 1, "NUL"), (b"\n[tz]\nfile = a\0b", 3, "NUL"), (b"[\x1b]\nfile=a", 1, '"\\x1b" no group'),
            (b"[", 1, "[PARTITION]"), (b"[tz] x", 1, "[PARTITION]"), (b"[]\nfile=a", 1, '"" no group'),
            (b"[foo]\nfile = a", 1, "foo no group"), (b"[tz]\n\n[boot]\nfile=a", 1, "no line file"),
            (b"[tz]\n\nfile = missing", 3, "No such file"), (b"[tz]\nfile = .", 2, "not a regular file"),
            (b"[tz]\nfile=a\nsave-as = " + b"n" * 68, 3, "68 67"), (b"[tz]\nfile=" + b"n" * 5000, 2, "5000 67"),
            (b"[tz]\nfile=a\nsave-as=b/c", 1, '"b/c" save-as'), (b'[tz]\nfile=a\nsave-as = ""', 1, "empty"),
            (b"[tz]\nfile=a\nfile=a", 3, "twice"), (b"[tz]\nfile=a\n[tz]\nfile=a\nsave-as=b", 3, "image 1 twice"),
            (b"[tz]\nfile=a\n[abl]\r\nfile=a", 3, '"a" earlier'), (b"[modem]\nfile=a\n" * 33, 65, "33 32"),
            (b"[boot]\nfile=a\n[recovery]\nfile=a", 3, "group"), (b"[tz]\nmajor = 1", 2, "major file save-as"),
            (b"file = a", 1, "file version [PARTITION]"), (b"\x1b[0m = a", 1, "\\x1b[0m"), (b"major =", 1, "no value"),
            (b"major = 65536", 1, "65536 65535"), (b"minor = 0x1", 1, "0x1"), (b"minor = 1\r\rmajor = 1", 1, "control"),
            (b"version = 1", 1, "twice"), (b"a" * 10**6, 1, "KEY = VALUE"), (b"#" * 2**20, 0, '"m" 1048576')]
        for text, line, words in cases:
            self.write(m=b"version = 31406\n" + text)
            self.refuses(f"m:{line + 1}: {words}" if line else words, "create", "--manifest", "m", "-o", "out")
            self.assertEqual((self.folder / "out").read_bytes(), b"an earlier package")

    def test_differences(self):
        big = random.Random(3).randbytes(70000)
        other = big[:4095] + b"??" + big[4097:65536] + b"?" + big[65537:]
        boot, tz, system = (b"boot", b"f", big), (b"tz", b"g", b"abc"), (b"system", b"", big)
        crc = {data: "0x%08x" % jamcrc(data) for data in (big, other, big + b"x", b"abc", b"x")}
        pack, blocks = package([boot, tz, system]), "of 18 blocks of 4096 bytes\n"
        cases = [
            (pack, pack, "same same same", ""), (package([]), package([]), "", ""),
            (pack, package([system, boot, (b"abl", b"h", b"x")], b"31406-\n", 1), "same removed same added",
             'major_version 0 -> 1\nimg_version "31406-1.0" -> "31406-\\x0a"\norder boot system -> system boot\n'
             f'image tz: removed: index 1, file_name "g", size 3, crc {crc[b"abc"]}\n'
             f'image abl: added: index 2, file_name "h", size 1, crc {crc[b"x"]}\n'),
            (pack, package([(b"boot", b"F", other), tz, system]), "changed same same",
             f'image boot: file_name "f" -> "F"\nimage boot: crc {crc[big]} -> {crc[other]}\n'
             f"image boot: data differ from byte 4095 on, in 3 {blocks}"),
            (package([system, system]), package([system, (b"system", b"", big + b"x")]), "same changed",
             f"image system: size 70000 -> 70001\nimage system: crc {crc[big]} -> {crc[big + b'x']}\n"
             f"image system: data differ from byte 70000 on, in 1 {blocks}"),
            (pack, pack[:3530] + b"x" + pack[3531:], "same same same",
             "header_crc32 or unused bytes of the head differ from byte 3530 on\n")]
        for a, b, changes, expected in cases:
            self.write(a=a, b=b)
            runs = [self.run_tool("diff", *files) for files in ("ab", "ba", "aa")]
            self.assertEqual([(r.returncode, bool(r.stdout)) for r in runs], [(a != b, a != b)] * 2 + [(0, False)])
            self.assertEqual(runs[0].stdout.decode(), expected)
            told = json.loads(self.run_tool("diff", "--json", "a", "b").stdout)
            self.assertEqual((told["same"], " ".join(i["change"] for i in told["images"])), (a == b, changes))
        self.write(a=pack[:-1], b=pack, c=package([], image_num=33))
        for words, *files in (('"a": describes', "a", "b"), ('"c": 33 32', "b", "c"), ("missing", "b", "missing")):
            self.refuses(words, "diff", *files, status=2)

    def test_refusals_leave_no_trace(self):
        manifest = b"version = 31406-1\n[tz]\nfile = a\n"
        (self.folder / "kept").touch(0o444)
        self.write(a=b"data", b=b"", half=b"", rest=b"", status=b"x", out=manifest, **{".hidden": b""})
        (self.folder / "dir").mkdir()
        os.mkfifo(self.folder / "pipe")
        os.truncate(self.folder / "half", 2**30)
        os.truncate(self.folder / "rest", 2**30 - 3536)
        cases = [
            (1, "foo=a", "no group use one of system boot recovery"), (1, "boot=a recovery=a", "package of their own"),
            (1, "modem=a modem=status", '"modem" twice'), (1, "boot=a abl=b --save-as abl=a", '"abl" earlier save-as'),
            (1, "system=a" + " system=a" * 8, "9 store-group 8"), (1, "tz=a abl=a", '"a"'), (1, "tz=pipe", "regular"),
            (1, "tz=status", '"status" updater itself save-as'), (1, "tz=.hidden", '".hidden" begins save-as'),
            (1, "tz=a --save-as tz=a\x1b[1m", "control character \\x1b"), (2, "tz=a -o b", "--output"),
            (1, "tz=a boot=/proc/version", "/proc/version became longer"), (2, "tz", "PARTITION=FILE"),
            (1, "tz=a boot=/sys/kernel/uevent_seqnum", "/sys/kernel/uevent_seqnum became shorter"),
            (1, "modem=half system=rest", "2147483648 2147483647"), (2, "tz=a --save-as abl=x", '--save-as "abl"'),
            (2, "tz=a --major 65536", "--major 65535"), (2, "--save-as= tz=a abl=a", "--save-as= no value"),
            (1, "out=a", "no group"), (1, "tz=out", "one of the image files"),
            (1, "tz=a abl=b boot=b --save-as boot=c", "image 2 several empty"),
            (2, "tz=a --save-as tz=x --save-as tz=y", "--save-as named twice"),
            (1, "--manifest out", "is the manifest")]
        before = self.contents()
        for status, args, words in cases:
            args = ["--version", "31406-1", "--output", "out", *args.split(" ")]
            self.refuses(words, "create", *args, status=status)
            self.assertEqual(self.contents(), before)
        for version, output, words in (("", "o", "version empty"), ("3" * 64, "o", "64 63"), ("3", "dir", "regular"),
                                       ("3", "kept", "read-only")):
            self.refuses(words, "create", "--version", version, "--output", output, "tz=a")

    def test_unfinished_output_disappears(self):
        self.write(a=bytes(200000), out=b"an earlier package", big=b"")
        os.truncate(self.folder / "big", 2**30)
        before = self.contents()
        create = [BIN_DIR / "tarv-pkg", "create", "--version", "31406", "--output", "out"]

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000))

        cut_off = self.run_tool(*create[1:], "tz=a", preexec_fn=limit)
        self.assertEqual((cut_off.returncode, b"too large" in cut_off.stderr, self.contents()), (1, True, before))
        self.write(p=package([(b"tz", b"f", b"abc"), (b"boot", b"g", bytes(200000))]))
        cut_off = self.run_tool("extract", "p", "-o", "x", preexec_fn=limit)
        self.assertTrue(cut_off.stderr.endswith(b'in "x" there are, whole, only: tz\n'), cut_off.stderr)
        shutil.rmtree(self.folder / "x")
        (self.folder / "p").unlink()
        ours, theirs = pty.openpty()
        with open(ours, "rb", 0) as tty, subprocess.Popen([*create, "tz=big"], cwd=self.folder, stderr=theirs) as tool:
            os.close(theirs)
            while len(os.listdir(self.folder)) == 3 and tool.poll() is None:
                time.sleep(0.001)
            tool.send_signal(signal.SIGSTOP)
            time.sleep(1.1)  # by then the progress is to be seen
            tool.send_signal(signal.SIGCONT)
            self.assertRegex(tty.read(40), rb"^\rpacked \d+\.\d of 1024\.0 MiB, \d+ %")
            tool.send_signal(signal.SIGTERM)
            self.assertEqual(tool.wait(timeout=60), 130)
            self.assertRegex(tty.read(9999), rb"\r +\rtarv-pkg: interrupted\r\n$")
        self.assertEqual(self.contents(), before)

    def test_first_fault_of_damaged_packages(self):
        boot, system = (b"boot", b"f", b"abc"), (b"system", b"g", b"defg")
        foo, recovery, good = (b"foo\n", b"f", b""), (b"recovery", b"f", b""), package([boot, system])
        wrapping = struct.pack("<I104xI", 2**32 - 1, 8)  # sizes whose 32-bit sum is that of `good`
        cases = [
            (b"", "0 bytes"), (good[:3535], "3535 3536"), (good[:-1], "3542 3543"), (good + b"?", "3544 3543"),
            (package([boot], magic=0x6F786576, head_size=9, image_num=40) + b"?", "magic 0x6f786576"),
            (package([boot], image_num=33), "33 32"), (patched(package([boot], image_num=33), 9, b"?", False), "damaged"),
            (package([foo], head_size=9) + b"?", "3537 3536"),
            (patched(package([], image_num=2) + bytes(7), 176, wrapping), "3543 4294970839"),
            (package([boot], head_size=3535), "3535 3536 size"),
            (patched(package([foo]), 3400, b"?", seal=False), "header_crc32 damaged"),
            (package([foo, boot]), '"foo\\x0a" no group'), (package([(b"n" * 32, b"f", b"")]), "no group"),
            (package([boot, recovery]), "image 1 recovery-group"), (package([recovery, boot]), "image 1 recovery-"),
            (package([(b"boot", b"n" * 68, b"")]), "image 0 no NUL"), (package([boot, boot]), 'image 1 "f" earlier'),
            (package([boot, (b"boot", b"g", b"")]), "image 1 twice"), (package([]), "no images entry 0 no group"),
            (good[:-1] + b"X", 'image 1 "system" data are damaged'), (good[:-5] + b"Xdefg", 'image 0 "boot" data')]
        for data, words in cases:
            self.write(p=data)
            self.refuses(words, "check", "p")
            self.refuses(words, "extract", "p", "-o", "x")
            self.assertFalse((self.folder / "x/manifest").exists())
            self.assertIn(self.run_tool("diff", "p", "p").returncode, (0, 2))
        for length, word in ((2**31 - 1, "head gives its own size"), (2**31, "2147483647")):
            self.write(p=patched(package([(b"system", b"", b"")], head_size=9), 176, struct.pack("<I", length - 3536)))
            os.truncate(self.folder / "p", length)
            self.refuses(word, "check", "p")

    def test_hostile_heads_print_safely(self):
        nasty = b'\x1b]0;"\\\n\x7f\xc2\x9b\xff\xed\xa0\x80\xf4\x90\x80\x80\xe2\x82' + "ä€".encode()
        heads = [b"\xff" * 3536, bytes(3536), package([(nasty, nasty * 2, b"")], version=nasty * 2)]
        self.write(o=package([(nasty, nasty, b"x"), (nasty[:9], nasty, b"")], version=nasty))
        for head in [random.Random(seed).randbytes(3536) for seed in range(10)] + heads:
            self.write(p=head)
            runs = [self.run_tool(*job.split(), "p") for job in ("show", "diff o", "diff --json o", "show --json")]
            self.assertEqual((runs[0].returncode, runs[-1].returncode), (0, 0))
            text = "".join(run.stdout.decode() for run in runs)
            self.assertFalse([c for c in text if c < " " and c != "\n" or "\x7f" <= c < "\xa0"])
            count, fields = struct.unpack_from("<H", head, 74)[0], json.loads(runs[-1].stdout)
            self.assertEqual((len(fields["images"]), fields["package_length"] is None), (min(count, 32), count > 32))
            self.assertEqual(fields["magic"], struct.unpack_from("<I", head)[0])
        self.assertIn("ä€", fields["img_version"])
        self.assertIn("\\x1b]0;\"\\\\\\x0a\\x7f\\xc2\\x9b\\xff\\xed", text)

    def test_usage_and_lost_output(self):
        self.write(p=package([(b"tz", b"f", b"abc")]), show=package([(b"tz", b"f", b"abc")]), m=b"major = 1", a=b"abc")
        self.refuses("OTHER missing", "diff", "p", status=2)
        for line in ("", "show", "check p p", "create -o o", "create --manifest m -o o", "diff p", "extract p",
                     "create --manifest m -o o tz=p", "create --manifest m --save-as tz=x -o o"):
            self.refuses("Try", *line.split(), status=2)
        self.assertEqual(self.run_tool("check", "show").returncode, 0)
        for line in ("pkg", "pkg create", "pkg show", "pkg check", "pkg diff", "pkg extract", "watch", "store",
                     "store show", "store verify", "store extract", "store map"):
            tool, *job = ("tarv-" + line).split()
            text = self.run_tool(*job, "--help", tool=tool).stdout.decode().splitlines()
            self.assertTrue(3 < len(text) <= 24 and max(map(len, text)) <= 80, text)
        for line in ("show p", "show --json p", "check p", "--help", "diff --json p p"):
            with open("/dev/full", "wb") as full:
                for options in ({"stdout": full}, {"stdout": None, "preexec_fn": lambda: os.close(1)}):
                    self.assertEqual(self.run_tool(*line.split(), **options).returncode, 1 + ("diff" in line), line)
        # Nothing that the tool says may end up in the package.
        self.run_tool(*"create --version 1 -o out tz=a".split(), preexec_fn=lambda: os.closerange(0, 3))
        self.assertEqual((self.folder / "out").read_bytes(), package([(b"tz", b"a", b"abc")], version=b"1"))
