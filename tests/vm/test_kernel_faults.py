"""Flash that fails under a run, and runs that are killed, on the kernel's own NAND: never a success with a wrong byte."""
import contextlib
import random
import subprocess
import time
import unittest

from lab.expected import STORE_LIST, expected_flash
from lab.mtd_module import MtdModule as Module
from lab.packages import images
from lab.servers import serve
from lab.store_record import RESTORE, StoreRecord

PAGES = 64  # a block


def is_armed(module):
    first = module.good_blocks("userdata")[0] * module.block
    return module.dump("userdata")[first:first + 4] == RESTORE.to_bytes(4, "little")


def stored_images(module):
    """The store's images, of flash without bad blocks; nandsim does not mark those that fail."""
    userdata = module.dump("userdata")
    record = StoreRecord.read(userdata)
    stream = userdata[module.block :][: record.counts[0]] + module.dump("recoveryfs")[: record.counts[1]]
    return record.cut(stream)


class FailingPlaces(unittest.TestCase):
    """One place of flash fails for good. Survived with every byte right, or a failure that says so."""

    package = images("system", 1_900_000, "boot", 200_000)
    CASES = {  # where nandsim fails, exit status wanted, log line of the failure
        "target block dies on erase": ({"weakblocks": [("boot", 1)]}, 253, "crc check failed"),
        "target page dies on program": ({"weakpages": [("boot", PAGES + 5)]}, None, "crc check failed"),
        "target page cannot be read": ({"gravepages": [("boot", 3)]}, None, "crc check failed"),
        "head block dies on erase": ({"weakblocks": [("userdata", 0)]}, 255, "vexo_tarv_init_head_flash error"),
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
                    if run.status != 0:
                        self.assertEqual((module.history()[-1], is_armed(module)), ("FAILED", False))
                        self.assertIn(line, module.log())
                        continue
                    # What a reader that skips what the kernel calls bad finds.
                    expected = expected_flash(self.package, module)
                    for target, size in (("boot", 200_000), ("userdata", module.block), ("recoveryfs", 300_000)):
                        self.assertTrue(module.dump(target)[:size] == expected[target][:size], target)


class WearingOut(unittest.TestCase):
    """Places of flash that fail after so many erases or writes, under the same update again and again."""

    package = images("system", 1_900_000, "boot", 200_000)
    PLACES = {  # kind, partition, block or page: erases or writes that it still takes
        ("weakblocks", "userdata", 0): (1, 2, 3), ("weakblocks", "userdata", 1): (1, 2), ("weakblocks", "boot", 0): (1,),
        ("weakpages", "userdata", 0): (1, 2, 3), ("weakpages", "userdata", 5 * PAGES): (1,)}

    def test_the_same_package_twice(self):
        with serve(self.package.bytes()) as server:
            for (kind, *place), counts in self.PLACES.items():
                for count in counts:
                    with self.subTest(kind, place=place, count=count), Module(nandsim={kind: [(*place, count)]}) as module:
                        for _ in range(2):
                            self.check(module, module.run(server.url()))

    def check(self, module, run):
        if run.status == 0:
            self.assertEqual(module.history()[-1], "RESTORE")
            self.assertTrue(is_armed(module))
        else:
            self.assertEqual(module.history()[-1], "FAILED")
        if is_armed(module):  # by this run, or by an earlier one whose store was not touched
            self.assertEqual(stored_images(module), [image.data for image in self.package.store_images()])
            self.assertTrue(run.status == 0 or "earlier armed store still stands" in (module.text("fail_reason") or ""))


class KilledRuns(unittest.TestCase):
    """The program is killed at random moments: the record is armed only over a complete store, and the next run succeeds."""

    def test_killed_then_run_again(self):
        package = images("system", 2_500_000, "boot", 150_000, "modem", 90_000)
        seed = random.randrange(1 << 30)
        chance = random.Random(seed)
        with self.subTest(seed=seed), serve(package.bytes()) as server, Module(bad={"userdata": {0, 7}}) as module:
            expected = expected_flash(package, module)
            started = time.monotonic()
            self.assertEqual(module.run(server.url()).status, 0)
            whole = time.monotonic() - started
            for _ in range(5):
                with contextlib.suppress(subprocess.TimeoutExpired):
                    module.run(server.url(), timeout=chance.uniform(0.05, 1) * whole)
                if is_armed(module):
                    self.assertEqual([name for name in STORE_LIST if module.dump(name) != expected[name]], [])
            self.assertEqual(module.run(server.url()).status, 0)
            self.assertTrue(module.dumps() == expected)
