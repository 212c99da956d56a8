"""What tarv-fetch adds to an update: time, processor time, memory, size; the bytes that it asks for twice, against curl."""
import pathlib
import resource
import subprocess
import tempfile
import time

from lab.fetching import Origin, Signer, cut
from lab.module import BIN_DIR, MIB
from lab.packages import Image, Package, noise
from lab.servers import Nginx
from lab.sim_module import SimModule
from processor import stripped_size
from table import Row, ratio
from weight import weigh

ROUNDS = 5
SIZE = 64 * MIB
CUTS = 20


def _package(size):
    return Package([Image("recoveryfs", noise(MIB) * (size // MIB))]).bytes()


def _command(module, url, *words):
    ours = [*module.command("tarv-fetch"), "--updater", f"/host{BIN_DIR}/{module.program}"]
    return [*(ours if words else [*module.command(module.program), "--debug", "--url"]), *words, url]


def _module(size):
    return SimModule({"recoveryfs": size + 32 * MIB})


def _time(size, url, *words):
    """Wall and processor seconds of an update."""
    with _module(size) as module:
        before, start = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
        subprocess.run(_command(module, url, *words), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        return time.monotonic() - start, used


def _fetch_alone(url, *words):
    """The command that proves a package without an updater: it shows the memory of tarv-fetch itself."""
    return [BIN_DIR / "tarv-fetch", *words, "--check", url]


def _times(maker):
    data = _package(SIZE)
    ways = {"signed": ["--key", f"/host{maker.public}"], "unsigned": ["--unsigned"], "alone": []}
    best = {}
    for kind, limit in (("", ""), (", 32 MiB/s", "limit_rate 32m;")):
        with Nginx(server=limit) as nginx:
            urls = [nginx.put(name[1:], content) for name, content in maker.files(data).items()]
            for _ in range(ROUNDS):
                for way, words in ways.items():
                    wall, used = _time(SIZE, urls[0], *words)
                    old = best.get((kind, way), (wall, used))
                    best[kind, way] = min(old[0], wall), min(old[1], used)
    rows = []
    for kind in ("", ", 32 MiB/s"):
        alone = best[kind, "alone"]
        for way, bound in ("signed", "<= 1.5"), ("unsigned", "<= 1.2"):
            wall, used = best[kind, way]
            rows += [ratio(f"tarv-fetch, {way}{kind}: wall time", wall, alone[0], "<= 1.05", "s", "tarvolin alone"),
                     ratio(f"tarv-fetch, {way}{kind}: processor time", used, alone[1], bound, "s", "tarvolin alone")]
    return rows


def _memory(maker):
    peaks = {}
    for size in 8 * MIB, 1024 * MIB:
        with Nginx() as nginx:
            urls = [nginx.put(name[1:], content) for name, content in maker.files(_package(size)).items()]
            peaks[size] = weigh(_fetch_alone(urls[0], "--key", maker.public))["anonymous"]
    # 32 bytes for a digest, and while they are proven their text, which is read into a buffer that doubles.
    chunks = (1024 - 8) * MIB // 65536
    grown = peaks[1024 * MIB] - peaks[8 * MIB]
    return [Row("tarv-fetch: anonymous memory, 8 MiB of package", f"{peaks[8 * MIB]:,} KiB"),
            Row("tarv-fetch: anonymous memory, 1 GiB less 8 MiB", f"{grown:,} KiB",
                f"{chunks * 176 // 1024:,} KiB, digests and text", grown / (chunks * 176 / 1024), "<= 1.05")]


def _resumed(folder, maker):
    """Bytes that a server sends for a package of 8 MiB whose connection breaks 20 times."""
    data = _package(8 * MIB)
    places = [(n + 1) * len(data) // (CUTS + 1) + n for n in range(CUTS)]
    sent = {}
    for way in "tarv-fetch", "curl":
        with Origin(maker.files(data), [cut(place) for place in places]) as origin:
            if way == "curl":
                command = ["curl", "-sS", "-C", "-", "-o", folder / "fetched", origin.url()]
                while subprocess.run(command, stderr=subprocess.DEVNULL, check=False).returncode != 0:
                    pass
                assert (folder / "fetched").read_bytes() == data
            else:
                subprocess.run(_fetch_alone(origin.url(), "--key", maker.public), stderr=subprocess.DEVNULL, check=True)
            starts = [first or 0 for first in origin.starts()]
            sent[way] = sum(end - first for first, end in zip(starts, [*places, len(data)]))
    ours, curls = sent["tarv-fetch"], sent["curl"]
    return [ratio("Bytes sent, 20 breaks", ours, curls, "<= 1.16", "bytes", "curl -C -, in a loop")]


def measure(arm_bin_dir):
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        maker = Signer(folder)
        size = stripped_size(arm_bin_dir, "tarv-fetch", 160)
        return _times(maker) + _memory(maker) + _resumed(folder, maker) + [size]
