"""The demo's signed way: a key, a signature, and a server whose connection breaks three times."""
import signal
import subprocess
import threading
import time

from lab.fetching import Origin
from lab.module import BIN_DIR, MIB, NAMESPACE

import screen

BREAKS = (2 * MIB, 4 * MIB, 7 * MIB)  # bytes of the package
PIECE = 32 * 1024  # bytes
PAUSE = PIECE / (2500 * 1024)  # seconds, for a speed that can be watched
LIMIT = 120  # seconds


def _minisign(folder, *words):
    subprocess.run(["minisign", *words], cwd=folder, check=True, stdout=subprocess.DEVNULL)


def sign(folder, package):
    """Signs a package as its maker does. Returns the files for the server."""
    _minisign(folder, "-GW", "-p", "maker.pub", "-s", "maker.key")
    subprocess.run([BIN_DIR / "tarv-pkg", "digests", package], check=True)
    _minisign(folder, "-Sm", f"{package.name}.digests", "-s", "maker.key", "-t", f"{package.name}, made just now")
    screen.item("signed", f"{package.name}.digests, with a key made just now; the module has its public half")
    return {f"/{name}": (folder / name).read_bytes()
            for name in (package.name, f"{package.name}.digests", f"{package.name}.digests.minisig")}


def slowly(place):
    """Sends the package piece by piece, up to this byte."""
    def step(answer, data):
        at = answer.header(data)
        while at < min(place, len(data)):
            answer.wfile.write(data[at:min(at + PIECE, place)])
            at = min(at + PIECE, place)
            time.sleep(PAUSE)
    return step


def server(files, package):
    plan = [slowly(place) for place in BREAKS]
    return Origin(files, plan, rest=slowly(1 << 40), planned=(f"/{package.name}",))


def _show(lines):
    """Only the lines of tarv-fetch: the updater's own are in its log."""
    for own in (line.removeprefix("tarv-fetch: ") for line in lines if line.startswith("tarv-fetch: ")):
        print("\r" + screen.paint("dim", "  " + own.rstrip()), flush=True)


def run(module, folder, url, follow):
    """Runs tarv-fetch, and follows the updater that it starts. Returns the last status, 0 if none was started."""
    command = [NAMESPACE, module.folder, BIN_DIR / "tarv-fetch", "--updater", f"/host{BIN_DIR}/tarvolin-sim",
               "--key", f"/host{folder}/maker.pub", url]
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                          text=True) as process:
        threading.Thread(target=_show, args=(process.stderr,), daemon=True).start()
        try:
            screen.heading("tarv-fetch, and the updater's progress as tarv-watch shows it")
            status = follow(module)
            return status if process.wait(LIMIT) == 0 else 0
        finally:
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
