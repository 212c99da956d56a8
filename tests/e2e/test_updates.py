"""Whole updates, one for each kind of package, compared with all of flash and every file of the run directory."""
import unittest

from lab.expected import differences, expected_flash
from lab.module import KIB, MIB, SMALL, without
from lab.packages import Image, Package, images, no_images, noise
from lab.servers import header, serve
from lab.sim_module import SimModule

BLOCK, DATA = 128 * KIB, noise(9000)
# The first and the last block of each partition, the block behind the head record, and blocks in the middle and at the
# end of the package data. 10, 4, 4 and 4 blocks are left for the store.
BAD = {"userdata": {0, 2, 6, 13, 95}, "recoveryfs": {0, 2, 4, 39}, "recovery": {0, 2, 4, 23}, "vexonv": {0, 2, 4, 23},
       "boot": {0, 3}, "sbl": {1}}
# Package, module.
UPDATES = {
    "store through all partitions": (images("modem", 1500001, "system", 700000, "systemdata", 500001), {"bad": BAD}),
    "first partition of the store filled": (images("system", 10 * BLOCK), {"bad": BAD}),
    "second one filled by padding": (images("system", 14 * BLOCK - 8192, "modem", 8000), {"bad": BAD}),
    "all of the store filled by padding": (images("system", 22 * BLOCK - 8192, "modem", 8000), {"bad": BAD}),
    "store ends before a missing partition": (images("system", 15 * BLOCK), {"partitions": without("recoveryfs")}),
    "store list full": (images("system", 1, "modem", 4096, "systemdata", 4097, *["system", 5000] * 5), {}),
    "store passes over a partition smaller than its reserve":
        (images("system", 3000001, "modem", 5000), {"partitions": {**SMALL, "recoveryfs": 2 * MIB}}),
    "files that fill their partitions around bad blocks": (images("sbl", 131072, "boot", 262144), {"bad": BAD}),
    "recovery": (images("recoveryfs", 36 * BLOCK, "recovery", 500001), {"bad": BAD}),
    "store between files": (images("boot", 100001, "system", 3000001, "efs2bak", 5000, "modem", 5000), {}),
    "no images": (no_images(), {}),
    "no images, of the recovery group": (no_images("recovery"), {}),
    "empty store images": (images("system", 0, "modem", 0, "systemdata", 5000, "system", 0), {}),
    "only an empty store image": (images("system", 0), {}),
    "empty files": (images("boot", 0, "sbl", 5000, "efs2bak", 0), {}),
    "empty recovery image first": (images("recovery", 0, "recoveryfs", 5000), {}),
    "empty recovery image last": (images("recovery", 5000, "recoveryfs", 0), {}),
    "empty images between groups": (images("boot", 5000, "system", 0, "sbl", 0, "modem", 5000), {}),
    "another product's version": (Package([Image("boot", DATA)], version="31407"), {"revid": "31406\n"}),
    "long versions": (Package([Image("boot", DATA)], version=b"31405" + b"x" * 59), {"revid": "31405" + "y" * 1500}),
    "one partition twice": (Package([Image("boot", DATA.ljust(BLOCK, b"\0")), Image("boot", DATA, "2")]), {}),
    "bytes behind a name": (Package([Image("system", DATA, behind=b"secret"), Image("modem", DATA, behind=b"x" * 26)]), {}),
    "names for a shell": (Package([Image("boot", DATA, "$(reboot);`reboot` &"), Image("sbl", DATA, "\x1b]0;\a\n"),
                                   Image("efs2bak", DATA, "-rf ~ *"), Image("system", DATA, "head")]), {}),
}


class Updates(unittest.TestCase):
    def run_on(self, module, package, status, *options):
        with serve(package.bytes()) as server:
            self.assertEqual(module.run(server.url(), *options).status, status, module.log()[-2000:])

    def update(self, module, package, *options, **record):
        self.run_on(module, package, 0, *options)
        self.assertEqual(differences(module, package, header(len(package.bytes())), **record), [])
        self.assertEqual(module.counts()["open"], module.counts()["close"])

    def test_kinds_of_packages(self):
        for name, (package, others) in UPDATES.items():
            with self.subTest(name), SimModule(**others) as module:
                module.add_command("reboot", "echo called >/tmp/calls")
                self.update(module, package)
                self.assertIsNone(module.recorded_calls())

    def test_both_forms_of_the_head_record(self):
        options = "--rmrfnvbak", "--version", "31524" + "x" * 58
        for size in (5000, 2 * MIB):
            with self.subTest(size=size), SimModule(bad=BAD) as module:
                package = images("boot", 100, "system", size, "modem", 5000)
                package.version = "31520"
                package.images[1].crc = 0
                self.run_on(module, package, 254, *options)
                self.assertIsNone(module.text("fail_reason"))
                self.assertTrue(module.dumps() == expected_flash(package, module, rmrfnvbak=1, armed=False))
                package.images[1].crc = None
                self.update(module, package, *options, rmrfnvbak=1)

    def test_module_tool(self):
        called = "set_efs2_restore\n"
        for name, present, calls in (("efs2bak", True, called), ("efs2bak", False, None), ("sbl", True, None)):
            with self.subTest(image=name, present=present), SimModule() as module:
                module.add_command("odm_upgrader", "echo $* >>/tmp/calls; exit 1")
                if present:
                    module.add_command("odm_upgrader", "exit 0", where="usr_bin")
                self.update(module, images("system", 5000, name, 5000))
                self.assertEqual(module.recorded_calls(), calls)
                self.assertEqual("odm_upgrader set_efs2_restore OK" in module.log(), calls is not None)


class DataVolume(unittest.TestCase):
    MOUNTED, ATTACHED = ["mount", "fuser -m -k /data", "umount /data", "mount"], ["ubinfo", "ubidetach -d 2", "ubinfo"]
    # Image, mounted, attached, the command that does not work, calls, failure reason.
    CASES = (
        ("system", True, True, None, MOUNTED + ATTACHED, None),
        ("system", True, False, None, MOUNTED + ["ubinfo"], None),
        ("system", False, True, None, ["mount"] + ATTACHED, None),
        ("system", True, True, "umount", MOUNTED, "umount /data failed\n"),
        ("system", True, True, "ubidetach", MOUNTED + ATTACHED, "detach ubi2 failed\n"),
        ("boot", True, True, None, [], None),
    )

    def test_release(self):
        """On a module whose state is in two files, with commands that record each call."""
        for image, mounted, attached, broken, calls, reason in self.CASES:
            with self.subTest(image, broken=broken, calls=calls), SimModule() as module:
                (module.folder / "tmp" / "mounts").write_text("/dev/ubi2_0 on /data\n" * mounted + "proc\n")
                (module.folder / "tmp" / "ubi").write_text("ubi2\n" * attached + "ubi0\n")
                for name, work in (("mount", "cat /tmp/mounts"), ("ubinfo", "cat /tmp/ubi"), ("fuser", ""),
                                   ("umount", ": >/tmp/mounts"), ("ubidetach", ": >/tmp/ubi")):
                    module.add_command(name, f"echo {name} $* >>/tmp/calls\n" + work * (name != broken))
                with serve(images(image, 5000).bytes()) as server:
                    self.assertEqual(module.run(server.url()).status, 255 if reason else 0)
                self.assertEqual((module.recorded_calls() or "").splitlines(), calls)
                self.assertEqual(module.text("fail_reason"), reason)
                self.assertEqual(module.is_untouched(), reason is not None)
