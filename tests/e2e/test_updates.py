"""Whole updates, one for each kind of package, compared with all of flash and every file of the run directory."""
import unittest

from module import MIB, SMALL, Module, without
from packages import STORE_LIST, capacity, differences, expected_flash, images, no_images, store_names
from servers import header, serve

# The first and the last block of each partition, the block behind the head record, and blocks in the middle and at the
# end of the package data.
BAD = {"userdata": {0, 2, 6, 13, 95}, "recoveryfs": {0, 2, 4, 39}, "recovery": {0, 2, 4, 23}, "vexonv": {0, 2, 4, 23},
       "boot": {0, 3}, "sbl": {1}}
# Package, module.
UPDATES = {
    "store through all partitions": (images("modem", 1500001, "system", 700000, "systemdata", 500001), {"bad": BAD}),
    "store list full": (images("system", 1, "modem", 4096, "systemdata", 4097, *["system", 5000] * 5), {}),
    "store passes over a partition smaller than its reserve":
        (images("system", 3000001, "modem", 5000), {"partitions": {**SMALL, "recoveryfs": 2 * MIB}}),
    "files": (images("boot", 300001, "sbl", 131072, "efs2bak", 1), {}),
    "files that fill their partitions around bad blocks": (images("sbl", 131072, "boot", 262144), {"bad": BAD}),
    "recovery": (images("recoveryfs", 36 * 131072, "recovery", 500001), {"bad": BAD}),
    "store between files": (images("boot", 100001, "system", 3000001, "efs2bak", 5000, "modem", 5000), {}),
    "no images": (no_images(), {}),
    "no images, of the recovery group": (no_images("recovery"), {}),
    "empty store images": (images("system", 0, "modem", 0, "systemdata", 5000, "system", 0), {}),
    "only an empty store image": (images("system", 0), {}),
    "empty files": (images("boot", 0, "sbl", 5000, "efs2bak", 0), {}),
    "empty recovery image first": (images("recovery", 0, "recoveryfs", 5000), {}),
    "empty recovery image last": (images("recovery", 5000, "recoveryfs", 0), {}),
    "empty images between groups": (images("boot", 5000, "system", 0, "sbl", 0, "modem", 5000), {}),
}


class Updates(unittest.TestCase):
    def run_on(self, module, package, status, *options):
        with serve(package.bytes()) as server:
            self.assertEqual(module.run(server.url(), *options).status, status, module.log()[-2000:])

    def update(self, module, package, *options, **record):
        self.run_on(module, package, 0, *options)
        self.assertEqual(differences(module, package, header(len(package.bytes())), **record), [])
        self.assertEqual(module.counts()["open"], module.counts()["close"])

    def stop_while_storing(self, module, package, status, *options, **record):
        self.run_on(module, package, status, *options)
        self.assertTrue(module.dumps() == expected_flash(package, module, armed=False, **record))
        self.assertIsNone(module.text("fail_reason"))

    def test_kinds_of_packages(self):
        for name, (package, others) in UPDATES.items():
            with self.subTest(name), Module(**others) as module:
                self.update(module, package)

    def test_store_filled_to_the_end_of_each_partition(self):
        for n in range(1, 5):
            for tail in ((), ("modem", 8000)):  # the end is reached by data, by padding
                with self.subTest(n, tail=tail), Module(bad=BAD) as module:
                    room = sum(capacity(name, module) for name in STORE_LIST[:n])
                    self.update(module, images("system", room - 8192 * bool(tail), *tail))

    def test_store_ends_before_a_missing_partition(self):
        for missing in (("vexonv",), ("recoveryfs",), ("recovery", "vexonv")):
            with self.subTest(missing), Module(without(*missing)) as module:
                self.update(module, images("system", sum(capacity(name, module) for name in store_names(module))))

    def test_padding_that_does_not_fit(self):
        with Module() as module:
            room = sum(capacity(name, module) for name in STORE_LIST)
            self.stop_while_storing(module, images("system", room - 100, "modem", 50), 255)

    def test_versions_that_fit(self):
        for revid, options, version in (("31406\n", (), "31407"), (None, ("--version", "31524x"), "31520"),
                                        ("31405", ("--version", "31412" + "x" * 58), "31411"), ("none", (), "31408"),
                                        ("31405" + "y" * 1500, (), b"31405" + b"x" * 59)):
            with self.subTest(revid=revid, version=version), Module(revid=revid) as module:
                package = images("boot", 5000)
                package.version = version
                self.update(module, package, *options)

    def test_both_forms_of_the_head_record(self):
        for size in (5000, 2 * MIB):
            with self.subTest(size=size), Module(bad=BAD) as module:
                package = images("boot", 100, "system", size, "modem", 5000)
                package.images[1].crc = 0
                self.stop_while_storing(module, package, 254, "--rmrfnvbak", rmrfnvbak=1)
                package.images[1].crc = None
                self.update(module, package, "--rmrfnvbak", rmrfnvbak=1)

    def test_module_tool(self):
        called = "set_efs2_restore\n"
        for name, present, calls in (("efs2bak", True, called), ("efs2bak", False, None), ("sbl", True, None)):
            with self.subTest(image=name, present=present), Module() as module:
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
        ("system", False, False, None, ["mount", "ubinfo"], None),
        ("system", True, True, "umount", MOUNTED, "umount /data failed\n"),
        ("system", True, True, "ubidetach", MOUNTED + ATTACHED, "detach ubi2 failed\n"),
        ("boot", True, True, None, [], None),
    )

    def prepare(self, module, mounted, attached, broken):
        """The commands of a module whose state is in two files; each call is recorded, and any socket it inherits."""
        (module.folder / "tmp" / "mounts").write_text("/dev/ubi2_0 on /data type ubifs (rw)\n" * mounted + "proc\n")
        (module.folder / "tmp" / "ubi").write_text("ubi2\n" * attached + "ubi0\n")
        for name, work in (("mount", "cat /tmp/mounts"), ("ubinfo", "cat /tmp/ubi"), ("fuser", ""),
                           ("umount", ": >/tmp/mounts"), ("ubidetach", ": >/tmp/ubi")):
            sockets = "ls -l /proc/$$/fd | grep -q socket: && echo inherited socket >>/tmp/calls"
            module.add_command(name, f"echo {name} $* >>/tmp/calls\n{sockets}\n" + work * (name != broken))

    def test_release(self):
        for image, mounted, attached, broken, calls, reason in self.CASES:
            with self.subTest(image, mounted=mounted, attached=attached, broken=broken), Module() as module:
                self.prepare(module, mounted, attached, broken)
                with serve(images(image, 5000).bytes()) as server:
                    self.assertEqual(module.run(server.url()).status, 255 if reason else 0)
                self.assertEqual((module.recorded_calls() or "").splitlines(), calls)
                self.assertEqual(module.text("fail_reason"), reason)
                self.assertEqual(module.is_untouched(), reason is not None)
