"""The data volume as the module has it: UBI on userdata, mounted on /data, with a process that holds a file open there."""
import pathlib
import subprocess
import time
import unittest

from lab.expected import expected_flash
from lab.module import SMALL
from lab.mtd_module import MtdModule, load_kernel_modules
from lab.packages import images
from lab.servers import serve


def call(command, check=True):
    subprocess.run(command, shell=True, check=check, stdout=subprocess.DEVNULL)


class DataVolume(unittest.TestCase):
    package = images("system", 400_000)

    def attach(self, module):
        """Returns the process that holds a file open."""
        load_kernel_modules("zstd", "lzo", "deflate", "ubi", "ubifs")
        device = module.device("userdata")
        call(f"ubiformat -y -q {device} && ubiattach /dev/ubi_ctrl -p {device} -d 2 && ubimkvol /dev/ubi2 -N data -m")
        call("mount -t ubifs /dev/ubi2_0 /data && echo kept open >/data/file")
        holder = subprocess.Popen(["sh", "-c", "exec sleep 600 </data/file"])
        self.addCleanup(call, "{ umount -l /data/inner /data; ubidetach -d 2; } 2>/dev/null", check=False)
        self.addCleanup(holder.kill)
        return holder

    def test_released_and_written(self):
        with serve(self.package.bytes()) as server, MtdModule(bad={"userdata": {3}}) as module:
            holder = self.attach(module)
            self.assertEqual(module.run(server.url()).status, 0, module.log())
            self.assertIsNotNone(holder.wait(5))
            self.assertFalse(pathlib.Path("/dev/ubi2").exists())
            self.assertNotIn("ubi2_0", pathlib.Path("/proc/mounts").read_text())
            self.assertTrue(module.dump("userdata") == expected_flash(self.package, module)["userdata"])

    def test_starter_that_leaves_a_descriptor_open(self):
        """An updater that kept it would be a user of /data, and end itself."""
        with serve(self.package.bytes()) as server, MtdModule() as module:
            self.attach(module)
            call(f"exec {module.command(module.program)[0]} --url {server.url()} 7</data/file")
            deadline = time.monotonic() + 120
            while module.text("status") not in ("4", "5", "6") and time.monotonic() < deadline:
                time.sleep(0.2)
            self.assertEqual(module.history()[-1:], ["RESTORE"], module.log())
            self.assertTrue(module.dump("userdata") == expected_flash(self.package, module)["userdata"])

    def test_mount_that_does_not_go_away(self):
        with serve(self.package.bytes()) as server, MtdModule() as module:
            self.attach(module)
            call("mkdir /data/inner && mount -t tmpfs tmpfs /data/inner && sync")
            self.assertEqual(module.run(server.url()).status, 255)
            self.assertEqual(module.text("fail_reason"), "umount /data failed\n")
            self.assertTrue(all(module.dump(name) == module.initial(name) for name in SMALL if name != "userdata"))
            self.assertEqual(pathlib.Path("/data/file").read_text(), "kept open\n")
            call("umount /data/inner && umount /data && ubidetach -d 2")
