"""tarv-store at a desk: dumps of a store that the updater made, as they are and damaged."""
import fcntl
import json
import os
import pathlib
import pty
import re
import struct
import subprocess
import tempfile
import termios
import unittest

from lab.expected import STORE_LIST, store_split
from lab.module import BIN_DIR
from lab.packages import images
from lab.servers import serve
from lab.sim_module import SimModule

BAD = {"userdata": {0, 2, 95}, "recoveryfs": {0, 3}, "vexonv": {1, 23}}
PACKAGE = images("modem", 1500001, "system", 700000, "boot", 5, "systemdata", 500001, "system", 100000)
BLOCK = HEAD = 131072  # the first good block of userdata is block 1
LIST, U32 = HEAD + 44, struct.Struct("<I").pack
FAULTS = [  # words of the message; where userdata is overwritten, and with what
    ("not armed storing", HEAD, U32(0x54415240)), ("image_num 0", HEAD + 24, U32(0)), ("image 0 NUL", LIST, b"x" * 32),
    ("image_num 4294967295", HEAD + 24, U32(2**32 - 1)), (r'image 1 "boot\x1b"', LIST + 44, b"boot\x1b\0"),
    ("image 0 size_algin", LIST + 32, U32(2**32 - 1)), ("counts only", HEAD + 12, U32(2**32 - 1) * 3),
    ("vexonv hold", LIST + 32, U32(2**31) * 2), ("image 0 modem damaged", 3 * BLOCK, b"?")]


class TarvStore(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with SimModule(bad=BAD) as module, serve(PACKAGE.bytes()) as server:
            assert module.run(server.url()).status == 0, module.log()
            cls.flash, cls.pieces = module.dumps(), store_split(PACKAGE, module)

    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        for name in STORE_LIST:
            (self.folder / f"{name}.bin").write_bytes(self.flash[name])
            (self.folder / f"{name}.bad").write_text("".join(f"{b}\n" for b in BAD.get(name, ())))

    def tool(self, line, status=0, dumps=("--dumps", "."), **options):
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "cwd": self.folder, **options}
        run = subprocess.run([BIN_DIR / "tarv-store", *dumps, *line.split()], timeout=60, **options)
        self.assertEqual(run.returncode, status, (line, run.stderr))
        return json.loads(run.stdout) if "--json" in line else (run.stdout or run.stderr).decode("latin1")

    def test_sound_store(self):
        for partition, piece in zip(self.tool("show --json")["partitions"], self.pieces):
            held = {n: r["holds"] for r in partition["ranges"] for n in range(r["first"], r["last"] + 1)}
            self.assertEqual({n for n in held if held[n] == "bad"}, BAD.get(partition["name"], set()))
            self.assertEqual(list(held.values()).count("image"), -(-len(piece) // BLOCK))
        self.assertTrue(all(i["computed"] == i["crc"] for i in self.tool("verify --json")["images"]))
        for word, index in (("modem", 0), ("1", 1), ("systemdata", 2), ("system", 3)):
            self.tool(f"extract {word} -o out")
            self.assertEqual((self.folder / "out").read_bytes(), PACKAGE.store_images()[index].data)
            self.assertEqual(self.tool(f"extract {word} -"), PACKAGE.store_images()[index].data.decode("latin1"))
        for columns, longest in ((20, 39), (200, 103)):
            ends = pty.openpty()
            fcntl.ioctl(ends[1], termios.TIOCSWINSZ, struct.pack("4H", 24, columns, 0, 0))
            self.tool("map --svg map.svg", stdout=ends[1])
            rows = re.sub("\x1b\\[[0-9;]*m", "", os.read(ends[0], 4096).decode()).split("\r\n")
            self.assertEqual((rows[1][:15], max(map(len, rows))), ("     0 XHX00000", longest))
        self.assertEqual((self.folder / "map.svg").read_text().count(" block "), 96 + 40 + 24 + 24)

    def test_dumps(self):
        """`dump` copies what `--dumps` reads, here from other dumps; mistakes in dumps get a hint, or are refused."""
        self.tool("dump copy")
        for name in STORE_LIST:
            data, bad = bytearray(self.flash[name]), sorted(BAD.get(name, ()))
            for block in bad:
                data[block * BLOCK:(block + 1) * BLOCK] = b"\xff" * BLOCK
            made = [(self.folder / f"copy/{name}{ending}").read_bytes() for ending in (".bin", ".bad")]
            self.assertEqual(made, [bytes(data), b"".join(b"%d\n" % block for block in bad)])
        self.assertEqual(self.tool("--dumps copy map", dumps=()), self.tool("map"))
        sizes, listed = (self.folder / "copy/sizes").read_text(), (self.folder / "copy/userdata.bad").read_text()
        mistakes = [  # file, its text, command, words
            ("userdata.bad", "", "extract 0 -o x", "not armed record 131072 userdata.bad"),
            ("userdata.bad", "0\n", "extract 0 -o x", "damaged block 2 erased userdata.bad 131072"),
            ("sizes", sizes.replace(" 131072", " 65536"), "verify", "not armed record 131072 65536 userdata.bad"),
            ("sizes", sizes.replace("userdata 12", "userdata 13"), "show", "userdata.bin 12582912 13582912 copy"),
            ("sizes", "userdata 1 131073", "show", "sizes 131073 ERASE-BLOCK"), ("userdata.bad", None, "show", "regular"),
            ("userdata.bad", listed, "dump copy", "there already new folder")]
        for name, text, command, words in mistakes:
            path = self.folder / "copy" / name
            path.write_text(text) if text is not None else (path.unlink(), os.mkfifo(path))
            fault = self.tool(f"--dumps copy {command}", 1, dumps=())
            self.assertFalse([word for word in words.split() if word not in fault], fault)
            path.unlink()
            path.write_text(sizes if name == "sizes" else listed)
        os.truncate(self.folder / "vexonv.bin", 2**40)
        self.assertIn("too large for a partition, which has 4294967295", self.tool("show", 1))

    def test_faults_and_lost_output(self):
        for words, at, new in FAULTS:
            data = self.flash["userdata"]
            (self.folder / "userdata.bin").write_bytes(data[:at] + new + data[at + len(new):])
            fault, faulty = self.tool("extract 0 -o out", 1), "armed" not in words and "damaged" not in words
            self.assertTrue(all(word in fault for word in words.split()) and fault.count("\n") == 1, (words, fault))
            self.assertEqual(self.tool("verify --json", 1)["armed"], "armed" not in words)
            self.assertEqual(self.tool("show --json", int(faulty))["fault"] is not None, faulty)
            self.assertFalse((self.folder / "out").exists())
            self.assertEqual(self.tool("extract 0 -", 1), fault)  # no byte of it
        for line in ("", "show --mtd", "--erase-size 1000 map"):
            self.tool(line, 2)
        (self.folder / "kept").touch(0o444)
        for mine in ("extract 0 vexonv.bin", "extract 0 vexonv.bad", "extract 0 -o kept", "map --svg -"):
            self.tool(mine, 1)
        for line in ("show", "map", "--help"):
            self.tool(line, 1, stdout=os.open("/dev/full", os.O_WRONLY))
            self.tool(line, 1, stdout=None, preexec_fn=lambda: os.close(1))
        for name, text in (("recovery.bad", "24"), ("recovery.bad", "x"), ("recovery.bin", "short")):
            (self.folder / name).write_text(text)
            self.assertIn(name, self.tool("show", 1))
