"""What an update costs: operations on flash, counted and explained, and memory, whatever the package's size."""
import unittest
from collections import Counter

from lab.expected import STORE_LIST
from lab.module import BIN_DIR, KIB, MIB, SMALL
from lab.packages import Image, Package, images, noise
from lab.servers import serve
from lab.sim_module import SimModule

# What the flash layer does with one good block.
QUERY = Counter(badblock=1)
ERASE = Counter(badblock=1, erase=1)
WRITE = Counter(badblock=1, erase=1, program=1, read=1)  # the read compares what was written
READ = Counter(read=1, ecc=2, badblock=1)  # the ECC counters before and after


def blocks(size):
    return -(-size // SimModule.block)


BOOT_IMAGE, SYSTEM_IMAGE = 300000, 2500000  # bytes, of the reference update
ALL = {name: blocks(size) for name, size in SMALL.items()}
BOOT, USERDATA = blocks(BOOT_IMAGE), 15  # the room of "userdata": 96 blocks less 80 in reserve and the head record's
RECOVERYFS = blocks(SYSTEM_IMAGE) - USERDATA
# How many blocks, and what is done with each, in the order of the run.
TERMS = (
    (sum(ALL[name] for name in STORE_LIST), QUERY),  # the room in the store
    (1, QUERY),  # the way to the first good block
    (1, WRITE),  # the head record in its storing form
    (ALL["userdata"] - 1, ERASE),
    (1, QUERY),  # the way to the block behind it
    (USERDATA, WRITE),
    (ALL["userdata"] - 1 - USERDATA, ERASE),  # behind the data
    (ALL["recoveryfs"], ERASE),
    (1, QUERY),  # the way to the first good block
    (RECOVERYFS, WRITE),
    (ALL["recoveryfs"] - RECOVERYFS, ERASE),
    (1, QUERY),  # check stage: the way to the block behind the head record
    (USERDATA + RECOVERYFS, READ),
    (BOOT, WRITE),  # install stage
    (ALL["boot"] - BOOT, ERASE),
    (BOOT, READ),
    (1, QUERY),  # the way to the first good block
    (1, WRITE),  # the armed head record
    (1, QUERY),  # the way to the first good block
    (1, READ),
)


class FlashCosts(unittest.TestCase):
    def test_reference_update(self):
        expected = Counter()
        for times, cost in TERMS:
            expected.update({operation: times * n for operation, n in cost.items()})
        self.assertEqual(expected, dict(badblock=490, erase=276, program=25, read=49, ecc=48))
        package = images("boot", BOOT_IMAGE, "system", SYSTEM_IMAGE)
        with SimModule() as module, serve(package.bytes()) as server:
            self.assertEqual(module.run(server.url()).status, 0, module.log()[-2000:])
            counts = module.counts()
        self.assertEqual({operation: counts[operation] for operation in expected}, expected)


@unittest.skipIf(b"__asan_init" in (BIN_DIR / "tarvolin-sim").read_bytes(), "sanitizers keep memory of their own")
class Memory(unittest.TestCase):
    PARTITIONS = {**SMALL, "userdata": 80 * MIB, "boot": 51 * MIB}

    def peak(self, size):
        """The program's peak resident memory in KiB, as a command of the module finds it near the end of an update."""
        data = noise(64 * KIB) * (size // (128 * KIB))
        package = Package([Image("boot", data), Image("system", data), Image("efs2bak", b"x")])
        with SimModule(self.PARTITIONS) as module, serve(package.bytes()) as server:
            find = "pid=$(tr -d '\\0' </run/tarvolin-sim.pid); grep VmHWM: /proc/$pid/status >/tmp/calls"
            module.add_command("odm_upgrader", find)
            module.add_command("odm_upgrader", find, where="usr_bin")
            self.assertEqual(module.run(server.url()).status, 0, module.log()[-2000:])
            return int(module.recorded_calls().split()[1])

    def test_does_not_grow_with_the_package(self):
        small, large = self.peak(8 * MIB), self.peak(100 * MIB)
        self.assertLess(abs(large - small), 256, f"{small} KiB, {large} KiB")
