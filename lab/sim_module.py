"""A module with simulated flash, in a folder of its own."""
import pathlib
import shutil
import tempfile

from lab.module import BIN_DIR, MIB, NAMESPACE, Module


def _memory_folder():
    """A folder in memory, if there is room for large modules: a run rewrites its files with every block it receives, for
    which disks have it wait. None stands for the usual place."""
    shared = pathlib.Path("/dev/shm")
    return shared if shared.is_dir() and shutil.disk_usage(shared).free > 1024 * MIB else None


class SimModule(Module):
    """`faults` is a plan of what goes wrong on its flash, `revid` the module's version text."""

    program = "tarvolin-sim"

    def __init__(self, partitions=None, bad=None, faults="", revid="31405-old"):
        super().__init__(partitions, bad)
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tarv-module-", dir=_memory_folder()))
        self.flash = self.folder / "flash"
        self.run_dir = self.folder / "tmp" / "tarvolin"
        for name in ("flash", "tmp", "run", "data", "bin"):
            (self.folder / name).mkdir()
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

    def __exit__(self, *_):
        shutil.rmtree(self.folder, ignore_errors=True)

    def _file(self, name):
        return f"mtd{list(self.partitions).index(name)}.bin"

    def initial(self, name):
        """What stood on the partition before the first run."""
        if name not in self._initial:
            self._initial[name] = (name.encode() + b" stale ").ljust(64, b"#") * (self.partitions[name] // 64)
        return self._initial[name]

    def dump(self, name):
        return (self.flash / self._file(name)).read_bytes()

    def split(self, flash):
        return [flash[at : at + self.block] for at in range(0, len(flash), self.block)]

    def page_states(self, name):
        """A byte for each page: 0 erased, 1 programmed, 2 torn."""
        return (self.flash / self._file(name)).with_suffix(".pages").read_bytes()

    def lay_flash(self, pages=None):
        """Makes flash what it was before the first run, with these states of pages (name: bytes) or all programmed."""
        for name, size in self.partitions.items():
            path = self.flash / self._file(name)
            path.with_suffix(".pages").write_bytes(pages[name] if pages else b"\1" * (size // self.page))
            with path.open("r+b") as file:  # not cut first: that takes longer
                file.write(self.initial(name))
        for name in "violation", "marked":
            (self.flash / name).unlink(missing_ok=True)

    def _lines(self, name):
        path = self.flash / name
        return path.read_text().splitlines() if path.exists() else []

    def marked(self):
        """The blocks that faults have left marked bad, as (partition, number)."""
        return {(name, int(block)) for _, name, block in map(str.split, self._lines("marked"))}

    def struck(self):
        """The lines of the fault plan that have struck in the last run."""
        return self._lines("struck")

    def counts(self):
        """Operations on flash of the last run."""
        lines = (self.flash / "counts").read_text().split("\n")
        return {name: int(n) for name, n in (line.split() for line in lines if line)}

    def set_faults(self, faults):
        (self.flash / "faults").write_text(faults)

    def check_violation(self):
        if (self.flash / "violation").exists():
            raise AssertionError("flash misused: " + (self.flash / "violation").read_text())

    def command(self, program):
        return [str(NAMESPACE), str(self.folder), str(BIN_DIR / program)]
