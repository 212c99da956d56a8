"""tarv-restore on simulated flash: stores that the updater made, as they are and damaged, into their targets."""
import fcntl
import json
import os
import pty
import re
import subprocess
import unittest
from collections import Counter

from lab.expected import STORE_LIST, expected_flash, lay_blocks
from lab.module import BIN_DIR, MIB, SMALL, without
from lab.packages import images
from lab.servers import serve
from lab.sim_module import SimModule
from lab.store_record import RESTORE, STORING

TARGETS = {"system": 3 * MIB, "modem": 2 * MIB, "systemdata": MIB}
BAD = {"userdata": {0, 2, 95}, "recoveryfs": {0, 3}, "system": {0, 5}, "modem": {1}, "systemdata": {0}}
PACKAGE = images("modem", 1_500_001, "system", 700_000, "boot", 5, "systemdata", 500_001, "system", 100_000)
NEXT, THIRD = images("system", 2_500_000, "modem", 1), images("modem", 300_000)
BLOCK = HEAD = 128 * 1024  # the first good block of userdata is block 1
LIST = HEAD + 44
QUERY, ERASE, READ = Counter(badblock=1), Counter(badblock=1, erase=1), Counter(badblock=1, read=1, ecc=2)


def u32(*numbers):
    return b"".join(number.to_bytes(4, "little") for number in numbers)


# What the record or the flash is made to say: where userdata is overwritten, with what, exit status, words of the message.
HOSTILE = {
    "no image": (HEAD + 24, u32(0), 10, "image_num 0"),
    "nine images": (HEAD + 24, u32(9), 10, "image_num 9"),
    "as many as can be": (HEAD + 24, u32(2**32 - 1), 10, "image_num 4294967295"),
    "name without an end": (LIST, b"x" * 32, 10, "image 0 NUL"),
    "name of another group, for terminals": (LIST, b"boot\x1b[2J\0", 10, r"image 0 boot\x1b[2J partition"),
    "name of a store partition": (LIST, b"userdata\0", 10, "image 0 userdata"),
    "empty name": (LIST, b"\0", 10, "image 0"),
    "size that wraps when filled up": (LIST + 32, u32(2**32 - 1, 0), 10, "size_algin is 0 makes 4294967296"),
    "largest size": (LIST + 32, u32(2**32 - 4096, 2**32 - 4096), 10, "vexonv hold"),
    "sizes that wrap in 32 bits": (LIST + 32, u32(2**31, 2**31, 0) + b"modem".ljust(32, b"\0") + u32(2**31, 2**31), 10,
                                   "vexonv hold"),
    "counts that wrap in 32 bits": (HEAD + 12, u32(2**31, 2**31, 2**20), 10, "counts only"),
    "a count above its room": (HEAD + 12, u32(93 * BLOCK, 0, 0, 4, 0, 0, 0, 0) + b"modem".ljust(32, b"\0") +
                               u32(2**30, 2**30), 10, "userdata hold"),
    "a count that is one block less": (HEAD + 12, u32(11 * BLOCK), 10, "damaged image"),
    "a wrong CRC": (LIST + 40, u32(0), 10, "image 0 modem crc"),
    "a wrong byte": (3 * BLOCK + 7, b"?", 10, "image 0 modem crc"),
    "storing form": (HEAD, u32(STORING), 20, "storing form"),
    "a UBI volume": (HEAD, b"UBI#", 20, "UBI"),
    "an erased block": (HEAD, b"\xff" * BLOCK, 20, "erased"),
    "something else": (HEAD, b"\0", 20, "no record"),
}
# Flash that fails while the restore runs: fault plan, exit status, words of the message. {read} is the first read of the
# second pass through the store.
FAILING = {
    "record read at the third time": ("read at 1 uncorrectable 2", 0, ""),
    "record unreadable": ("read in userdata 1 uncorrectable always", 20, "cannot be read"),
    "store block that decayed before": ("read in userdata 4 uncorrectable always", 10, "modem damaged"),
    "store block read at the third time": ("read at {read} uncorrectable 2", 0, ""),
    "store block that decays between": ("read at {read} fail 3", 11, "block 3 of userdata no longer"),
    "target block that takes no data": ("program in modem 3 fail always", 11, "block 3 of modem marked bad"),
    "target block that takes no erase": ("erase in modem 3 fail always", 11, "block 3 of modem marked bad"),
    "target block that cannot be read": ("read in modem 3 uncorrectable always", 0, "block 3 of modem passed over"),
    "stale block behind the image": ("erase in system 20 fail always", 11, "block 20 is not erased"),
    "record that takes no erase": ("erase in userdata 1 fail always", 11, "block 1 userdata no erase"),
}


class TarvRestore(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with cls.module() as module, serve(PACKAGE.bytes()) as server:
            assert module.run(server.url()).status == 0, module.log()
            cls.flash = module.dumps()

    @staticmethod
    def module(partitions=None, bad=None):
        partitions = partitions or {**SMALL, **TARGETS}
        bad = BAD if bad is None else bad
        return SimModule(partitions, {name: blocks for name, blocks in bad.items() if name in partitions})

    def armed(self, *lacking, sizes=()):
        """A module with the store of PACKAGE."""
        names = {**without(*lacking), **TARGETS, **dict(sizes)}
        module = self.enterContext(self.module({name: size for name, size in names.items() if name not in lacking}))
        for name in STORE_LIST:
            if name not in lacking:
                self.put(module, name, 0, self.flash[name])
        return module

    @staticmethod
    def put(module, name, at, data):
        path = module.flash / module._file(name)
        path.with_suffix(".pages").unlink(missing_ok=True)
        flash = module.dump(name)
        path.write_bytes(flash[:at] + data + flash[at + len(data):])

    def restore(self, module, *words, status=0, faults="", **options):
        module.set_faults(faults)
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options}
        run = subprocess.run([BIN_DIR / "tarv-restore-sim", "--pid-file", module.folder / "pid", *words], timeout=60,
                             env={**os.environ, "TARVOLIN_SIM": module.flash, "TERM": "xterm"}, check=False, **options)
        module.check_violation()
        self.assertEqual(run.returncode, status, run.stderr)
        return run

    def says(self, run, words):
        self.assertTrue(all(word in run.stderr.decode() for word in words.split()), (words, run.stderr))

    def holds(self, module, package):
        """Every target has the last image of its name and nothing else; all other partitions are as they were."""
        wanted = {image.name: image.data for image in package.store_images()}
        for name, data in wanted.items():
            flash = lay_blocks(module, name, data + b"\xff" * (-len(data) % BLOCK))
            self.assertTrue(module.dump(name) == flash, name)

    def test_two_updates_and_an_interrupted_one(self):
        module = self.enterContext(self.module())
        with serve(PACKAGE.bytes()) as first, serve(NEXT.bytes()) as second, serve(THIRD.bytes()) as third:
            for server, package in ((first, PACKAGE), (second, NEXT)):
                self.assertEqual(module.run(server.url()).status, 0, module.log())
                self.restore(module)
                self.holds(module, package)
                self.restore(module, status=20)
            self.assertEqual(module.run(first.url()).status, 0, module.log())
            for moment, status in ((2, 20), (4, 20), (5, 0)):  # the first block, the last; the armed record, in its midst
                module.set_faults(f"program at {moment} powercut")
                self.assertEqual(module.run(third.url()).status, 97)
                self.restore(module, status=status)
                self.holds(module, NEXT if status else THIRD)

    def test_hostile_records(self):
        for name, (at, data, status, words) in HOSTILE.items():
            with self.subTest(name):
                module = self.armed()
                self.put(module, "userdata", at, data)
                before = module.dumps()
                self.says(self.restore(module, status=status), words)
                self.assertTrue(module.dumps() == before)

    def test_modules_that_do_not_fit(self):
        for name, module, words in (
                ("no target", self.armed("modem"), "no partition modem"),
                ("no room", self.armed(sizes={"modem": 12 * BLOCK}), "modem room 1441792 1500001"),
                ("no store partition", self.armed("recoveryfs"), "recoveryfs missing"),
                ("no userdata", self.armed("userdata"), "no partition userdata")):
            with self.subTest(name):
                before = module.dumps()
                for option in ("--check", "--keep"):
                    self.says(self.restore(module, option, status=10), words)
                self.assertTrue(module.dumps() == before)

    def test_failing_flash(self):
        module = self.armed()
        self.restore(module, "--check")
        pass_one = module.counts()["read"]
        for name, (plan, status, words) in FAILING.items():
            with self.subTest(name):
                module = self.armed()
                # Between the passes a block of the store and one of the target are compared.
                run = self.restore(module, status=status, faults=plan.format(read=pass_one + 2 + 1))
                self.says(run, words)
                if status == 0 and not words:
                    self.holds(module, PACKAGE)
                if status == 11:
                    self.assertEqual(module.dump("userdata")[HEAD:][:4], u32(RESTORE))
                    self.restore(module)
                    self.holds(module, PACKAGE)

    def test_options(self):
        module = self.armed()
        with open(module.folder / "pid", "w", encoding="utf-8") as holder:
            fcntl.lockf(holder, fcntl.LOCK_EX)
            self.says(self.restore(module, status=1), f"process {os.getpid()} lock")
        for words in (["--nonsense"], ["more"], ["--pid-file"], ["--pid-file="]):
            self.restore(module, *words, status=2)
        self.restore(module, "--check")
        self.assertTrue(module.dumps() == {**{n: module.initial(n) for n in module.partitions}, **{
            n: self.flash[n] for n in STORE_LIST}})
        with open("/dev/full", "wb") as full:  # output that cannot be written does not stop a restore
            self.restore(module, "--keep", stdout=full)
        self.holds(module, PACKAGE)
        self.restore(module, preexec_fn=lambda: [os.close(fd) for fd in (0, 1, 2)])
        self.assertEqual((module.counts()["program"], module.counts()["erase"]), (0, 1))  # the record's block alone
        self.holds(module, PACKAGE)

    def test_progress(self):
        module = self.armed()
        lines = self.restore(module, "--keep", "--json").stdout.splitlines()
        objects = [json.loads(line) for line in lines]
        self.assertEqual([line["exit_status"] for line in objects], [None] * (len(lines) - 1) + [0])
        steps = list(dict.fromkeys((line["step"], line["what"]) for line in objects))
        each = [(work, name) for name in ("modem", "systemdata", "system") for work in ("compare", "write", "verify")]
        self.assertEqual(steps, [("prove", "store"), *each, *(("confirm", name) for _, name in each[::3])])
        fault = json.loads(self.restore(module, "--json", status=10, faults="open at 20 fail always").stdout.splitlines()[-1])
        self.assertIn('cannot open "', fault["message"])
        lines = self.restore(module, "--keep").stdout.decode().splitlines()
        self.assertEqual(lines[1], "compare modem: holds its image already")
        ends = pty.openpty()
        self.restore(module, stdout=ends[1])
        screen = re.sub(r"\x1b\[[0-9;]*[mK]", "", os.read(ends[0], 65536).decode())
        self.assertRegex(screen, r"\rprove   store      \[#*-*\]  ?\d+ %  [\d.]+/[\d.]+ MiB.*\r\n")
        self.assertTrue(screen.endswith("restored; the store is no longer armed\r\n"), screen[-99:])

    def test_costs(self):
        package, sizes = images("system", 2_500_000), {**SMALL, "system": 3 * MIB}
        terms = ((1, QUERY), (1, Counter(read=1, ecc=2)),  # the record
                 (95 + 40 + 24 + 24 + 24, QUERY),  # room in the store and in the target
                 (20, READ),  # the store proven
                 (1, Counter(read=1, ecc=2)), (1, READ),  # the image's beginning in the store, and in the target
                 (20, Counter(read=1, ecc=2)), (20, ERASE + Counter(program=1, read=2, ecc=4)),  # from store to target
                 (4, ERASE),  # behind the image
                 (24 + 24, READ),  # verified, confirmed
                 (1, Counter(erase=1, read=1, ecc=2)))  # disarmed
        expected = Counter()
        for times, cost in terms:
            expected.update({operation: times * n for operation, n in cost.items()})
        with self.module(sizes, {}) as module, serve(package.bytes()) as server:
            self.assertEqual(module.run(server.url()).status, 0, module.log())
            stored = expected_flash(package, module)
            self.restore(module)
            self.assertEqual({operation: module.counts()[operation] for operation in expected}, expected)
            self.holds(module, package)
            stored["userdata"] = b"\xff" * BLOCK + stored["userdata"][BLOCK:]
            for name in STORE_LIST:
                self.assertTrue(module.dump(name) == stored[name], name)
