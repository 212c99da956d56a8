"""tarv-restore on the kernel's own flash: firmware in UBI volumes from one version to the next, flash that fails, kills."""
import contextlib
import pathlib
import random
import re
import subprocess
import time
import unittest

from lab.module import BIN_DIR, MIB, SMALL
from lab.mtd_module import MtdModule, load_kernel_modules
from lab.packages import Image, Package, images
from lab.servers import serve
from lab.store_record import RESTORE

PARTITIONS = {**SMALL, "system": 8 * MIB, "modem": MIB}
BAD = {"userdata": {0, 7}, "recoveryfs": {0}, "system": {0, 3, 20, 63}, "modem": {1}}
PAGES = 64  # a block
NAND = "-m 2048 -p 131072 -s 512"
LEB = 131072 - 2048  # the two headers share the first page
UBI = "[rootfs]\nmode=ubi\nimage={}\nvol_id=0\nvol_type=dynamic\nvol_name=rootfs\nvol_flags=autoresize\n"
MOUNT = pathlib.Path("/tmp/rootfs")


def call(command):
    return subprocess.run(command, shell=True, check=True, stdout=subprocess.PIPE, text=True, timeout=120).stdout


def restore(*words, **options):
    return subprocess.run([BIN_DIR / "tarv-restore", *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False,
                          text=True, **{"timeout": 120, **options})


def held(module, name):
    """What a reader finds that passes over bad blocks."""
    flash, size = module.dump(name), module.block
    return b"".join(flash[b * size : (b + 1) * size] for b in module.good_blocks(name))


def is_armed(module):
    with open(module.device("userdata"), "rb", buffering=0) as flash:
        flash.seek(module.good_blocks("userdata")[0] * module.block)
        return flash.read(4) == RESTORE.to_bytes(4, "little")


class Firmware(unittest.TestCase):
    """A module that runs from a UBI volume on "system"."""

    def make_image(self, folder, version):
        root = folder / f"root-{version}"
        (root / "bin").mkdir(parents=True)
        (root / "bin" / "version").write_text(f"#!/bin/sh\necho version {version}\n")
        (root / "bin" / "version").chmod(0o755)
        (root / "library").write_bytes(random.Random(version).randbytes(900_000))
        call(f"mkfs.ubifs -m 2048 -e {LEB} -c 70 -r {root} -o {root}.ubifs")
        root.with_suffix(".cfg").write_text(UBI.format(f"{root}.ubifs"))
        call(f"ubinize -o {root}.ubi {NAND} {root.with_suffix('.cfg')}")
        return pathlib.Path(f"{root}.ubi")

    @contextlib.contextmanager
    def booted(self, module):
        """The volume attached and mounted."""
        call(f"ubiattach /dev/ubi_ctrl -p {module.device('system')} -d 5 && mount -t ubifs /dev/ubi5_0 {MOUNT}")
        try:
            yield call(f"{MOUNT}/bin/version")
        finally:
            call(f"umount {MOUNT} && ubidetach -d 5")

    def test_from_version_1_to_version_2(self):
        load_kernel_modules("zstd", "lzo", "deflate", "ubi", "ubifs")
        MOUNT.mkdir(exist_ok=True)
        with MtdModule(PARTITIONS, BAD) as module:
            old, new = (self.make_image(module.folder, version) for version in (1, 2))
            call(f"ubiformat -y -q -f {old} {module.device('system')}")
            with self.booted(module) as answer:
                self.assertEqual(answer, "version 1\n")
                (MOUNT / "stale").write_bytes(bytes(range(256)) * 8000)
            package = Package([Image("system", new.read_bytes()), Image("boot", b"boot"), Image("modem", b"modem" * 30_000)])
            with serve(package.bytes()) as server:
                self.assertEqual(module.run(server.url()).status, 0, module.log())
            call("dmesg --clear")
            end = restore()
            self.assertEqual(end.returncode, 0, end.stderr)
            self.assertEqual(restore().returncode, 20)
            written = random.randbytes(800_000)
            with self.booted(module) as answer:
                self.assertEqual(answer, "version 2\n")
                self.assertFalse((MOUNT / "stale").exists())
                for number in range(2):
                    (MOUNT / "library").write_bytes(written)
                    (MOUNT / f"file-{number}").write_bytes(written[number:])
            with self.booted(module):
                self.assertTrue((MOUNT / "library").read_bytes() == written)
                self.assertTrue(all((MOUNT / f"file-{n}").read_bytes() == written[n:] for n in range(2)))
            warnings = [line for line in call("dmesg").splitlines() if re.search(r"ubi.*(warn|err|fail|bad)", line, re.I)]
            self.assertEqual([line for line in warnings if not re.search(r"bad PEBs: \d|reserved for bad PEB", line)], [])


class FailingFlash(unittest.TestCase):
    """A store with an image of 12 blocks for "system", and one place of flash that fails for good."""

    package = images("system", 1_500_000, "modem", 200_000)
    CASES = {  # where nandsim fails, exit status, words of the message
        "target block dies on erase": ({"weakblocks": [("system", 5)]}, 11, 'block 5 of "system" takes no data'),
        "target page dies on program": ({"weakpages": [("system", 5 * PAGES + 5)]}, 11, "have it marked bad"),
        "target page cannot be read": ({"gravepages": [("system", 5 * PAGES + 3)]}, 11, "reads without an error"),
        "block behind the image dies, erased": ({"weakblocks": [("system", 40)]}, 0, ""),
    }

    def right(self, module):
        """Each target holds its image and nothing else."""
        for image in self.package.images:
            flash = held(module, image.name)
            self.assertTrue(flash[: len(image.data)] == image.data, image.name)
            self.assertEqual(flash[len(image.data) :].strip(b"\xff"), b"")

    def test_every_case(self):
        with serve(self.package.bytes()) as server:
            for name, (places, status, words) in self.CASES.items():
                with self.subTest(name), MtdModule(PARTITIONS, BAD, nandsim=places) as module:
                    self.assertEqual(module.run(server.url()).status, 0, module.log())
                    end = restore()
                    self.assertEqual((end.returncode, is_armed(module)), (status, status != 0), end.stderr)
                    self.assertIn(words, end.stderr)
                    if status == 0:
                        self.right(module)

    def test_killed_then_started_again(self):
        seed = random.randrange(1 << 30)
        chance = random.Random(seed)
        with self.subTest(seed=seed), serve(self.package.bytes()) as server, MtdModule(PARTITIONS, BAD) as module:
            self.assertEqual(module.run(server.url()).status, 0, module.log())
            began = time.monotonic()
            self.assertEqual(restore("--keep").returncode, 0)
            whole = time.monotonic() - began
            for _ in range(5):
                subprocess.run(["flash_erase", "-q", module.device("system"), "0", "3"], check=True)  # something to do
                with contextlib.suppress(subprocess.TimeoutExpired):
                    restore(timeout=chance.uniform(0.05, 1) * whole)
                if not is_armed(module):
                    self.right(module)
                    self.assertEqual(module.run(server.url()).status, 0, module.log())
            self.assertEqual(restore().returncode, 0)
            self.right(module)
