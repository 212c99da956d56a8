"""The simulator held against the kernel: single calls at the seam to flash, and whole updates, must come out the same."""
import os
import re
import subprocess
import unittest

from module import BIN_DIR, KIB, Module, SimModule
from packages import Image, Package, noise
from servers import serve

BLOCK, PAGE = 128 * KIB, 2 * KIB
PARTITIONS = {"first": 4 * BLOCK, "probed": 8 * BLOCK}
BAD, WORN, WORN_PAGE, GRAVE_PAGE = 2, 4, 5 * 64, 6 * 64  # blocks and pages of "probed"

# Every call with what is on and off its rules: alignment, ends, bad, worn and uncorrectable places.
CALLS = f"""
open 9 ro
open 1 ro
info
erase 0 {BLOCK}
write {PAGE} 0
close
open 1 rw
bad 0
bad {BAD * BLOCK}
bad {BAD * BLOCK + 5}
bad {8 * BLOCK}
bad -1
erase 1 {BLOCK}
erase 0 {BLOCK - 1}
erase 0 0
erase {7 * BLOCK} {2 * BLOCK}
erase {8 * BLOCK} {BLOCK}
erase {BAD * BLOCK} {BLOCK}
erase {BLOCK} {2 * BLOCK}
erase 0 {BLOCK}
seek 0 set
write {BLOCK} 90
seek 0 cur
seek 0 set
read {BLOCK}
read 100
seek {8 * BLOCK + 1} set
seek -1 set
seek {8 * BLOCK} set
read 1
write {PAGE} 1
seek {PAGE} end
seek {8 * BLOCK - PAGE} set
write {2 * PAGE} 17
seek {8 * BLOCK - PAGE} set
read {2 * PAGE}
seek 1 set
write {PAGE} 3
seek {BLOCK} set
write 100 3
seek 0 set
write {PAGE} 165
seek 0 set
read {PAGE}
seek {BAD * BLOCK} set
write {PAGE} 51
seek {BAD * BLOCK} set
read {PAGE}
erase {WORN * BLOCK} {BLOCK}
erase {WORN * BLOCK} {BLOCK}
bad {WORN * BLOCK}
seek {WORN_PAGE * PAGE} set
write {PAGE} 85
seek 0 cur
seek {WORN_PAGE * PAGE} set
read {PAGE}
seek {GRAVE_PAGE * PAGE} set
write {PAGE} 102
seek {GRAVE_PAGE * PAGE} set
read {PAGE}
read {PAGE}
ecc
close
""".strip()

SIM_FAULTS = f"""
erase in probed {WORN} fail always
program in probed {WORN_PAGE // 64} fail-late always
read in probed {GRAVE_PAGE // 64} uncorrectable 1
"""


def probe(command, environment=None):
    return subprocess.run(command, input=CALLS + "\n", capture_output=True, text=True, check=True, env=environment,
                          timeout=60).stdout.splitlines()


class SingleCalls(unittest.TestCase):
    def test_simulator_answers_as_the_kernel(self):
        bad = {"probed": {BAD}}
        places = {"weakblocks": [("probed", WORN)], "weakpages": [("probed", WORN_PAGE)],
                  "gravepages": [("probed", GRAVE_PAGE)]}
        with Module(PARTITIONS, bad, nandsim=places):
            kernel = probe([str(BIN_DIR / "device-probe")])
        with SimModule(PARTITIONS, bad, SIM_FAULTS) as simulated:
            with open(simulated.flash / "module.conf", "a", encoding="utf-8") as conf:
                conf.write("rules kernel\n")
            for name in PARTITIONS:
                stale = bytearray(b"\xff" * simulated.partitions[name])
                for block in simulated.good_blocks(name):
                    stale[block * BLOCK : block * BLOCK + PAGE] = Module.stale(name)
                (simulated.flash / simulated._file(name)).write_bytes(stale)
            environment = {**os.environ, "TARVOLIN_SIM": str(simulated.flash)}
            simulator = probe([str(BIN_DIR / "device-probe-sim")], environment)
        self.assertEqual(len(kernel), len(CALLS.splitlines()))
        for expected, found in zip(kernel, simulator):
            self.assertEqual(expected, found)


def comparable(log):
    """A run's log without what differs from run to run: times, process ids and ports."""
    log = re.sub(r"^\[[0-9_]+\]", "[]", log, flags=re.M)
    log = re.sub(r"pid: \d+|127\.0\.0\.1:\d+|consume \d+s|head, +\d+", "", log)
    return log


class WholeUpdates(unittest.TestCase):
    def test_same_flash_and_log(self):
        cases = {
            "store over bad blocks": ({"userdata": {0, 5, 95}, "recoveryfs": {0, 3}, "recovery": {23}},
                                      [Image("system", noise(2_900_000)), Image("boot", noise(300_000, 2))]),
            "recovery": ({"recovery": {0}, "recoveryfs": {1}},
                         [Image("recovery", noise(500_000)), Image("recoveryfs", noise(BLOCK, 3))]),
            "too large": ({}, [Image("system", noise(8_000_000))]),
            "wrong crc": ({}, [Image("modem", noise(70_000), crc=1)]),
        }
        for name, (bad, images) in cases.items():
            with self.subTest(name), serve(Package(images).bytes()) as server:
                outcomes = []
                for kind in (Module, SimModule):
                    with kind(bad=bad) as module:
                        run = module.run(server.url())
                        outcomes.append((run.status, module.history(), comparable(module.log()), module.text("fail_reason"),
                                         self._good_bytes(module)))
                self.assertEqual(outcomes[0][:4], outcomes[1][:4])
                self.assertTrue(outcomes[0][4] == outcomes[1][4], "flash differs")

    @staticmethod
    def _good_bytes(module):
        """What an update left: the good blocks of every partition that it changed."""
        out = {}
        for partition in module.partitions:
            found, before = module.dump(partition), module.initial(partition)
            for block in module.good_blocks(partition):
                at = slice(block * BLOCK, (block + 1) * BLOCK)
                if found[at] != before[at]:
                    out[partition, block] = found[at]
        return out
