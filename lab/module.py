"""What every module of the lab has, wherever its flash is: a folder, runs of the updater, and what they leave."""
import os
import pathlib
import signal
import subprocess
from dataclasses import dataclass

REPOSITORY = pathlib.Path(__file__).resolve().parents[1]
NAMESPACE = REPOSITORY / "lab" / "namespace"
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


def without(*names):
    """The partitions of a module that lacks some."""
    return {name: size for name, size in SMALL.items() if name not in names}


@dataclass
class Run:
    status: int
    output: str
    errors: str


class Module:
    """Flash with the given partitions (name: bytes) and bad blocks (name: block numbers), filled with stale data.

    A kind of module sets `folder` and `run_dir`, and has `initial(name)` and `dump(name)`: the bytes of a partition before
    the first run and now. `command` and `environment` say how a program is started on it.
    """

    block = 128 * KIB
    page = 2 * KIB
    program = None  # the updater's name

    def __init__(self, partitions, bad):
        self.partitions = dict(partitions or SMALL)
        self.bad = {name: set(blocks) for name, blocks in (bad or {}).items()}
        self._initial = {}

    def __enter__(self):
        return self

    def good_blocks(self, name):
        return [b for b in range(self.partitions[name] // self.block) if b not in self.bad.get(name, ())]

    def dumps(self):
        return {name: self.dump(name) for name in self.partitions}

    def is_untouched(self):
        return all(self.dump(name) == self.initial(name) for name in self.partitions)

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

    def check_violation(self):
        """Fails when the last run misused flash, as far as this module can notice."""

    def command(self, program):
        """How a program of ours is started on this module."""
        raise NotImplementedError

    def environment(self):
        """Of the programs that are started on this module; None: that of this program."""
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
        self.check_violation()
        if "Sanitizer" in errors or "runtime error" in errors:
            raise AssertionError(errors)
        return Run(process.returncode, output, errors)
