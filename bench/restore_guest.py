"""In the virtual machine: restores of a store, with real MTD, timed and weighed."""
import os
import pathlib
import subprocess
import time

from lab.module import BIN_DIR, MIB
from lab.mtd_module import MtdModule
from lab.packages import Image, Package
from lab.servers import Nginx
from weight import weigh

PARTITIONS = {"userdata": 24 * MIB, "system": 14 * MIB}
SIZE = 12 * MIB
ROUNDS = 2
TIMED = "/share/tarv-restore-timed"


def with_store(work, options=()):
    """Does `work` on a module with an armed store from the updater, and with an empty target."""
    package = Package([Image("system", os.urandom(SIZE))])
    with MtdModule(PARTITIONS, options=options) as module, Nginx() as nginx:
        run = module.run(nginx.put("restore.pkg", package.bytes()))
        assert run.status == 0, module.log()
        found = work(module)
        assert module.dump("system")[:SIZE] == package.images[0].data
        return found


def timings(module):
    found = []
    subprocess.run([TIMED, "--version"], check=True, stdout=subprocess.DEVNULL)  # in memory from now on, with its library
    for _ in range(ROUNDS):
        subprocess.run(["flash_erase", "-q", module.device("system"), "0", "0"], check=True)
        begin = time.monotonic()
        subprocess.run([TIMED, "--keep"], check=True, stdout=subprocess.DEVNULL)
        wall = time.monotonic() - begin
        found.append({"wall": wall, "flash": float(pathlib.Path("/tmp/flash_seconds").read_text())})
    return found


PARTS = {"restore_slow": lambda: with_store(timings, ("do_delays=1",)),
         "restore_memory": lambda: with_store(lambda _: weigh([BIN_DIR / "tarv-restore"]))}
