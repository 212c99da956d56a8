"""The simulator held against the kernel: single calls at the seam to flash, and whole updates, must come out the same.

Run first in a test machine, on the kernel's flash, where it leaves what came out in the file that TARV_OUTCOMES names; then
outside on the simulator, which has to come to the same.
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import unittest

from lab.certificates import make_authority, make_certificate
from lab.expected import expected_flash
from lab.module import BIN_DIR, KIB
from lab.mtd_module import MtdModule
from lab.packages import Image, Package, images, no_images, noise
from lab.servers import Nginx
from lab.sim_module import SimModule

BLOCK, PAGE = 128 * KIB, 2 * KIB
PARTITIONS = {"first": 4 * BLOCK, "probed": 8 * BLOCK}
BAD, WORN, WORN_PAGE, GRAVE_PAGE = 2, 4, 5 * 64, 6 * 64  # blocks and pages of "probed"

# Every call with what is on and off its rules: alignment, ends, bad, worn and uncorrectable places.
CALLS = f"""
open 9 ro; open 1 ro; info; erase 0 {BLOCK}; write {PAGE} 0; close; open 1 rw
bad 0; bad {BAD * BLOCK}; bad {BAD * BLOCK + 5}; bad {8 * BLOCK}; bad -1
erase 1 {BLOCK}; erase 0 {BLOCK - 1}; erase 0 0; erase {7 * BLOCK} {2 * BLOCK}; erase {8 * BLOCK} {BLOCK}
erase {BAD * BLOCK} {BLOCK}; erase {BLOCK} {2 * BLOCK}; erase 0 {BLOCK}
seek 0 set; write {BLOCK} 90; seek 0 cur; seek 0 set; read {BLOCK}; read 100
seek {8 * BLOCK + 1} set; seek -1 set; seek {8 * BLOCK} set; read 1; write {PAGE} 1; seek {PAGE} end
seek {8 * BLOCK - PAGE} set; write {2 * PAGE} 17; seek {8 * BLOCK - PAGE} set; read {2 * PAGE}
seek 1 set; write {PAGE} 3; seek {BLOCK} set; write 100 3
seek 0 set; write {PAGE} 165; seek 0 set; read {PAGE}
seek {BAD * BLOCK} set; write {PAGE} 51; seek {BAD * BLOCK} set; read {PAGE}
erase {WORN * BLOCK} {BLOCK}; erase {WORN * BLOCK} {BLOCK}; bad {WORN * BLOCK}
seek {WORN_PAGE * PAGE} set; write {PAGE} 85; seek 0 cur; seek {WORN_PAGE * PAGE} set; read {PAGE}
seek {GRAVE_PAGE * PAGE} set; write {PAGE} 102; seek {GRAVE_PAGE * PAGE} set; read {PAGE}; read {PAGE}; ecc; close
""".strip().replace("; ", "\n")
SIM_FAULTS = f"""
erase in probed {WORN} fail always
program in probed {WORN_PAGE // 64} fail-late always
read in probed {GRAVE_PAGE // 64} uncorrectable 1
"""
# Every kind of package: bad blocks, package, exit status.
UPDATES = {
    "store over bad blocks": ({"userdata": {0, 5, 95}, "recoveryfs": {0, 3}, "recovery": {0}},
                              images("system", 2_900_000, "boot", 300_000, "modem", 1), 0),
    "store filled exactly": ({"vexonv": {23}}, images("modem", 38 * BLOCK), 0),
    "recovery": ({"recovery": {0}, "recoveryfs": {1}}, images("recovery", 500_000, "recoveryfs", BLOCK), 0),
    "files": ({"boot": {0}}, images("sbl", 1, "efs2bak", 70_000, "boot", 0), 0),
    "no images": ({}, no_images(), 0),
    "too large": ({}, images("system", 8_000_000), 255),
    "wrong crc": ({}, Package([Image("modem", noise(70_000), crc=1)]), 254),
}
OUTCOMES = pathlib.Path(os.environ["TARV_OUTCOMES"])
ON_KERNEL = os.environ.get("TARV_FLASH") == "mtd"  # set by lab/guest


class Parity(unittest.TestCase):
    maxDiff = None

    def same(self, name, outcome):
        """Keeps the kernel's outcome, or compares the simulator's with it."""
        known = json.loads(OUTCOMES.read_text()) if OUTCOMES.exists() else {}
        if ON_KERNEL:
            OUTCOMES.write_text(json.dumps({**known, name: outcome}))
        else:
            self.assertEqual(known[name], json.loads(json.dumps(outcome)))

    def test_calls(self):
        with self.module() as module:
            command = [str(BIN_DIR / ("device-probe" if ON_KERNEL else "device-probe-sim"))]
            environment = {**os.environ, "TARVOLIN_SIM": str(getattr(module, "flash", ""))}
            answers = subprocess.run(command, input=CALLS + "\n", capture_output=True, text=True, check=True,
                                     env=environment, timeout=60).stdout.splitlines()
        self.assertEqual(len(answers), len(CALLS.splitlines()))
        self.same("calls", answers)

    @staticmethod
    def module():
        bad = {"probed": {BAD}}
        if ON_KERNEL:
            places = {"weakblocks": [("probed", WORN)], "weakpages": [("probed", WORN_PAGE)],
                      "gravepages": [("probed", GRAVE_PAGE)]}
            return MtdModule(PARTITIONS, bad, nandsim=places)
        module = SimModule(PARTITIONS, bad, SIM_FAULTS)
        with open(module.flash / "module.conf", "a", encoding="utf-8") as conf:
            conf.write("rules kernel\n")
        for name in PARTITIONS:
            erased = b"\xff" * BLOCK
            blocks = [erased if block in bad.get(name, ()) else MtdModule.stale(name) + erased[PAGE:]
                      for block in range(PARTITIONS[name] // BLOCK)]
            (module.flash / f"mtd{list(PARTITIONS).index(name)}.bin").write_bytes(b"".join(blocks))
        return module

    def run_one(self, nginx, name, scheme="http"):
        """From the real nginx. Flash must be right after a success and untouched after a refusal, on both kinds."""
        bad, package, status = UPDATES[name]
        url = nginx.put("package.img", package.bytes())
        with self.subTest(name, scheme=scheme), (MtdModule if ON_KERNEL else SimModule)(bad=bad) as module:
            if scheme == "https":
                (module.folder / "data" / "cert").mkdir(exist_ok=True)
                (module.folder / "data" / "cert" / "ssl_verify").touch()
                shutil.copy(nginx.folder / "ca.crt", module.folder / "data" / "cert")
            run = module.run(url)
            self.assertEqual(run.status, status, module.log())
            flash = module.dumps()
            expected = expected_flash(package if status != 255 else no_images(), module, armed=status == 0)
            self.assertEqual([partition for partition in flash if flash[partition] != expected[partition]], [])
            log = re.sub(r"127\.0\.0\.1:\d+|pid: \d+|consume \d+s|^\[[0-9_]+\]", "", module.log(), flags=re.M)
            self.same(f"{name} over {scheme}", [module.history(), module.text("fail_reason"), log])

    def test_http(self):
        with Nginx() as nginx:
            for name in UPDATES:
                self.run_one(nginx, name)

    def test_https(self):
        nginx = Nginx("ssl", "ssl_certificate server.crt; ssl_certificate_key server.key;")
        make_authority(nginx.folder)
        make_certificate(nginx.folder, "server")
        with nginx:
            self.run_one(nginx, "store over bad blocks", "https")
