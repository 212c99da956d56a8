"""Many updaters at once, each on a simulated module of its own, and one nginx for all of them."""
import contextlib
import pathlib
import re
import subprocess
import time

from lab.module import KIB, MIB
from lab.packages import images
from lab.servers import Nginx
from lab.sim_module import SimModule
from table import Row

COUNT = 200
PARTITIONS = {"userdata": 11 * MIB, "boot": 512 * KIB}
PACKAGE = images("boot", 400 * KIB, "system", 300 * KIB)
RESTORE = "RESTORE"  # the last status of a run with store images


def memory(pid):
    """Resident and proportional size of a process in KiB, or zeros when it is gone."""
    with contextlib.suppress(OSError, AttributeError):
        text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
        return tuple(int(re.search(rf"^{name}: +(\d+)", text, re.M)[1]) for name in ("Rss", "Pss"))
    return 0, 0


def measure():
    with contextlib.ExitStack() as stack:
        url = stack.enter_context(Nginx()).put("fleet.pkg", PACKAGE.bytes())
        modules = [stack.enter_context(SimModule(PARTITIONS)) for _ in range(COUNT)]
        begin = time.monotonic()
        runs = [subprocess.Popen([*module.command(module.program), "--debug", "--url", url],
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) for module in modules]
        resident = proportional = 0
        while any(run.poll() is None for run in runs):
            sizes = [memory(run.pid) for run in runs if run.poll() is None]
            resident = max([resident, *(rss for rss, _ in sizes)])
            proportional = max(proportional, sum(pss for _, pss in sizes))
            time.sleep(0.1)
        seconds = time.monotonic() - begin
        right = sum(run.returncode == 0 and module.history()[-1] == RESTORE for run, module in zip(runs, modules))
    name = f"{COUNT} updaters at once"
    return [Row(name + ", succeeded", f"{right}", f"{COUNT}", right, f">= {COUNT}"),
            Row(name + ", time for each", f"{seconds / COUNT * 1000:.0f} ms", f"{seconds:.1f} s for all"),
            Row(name + ", memory of each", f"{proportional / COUNT:,.0f} KiB", f"{resident:,} KiB with what they share")]
