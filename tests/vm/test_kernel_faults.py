"""Flash that fails under a run, and runs that are killed, on the kernel's own NAND: never a success with a wrong byte."""
import random
import subprocess
import time
import unittest

from module import Module
from packages import RESTORE, Image, Package, expected_flash, head_record, noise, store_split
from servers import serve

PAGES = 64  # a block


class FailingPlaces(unittest.TestCase):
    """One place of flash fails for good. Survived with every byte right, or a failure that says so."""

    package = Package([Image("system", noise(1_900_000)), Image("boot", noise(200_000, 2))])

    CASES = {  # where nandsim fails, exit status wanted, log line of the failure
        "target block dies on erase": ({"weakblocks": [("boot", 1)]}, 253, "crc check failed"),
        "target page dies on program": ({"weakpages": [("boot", PAGES + 5)]}, None, "crc check failed"),
        "target page cannot be read": ({"gravepages": [("boot", 3)]}, None, "crc check failed"),
        "head block dies on erase": ({"weakblocks": [("userdata", 0)]}, 253, "store head record is not in its place"),
        "store block dies on erase": ({"weakblocks": [("userdata", 4)]}, 254, "crc check failed"),
        "store page dies on program": ({"weakpages": [("userdata", 4 * PAGES)]}, None, "crc check failed"),
        "store page cannot be read": ({"gravepages": [("userdata", 4 * PAGES + 1)]}, None, "crc check failed"),
        "block behind the data dies": ({"weakblocks": [("userdata", 80), ("recoveryfs", 39)]}, 0, None),
    }

    def test_every_case(self):
        with serve(self.package.bytes()) as server:
            for name, (places, status, line) in self.CASES.items():
                with self.subTest(name), Module(nandsim=places) as module:
                    run = module.run(server.url())
                    self.assertTrue(status is None or run.status == status, run.status)
                    if run.status == 0:
                        self.assert_right(module)
                    else:
                        self.assertEqual(module.history()[-1], "FAILED")
                        self.assertIn(line, module.log())
                        self.assert_not_armed(module)

    def assert_right(self, module):
        """Judged by what a reader that skips what the kernel calls bad finds."""
        expected = expected_flash(self.package, module)
        for name, size in (("boot", 200_000), ("userdata", module.block), ("recoveryfs", 300_000)):
            self.assertTrue(module.dump(name)[:size] == expected[name][:size], name)

    def assert_not_armed(self, module):
        first = module.good_blocks("userdata")[0] * module.block
        self.assertNotEqual(module.dump("userdata")[first : first + 4], RESTORE.to_bytes(4, "little"))


class KilledRuns(unittest.TestCase):
    """The program is killed at random moments: the record is armed only over a complete store, and the next run succeeds."""

    package = Package([Image("system", noise(2_500_000)), Image("boot", noise(150_000, 2)), Image("modem", noise(90_000, 3))])

    def test_killed_then_run_again(self):
        seed = random.randrange(1 << 30)
        chance = random.Random(seed)
        with self.subTest(seed=seed), serve(self.package.bytes()) as server, Module(bad={"userdata": {0, 7}}) as module:
            started = time.monotonic()
            self.assertEqual(module.run(server.url()).status, 0)
            whole = time.monotonic() - started
            for _ in range(5):
                self._kill_after(module, server, chance.uniform(0.05, 1) * whole)
                self._check_record(module)
            self.assertEqual(module.run(server.url()).status, 0)
            expected = expected_flash(self.package, module)
            for name in module.partitions:
                self.assertTrue(module.dump(name) == expected[name], name)

    @staticmethod
    def _kill_after(module, server, seconds):
        command = [*module.command(module.program), "--debug", "--url", server.url()]
        with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              env=module.environment()) as process:
            try:
                process.wait(seconds)
            except subprocess.TimeoutExpired:
                process.kill()

    def _check_record(self, module):
        userdata = module.dump("userdata")
        first = module.good_blocks("userdata")[0] * module.block
        record = userdata[first : first + 400]
        if record[:4] != RESTORE.to_bytes(4, "little"):
            return
        saved = [len(p) for p in store_split(self.package, module)] + [0] * 3
        self.assertEqual(record, head_record(self.package, saved[:4], True, need_recovery=1))
        expected = expected_flash(self.package, module)
        for name in ("userdata", "recoveryfs"):
            self.assertTrue(module.dump(name) == expected[name], name)
