"""A whole update of 32 MiB on the kernel's flash, in a virtual machine, against what a script would do."""
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
from statistics import median

from lab.packages import Image, Package
from road_guest import PARTITION, SIZES
from table import Row, ratio

HERE = pathlib.Path(__file__).resolve().parent
GUEST = HERE.parent / "lab" / "guest"


def visit(arch, bin_dir, *parts):
    """Runs those parts of the bench in a machine of that kind. Returns their results, by part."""
    with tempfile.TemporaryDirectory() as folder:
        share = pathlib.Path(folder)
        for name, size in SIZES.items():
            package = Package([Image(PARTITION, os.urandom(size))])
            (share / f"{name}.pkg").write_bytes(package.bytes())
            (share / f"{name}.img").write_bytes(package.images[0].data)
        shutil.copytree(HERE, share / "bench")
        for program in bin_dir.glob("*-timed"):
            shutil.copy(program, share)
        subprocess.run([GUEST, arch, bin_dir, "-t", "540", share,
                        "env", "PYTHONPATH=.:bench", "python3", "-B", "bench/road_guest.py", *parts], check=True)
        return json.loads((share / "road.json").read_text())


def measure(bin_dir):
    found = visit("x86", bin_dir, "plain", "slow", "calls")

    def middle(kind, who, what):
        return median(run[what] for run in found[kind][who])

    table = []
    for what in ("wall", "processor"):
        table.append(ratio(f"32 MiB to raw NAND, {what} time", middle("plain", "ours", what),
                           middle("plain", "script", what), "<= 1", "s", "script"))
    for kind, bound in (("plain", ""), ("slow", "<= 1.05")):
        name = "with flash's own delays" if kind == "slow" else "wall time"
        table.append(ratio(f"32 MiB to raw NAND, {name}", middle(kind, "timed", "wall"), middle(kind, "timed", "flash"),
                           bound, "s", "in calls on flash"))
    table.append(ratio("32 MiB to raw NAND, with flash's own delays", middle("slow", "timed", "wall"),
                       middle("slow", "script", "wall"), "", "s", "script"))
    table.append(system_calls(found["calls"]))
    return table


def system_calls(calls):
    """Those that 4 KiB more of package cost; calls on flash come by the block of 128 KiB."""
    small, large = calls["calls-1"], calls["calls-2"]
    pieces = (SIZES["calls-2"] - SIZES["calls-1"]) // 4096
    each = {name: (large[name] - small.get(name, 0)) / pieces for name in large}
    each = {name: count for name, count in sorted(each.items(), key=lambda item: -item[1]) if count > 0.005}
    return Row("System calls for 4 KiB of package", f"{sum(each.values()):.2f}",
               ", ".join(f"{name} {count:.2f}" for name, count in each.items()))
