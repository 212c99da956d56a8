"""tarv-fetch with its certificates and working directory on the data volume, which the updater takes away."""
import pathlib
import subprocess
import tempfile
import unittest

from lab.certificates import make_authority, make_certificate, server_context
from lab.expected import expected_flash
from lab.fetching import CHUNK, Origin, cut, digests, running
from lab.mtd_module import MtdModule
from lab.packages import images
import test_data_volume

PACKAGE = images("system", 400_000)
DATA = PACKAGE.bytes()
# There is no minisign here: it has signed the digests of just this package before.
KEY = """untrusted comment: minisign public key A8E9BA4B53607D18
RWQYfWBTS7rpqMGg7cltGPoj5IukzahMj+OKPTHuhRrrhIIGJLLJYHIA
"""
SIGNATURE = b"""untrusted comment: signature from minisign secret key
RUQYfWBTS7rpqNnsVCfP/R5CgSzrqyoT3auDVWO7D+q/N0wNk//9ntSbXHN+tDJoZyYK57IZyYKT0Y11/b2LbhY93i6kjFIy1gM=
trusted comment: package 1
FA0s/aDQA/gkG4FfV3OOt5m+/X4EdmH2Sb5qtL555Y8vHfTgG8zvn8UMlhHNxXDoB+Cr90MEAWbBEuFRBLEwDQ==
"""
FILES = {"/p.img": DATA, "/p.img.digests": digests(DATA), "/p.img.digests.minisig": SIGNATURE}


class Fetch(unittest.TestCase):
    attach = test_data_volume.DataVolume.attach

    def test_data_volume_is_not_needed(self):
        certificates = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        make_authority(certificates)
        make_certificate(certificates, "server")
        # Breaks twice when the volume has gone: each time the connection is made and verified anew.
        plan = [cut(3 * CHUNK), cut(5 * CHUNK + 1)]
        with MtdModule() as module, Origin(FILES, plan, tls=server_context(certificates)) as origin:
            holder = self.attach(module)
            (pathlib.Path("/data") / "ca.crt").write_bytes((certificates / "ca.crt").read_bytes())
            (pathlib.Path("/data") / "maker.pub").write_text(KEY)
            subprocess.run(["sync"], check=True)
            words = ["--key", "maker.pub", "--ca", "/data/ca.crt", origin.url()]
            with running(module, *words, cwd="/data", env=module.environment()) as process:
                _, errors = process.communicate(timeout=200)
            self.assertEqual(process.returncode, 0, errors)
            self.assertEqual(errors.count("goes on in"), 2, errors)
            self.assertIsNotNone(holder.wait(5))
            self.assertTrue(module.dump("userdata") == expected_flash(PACKAGE, module)["userdata"])
