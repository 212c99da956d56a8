"""In the virtual machine: whole updates with real MTD, timed, traced and weighed.

    road_guest.py PART...    leaves what it finds in /share/road.json
"""
import json
import os
import pathlib
import subprocess
import sys
import time

import restore_guest
from lab.module import BIN_DIR, MIB
from lab.mtd_module import MtdModule
from lab.servers import Nginx
from weight import weigh

SIZES = {"road": 32 * MIB, "calls-1": 4 * MIB, "calls-2": 8 * MIB}
PARTITION = "recoveryfs"
ROUNDS = {"plain": 3, "slow": 2}
TIMED = "/share/tarvolin-timed"
SCRIPT = """
flash_erase -q {device} 0 0 &&
curl -s {image} | nandwrite -q -p {device} - >/dev/null &&
nanddump -q --bb=skipbad -l {size} {device} | cksum
"""


class Road:
    def __init__(self, module, nginx):
        self.module = module
        self.urls = {path.stem + path.suffix: nginx.put(path.name, path.read_bytes())
                     for path in pathlib.Path("/share").glob("*.??g")}

    def run(self, command):
        """Runs to its end and must succeed. Returns the seconds it took, by the clock and of the processor."""
        begin = time.monotonic()
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, env=self.module.environment())
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        wall = time.monotonic() - begin
        assert process.returncode == 0, (command, self.module.log()[-2000:])
        return {"wall": wall, "processor": usage.ru_utime + usage.ru_stime}

    def update(self, program, package="road.pkg", tracer=()):
        spent = self.run([*tracer, program, "--debug", "--url", self.urls[package]])
        self.check(package)
        return spent

    def timed_update(self):
        spent = self.update(TIMED)
        return {**spent, "flash": float(pathlib.Path("/tmp/flash_seconds").read_text())}

    def script(self):
        device = self.module.device(PARTITION)
        script = SCRIPT.format(device=device, image=self.urls["road.img"], size=SIZES["road"])
        spent = self.run(["sh", "-c", script])
        self.check("road.pkg")
        return spent

    def check(self, package):
        image = pathlib.Path("/share", package).with_suffix(".img").read_bytes()
        assert self.module.dump(PARTITION)[: len(image)] == image

    def weigh(self, command):
        return weigh(command, self.module.environment())

    def count_calls(self, package):
        self.update(BIN_DIR / "tarvolin", package, ["strace", "-f", "-c", "-U", "calls,name", "-o", "/tmp/calls"])
        lines = [line.split() for line in pathlib.Path("/tmp/calls").read_text().splitlines()[2:]]
        return {name: int(count) for count, name in lines if count.isdigit() and name != "total"}


def bench(options, work):
    with MtdModule({PARTITION: 40 * MIB}, options=options) as module, Nginx() as nginx:
        return work(Road(module, nginx))


def timings(kind):
    def work(road):
        found = {"ours": [], "timed": [], "script": []}
        for _ in range(ROUNDS[kind]):
            found["ours"].append(road.update(BIN_DIR / "tarvolin"))
            found["timed"].append(road.timed_update())
            found["script"].append(road.script())
        return found
    return work


def calls(road):
    return {package: road.count_calls(package + ".pkg") for package in ("calls-1", "calls-2")}


def memory(road):
    return road.weigh([BIN_DIR / "tarvolin", "--debug", "--url", road.urls["calls-2.pkg"]])


def curl_memory(road):
    return road.weigh(["curl", "-s", "-o", "/dev/null", road.urls["calls-2.pkg"]])


PARTS = {"plain": ((), timings("plain")), "slow": (("do_delays=1",), timings("slow")), "calls": ((), calls),
         "memory": ((), memory), "curl_memory": ((), curl_memory)}

if __name__ == "__main__":
    results = {name: restore_guest.PARTS[name]() if name in restore_guest.PARTS else bench(*PARTS[name])
               for name in sys.argv[1:]}
    pathlib.Path("/share/road.json").write_text(json.dumps(results))
