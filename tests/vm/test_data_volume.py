"""The data volume as the module has it: UBI on userdata, mounted on /data, with a process that holds a file open there."""
import pathlib
import subprocess
import unittest

from module import SMALL, Module
from mtd_module import load_kernel_modules
from packages import Image, Package, expected_flash, noise
from servers import serve


def call(command):
    subprocess.run(command, shell=True, check=True, stdout=subprocess.DEVNULL)


class DataVolume(unittest.TestCase):
    package = Package([Image("system", noise(400_000))])

    @classmethod
    def setUpClass(cls):
        load_kernel_modules("zstd", "lzo", "deflate", "ubi", "ubifs")

    def attach(self, module):
        device = module.device("userdata")
        call(f"ubiformat -y -q {device} && ubiattach /dev/ubi_ctrl -p {device} -d 2 && ubimkvol /dev/ubi2 -N data -m")
        call("mount -t ubifs /dev/ubi2_0 /data")
        self.addCleanup(lambda: subprocess.run("umount -l /data/inner /data; ubidetach -d 2", shell=True,
                                               stderr=subprocess.DEVNULL, check=False))
        pathlib.Path("/data/file").write_text("kept open")
        holder = subprocess.Popen(["sh", "-c", "exec sleep 600 </data/file"])
        self.addCleanup(holder.kill)
        return holder

    def test_released_and_written(self):
        with serve(self.package.bytes()) as server, Module(bad={"userdata": {3}}) as module:
            holder = self.attach(module)
            run = module.run(server.url())
            self.assertEqual(run.status, 0, module.log())
            self.assertIsNotNone(holder.wait(5))
            self.assertFalse(pathlib.Path("/dev/ubi2").exists())
            self.assertNotIn("ubi2_0", pathlib.Path("/proc/mounts").read_text())
            self.assertTrue(module.dump("userdata") == expected_flash(self.package, module)["userdata"])

    def test_mount_that_does_not_go_away(self):
        with serve(self.package.bytes()) as server, Module() as module:
            self.attach(module)
            call("mkdir /data/inner && mount -t tmpfs tmpfs /data/inner && sync")
            before = {name: module.dump(name) for name in SMALL if name != "userdata"}
            run = module.run(server.url())
            self.assertEqual(run.status, 255)
            self.assertEqual(module.text("fail_reason"), "umount /data failed\n")
            self.assertTrue(all(module.dump(name) == data for name, data in before.items()))
            self.assertEqual(pathlib.Path("/data/file").read_text(), "kept open")
            call("umount /data/inner && umount /data && ubidetach -d 2")
