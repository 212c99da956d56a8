"""tarv-store beside the kernel's flash: on the devices of the module, and on dumps that nanddump made of them."""
import json
import pathlib
import subprocess
import tempfile
import unittest

from lab.expected import STORE_LIST
from lab.module import BIN_DIR
from lab.mtd_module import MtdModule
from lab.packages import images
from lab.servers import serve

BAD = {"userdata": {0, 5}, "recoveryfs": {0, 3}, "vexonv": {1}}
PACKAGE = images("modem", 2_500_001, "system", 700_000, "boot", 5)


@unittest.skipUnless((BIN_DIR / "tarv-store").exists(), "the tools are not built for this machine")
class StoreTool(unittest.TestCase):
    def tool(self, *words):
        run = subprocess.run([BIN_DIR / "tarv-store", *words], capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual(run.returncode, 0, run.stderr)
        return run.stdout

    def test_devices_and_dumps_tell_the_same(self):
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        with MtdModule(bad=BAD) as module, serve(PACKAGE.bytes()) as server:
            self.assertEqual(module.run(server.url()).status, 0, module.log())
            before = module.dumps()
            self.tool("dump", str(folder / "made"))
            self.assertEqual(self.tool("--dumps", folder / "made", "show", "--json"), self.tool("show", "--json"))
            for name in STORE_LIST:
                subprocess.run(["nanddump", "-q", "--bb=padbad", "-f", folder / f"{name}.bin", module.device(name)],
                               check=True, stderr=subprocess.DEVNULL)
                (folder / f"{name}.bad").write_text("".join(f"{block}\n" for block in BAD.get(name, ())))
                self.assertEqual((folder / f"made/{name}.bin").read_bytes(), (folder / f"{name}.bin").read_bytes())
            for command in (["show", "--json"], ["verify", "--json"], ["map"]):
                on_devices = self.tool(*command)
                self.assertEqual(self.tool("--dumps", folder, *command), on_devices)
                if "verify" in command:
                    self.assertTrue(all(image["computed"] == image["crc"] for image in json.loads(on_devices)["images"]))
            for number, image in enumerate(PACKAGE.store_images()):
                for source in ([], ["--dumps", folder]):
                    self.tool(*source, "extract", str(number), "-o", folder / "out")
                    self.assertEqual((folder / "out").read_bytes(), image.data)
                    (folder / "out").unlink()
            self.assertEqual(module.dumps(), before)
