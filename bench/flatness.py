"""Peak memory from 8 MiB to 1 GiB of package, on simulated flash."""
import pathlib
import re
import subprocess
import time

from module import KIB, MIB, Module
from packages import Image, Package, noise
from servers import Nginx
from table import Row

PARTITIONS = {"recoveryfs": 1056 * MIB}


def peak(size):
    """In KiB, of an update of that many bytes."""
    package = Package([Image("recoveryfs", noise(MIB) * (size // MIB))])
    with Module(PARTITIONS) as module, Nginx() as nginx:
        command = [*module.command(module.program), "--debug", "--url", nginx.put("large.pkg", package.bytes())]
        most = 0
        with subprocess.Popen(command, stdout=subprocess.DEVNULL) as run:
            while run.poll() is None:
                text = pathlib.Path(f"/proc/{run.pid}/status").read_text()
                if "tarvolin-sim" in text:
                    most = max(most, *map(int, re.findall(r"VmHWM:\s+(\d+)", text)))
                time.sleep(0.005)
        assert run.returncode == 0, module.log()[-2000:]
    return most


def measure():
    small, large = peak(8 * MIB), peak(1024 * MIB)
    return [Row("Peak memory, 8 MiB and 1 GiB", f"{large} KiB", f"{small} KiB", large / small, "<= 1.02")]
