"""A simulated module in a folder of its own, and runs of the updater on it."""
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
from dataclasses import dataclass

REPOSITORY = pathlib.Path(__file__).resolve().parents[1]
WRAPPER = REPOSITORY / "sim" / "module"
BIN_DIR = pathlib.Path(os.environ.get("TARV_BIN_DIR", REPOSITORY / "build" / "debug" / "bin")).resolve()
KIB, MIB = 1024, 1024 * 1024

# Store partitions a little larger than the reserve that stays free in each, and targets for the other groups.
SMALL = {
    "boot": 512 * KIB,
    "userdata": 12 * MIB,
    "recoveryfs": 5 * MIB,
    "recovery": 3 * MIB,
    "vexonv": 3 * MIB,
    "sbl": 256 * KIB,
    "efs2bak": 256 * KIB,
    "system": 256 * KIB,
}


def _memory_folder():
    """A folder in memory, if there is room for large modules: a run rewrites its files with every block it receives, for
    which disks have it wait. None stands for the usual place."""
    shared = pathlib.Path("/dev/shm")
    return shared if shared.is_dir() and shutil.disk_usage(shared).free > 1024 * MIB else None


def without(*names):
    """The partitions of a module that lacks some."""
    return {name: size for name, size in SMALL.items() if name not in names}


@dataclass
class Run:
    status: int
    output: str
    errors: str


class Module:
    """Flash with the given partitions (name: bytes) and bad blocks (name: block numbers), filled with stale data."""

    block = 128 * KIB
    page = 2 * KIB
    program = "tarvolin-sim"

    def __init__(self, partitions=None, bad=None, faults="", revid="31405-old"):
        self.partitions = dict(partitions or SMALL)
        self.bad = {name: set(blocks) for name, blocks in (bad or {}).items()}
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tarv-module-", dir=_memory_folder()))
        self.flash = self.folder / "flash"
        self.run_dir = self.folder / "tmp" / "tarvolin"
        for name in ("flash", "tmp", "run", "data", "bin"):
            (self.folder / name).mkdir()
        self._initial = {}
        lines = [f"erase_size {self.block}", f"page_size {self.page}"]
        lines += [f"partition {i} {name} {size}" for i, (name, size) in enumerate(self.partitions.items())]
        lines += [f"bad {name} {' '.join(map(str, sorted(blocks)))}" for name, blocks in self.bad.items() if blocks]
        (self.flash / "module.conf").write_text("\n".join(lines) + "\n")
        (self.flash / "faults").write_text(faults)
        for name in self.partitions:
            (self.flash / self._file(name)).write_bytes(self.initial(name))
        if revid is not None:
            (self.folder / "tmp" / "revid").write_text(revid)
        self.add_command("ubinfo", "exit 0")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.folder, ignore_errors=True)

    def _file(self, name):
        return f"mtd{list(self.partitions).index(name)}.bin"

    def initial(self, name):
        """What stood on the partition before the first run."""
        if name not in self._initial:
            self._initial[name] = (name.encode() + b" stale ").ljust(64, b"#") * (self.partitions[name] // 64)
        return self._initial[name]

    def good_blocks(self, name):
        return [b for b in range(self.partitions[name] // self.block) if b not in self.bad.get(name, ())]

    def dump(self, name):
        return (self.flash / self._file(name)).read_bytes()

    def dumps(self):
        return {name: self.dump(name) for name in self.partitions}

    def is_untouched(self):
        return all(self.dump(name) == self.initial(name) for name in self.partitions)

    def counts(self):
        """Operations on flash of the last run."""
        lines = (self.flash / "counts").read_text().split("\n")
        return {name: int(n) for name, n in (line.split() for line in lines if line)}

    def set_faults(self, faults):
        (self.flash / "faults").write_text(faults)

    def add_command(self, name, script, where="bin"):
        """A command of the module: first on PATH, or (where "usr_bin") in /usr/bin."""
        path = self.folder / where / name
        path.parent.mkdir(exist_ok=True)
        path.write_text("#!/bin/sh\n" + script + "\n")
        path.chmod(0o755)

    def recorded_calls(self):
        """What commands of the module have written to /tmp/calls, or None."""
        path = self.folder / "tmp" / "calls"
        return path.read_text() if path.exists() else None

    def text(self, name):
        """A file of the run directory, or None."""
        path = self.run_dir / name
        return path.read_text(errors="replace") if path.exists() else None

    def files(self):
        """Every file of the run directory."""
        return {p.name: p.read_bytes() for p in self.run_dir.iterdir()} if self.run_dir.exists() else {}

    def log(self):
        return (self.text("tarv_log_bak") or "") + (self.text("tarv_log") or "")

    def history(self):
        return [line.replace("TARV_STATUS_", "") for line in (self.text("status_str") or "").split()]

    def _check_violation(self):
        if (self.flash / "violation").exists():
            raise AssertionError("flash misused: " + (self.flash / "violation").read_text())

    def command(self, program):
        """How a program of ours is started on this module."""
        return [str(WRAPPER), str(self.folder), str(BIN_DIR / program)]

    def environment(self):
        return None

    def run(self, url, *options, program=None, timeout=120):
        """A whole run in the foreground."""
        command = [*self.command(program or self.program), "--debug", "--url", url, *options]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace",
                              stdin=subprocess.DEVNULL, start_new_session=True, env=self.environment()) as process:
            try:
                output, errors = process.communicate(timeout=timeout)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                raise
        self._check_violation()
        if "Sanitizer" in errors or "runtime error" in errors:
            raise AssertionError(errors)
        return Run(process.returncode, output, errors)


SimModule = Module
if os.environ.get("TARV_FLASH") == "mtd":  # in a test machine: the kernel's own flash
    from mtd_module import MtdModule as Module  # noqa: E402,F811
