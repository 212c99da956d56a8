"""A module on the kernel's own NAND: nandsim in a test machine. Stands in for the simulated one in whole runs.

Flash is prepared with plain writes and read with nanddump, never with the program's own code. Blocks are 128 KiB, pages 2 KiB,
512 blocks in all.
"""
import os
import pathlib
import shutil
import subprocess
import tempfile

from lab.module import BIN_DIR, Module

MODPROBE = ["modprobe", "-d", "/modules"]


def load_kernel_modules(*names):
    for name in names:
        subprocess.run([*MODPROBE, name], check=True)


class MtdModule(Module):
    """`nandsim` adds the kernel simulator's own faults: weakblocks, weakpages and gravepages, as (partition, number) pairs, or
    (partition, number, count) when they begin after so many erases, writes or reads; `options` go to it as they are."""

    program = "tarvolin"

    def __init__(self, partitions=None, bad=None, revid="31405-old", nandsim=None, options=()):
        super().__init__(partitions, bad)
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tarv-module-"))
        self.run_dir = pathlib.Path("/tmp/tarvolin")
        for name, real in (("tmp", "/tmp"), ("run", "/var/run"), ("data", "/data"), ("usr_bin", "/usr/bin")):
            (self.folder / name).symlink_to(real)
        (self.folder / "bin").mkdir()
        self._added = []
        self._load_nand(nandsim or {}, options)
        for name in self.partitions:
            self._write_stale(name)
        if revid is not None:
            pathlib.Path("/tmp/revid").write_text(revid)

    def __exit__(self, *_):
        subprocess.run(["umount", "/proc/mtd"], check=False)
        subprocess.run(["rmmod", "nandsim"], check=True)
        shutil.rmtree("/tmp/tarvolin", ignore_errors=True)
        pathlib.Path("/tmp/revid").unlink(missing_ok=True)
        for path in self._added:
            path.unlink()
        shutil.rmtree(self.folder)

    def _block_number(self, name, block):
        """Number of a partition's block on the whole chip."""
        before = list(self.partitions.values())[: list(self.partitions).index(name)]
        return sum(before) // self.block + block

    def _load_nand(self, faults, further_options):
        sizes = ",".join(str(size // self.block) for size in self.partitions.values())
        options = ["id_bytes=0x20,0xa2,0x00,0x15", f"parts={sizes}", *further_options]
        bad = [self._block_number(name, b) for name, blocks in self.bad.items() for b in blocks]
        if bad:
            options.append("badblocks=" + ",".join(map(str, bad)))
        for kind, places in faults.items():
            scale = 1 if kind == "weakblocks" else self.block // self.page
            numbers = [(self._block_number(name, 0) * scale + n, *count) for name, n, *count in places]
            options.append(f"{kind}=" + ",".join(f"{n}:{count[0] if count else 0}" for n, *count in numbers))
        subprocess.run([*MODPROBE, "nandsim", *options], check=True)
        # The kernel's names are fixed; the program sees the module's in a copy of the list.
        lines = pathlib.Path("/proc/mtd").read_text().splitlines()[: len(self.partitions) + 1]
        renamed = [f"{line.split(chr(34))[0]}\"{name}\"" for line, name in zip(lines[1:], self.partitions)]
        copy = self.folder / "proc-mtd"
        copy.write_text("\n".join([lines[0], *renamed]) + "\n")
        subprocess.run(["mount", "--bind", str(copy), "/proc/mtd"], check=True)

    @classmethod
    def stale(cls, name):
        """A page of what stood on a partition before the first run."""
        return (name.encode() + b" stale ").ljust(64, b"#") * (cls.page // 64)

    def device(self, name):
        return f"/dev/mtd{list(self.partitions).index(name)}"

    def initial(self, name):
        """Stale data in the first page of every good block; bad blocks are shown as erased."""
        if name not in self._initial:
            stale = self.stale(name)
            good = set(self.good_blocks(name))
            blocks = self.partitions[name] // self.block
            self._initial[name] = b"".join(
                (stale if b in good else b"").ljust(self.block, b"\xff") for b in range(blocks)
            )
        return self._initial[name]

    def _write_stale(self, name):
        fd = os.open(self.device(name), os.O_WRONLY)
        for block in self.good_blocks(name):
            at = block * self.block
            try:
                os.pwrite(fd, self.initial(name)[at : at + self.page], at)
            except OSError:
                pass  # a page that is to fail
        os.close(fd)

    def dump(self, name):
        command = ["nanddump", "--quiet", "--bb=padbad", self.device(name)]
        return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True).stdout

    def add_command(self, name, script, where="bin"):
        super().add_command(name, script, where)
        self._added.append(self.folder / where / name)

    def command(self, program):
        return [str(BIN_DIR / program)]

    def environment(self):
        return {**os.environ, "PATH": f"{self.folder}/bin:{os.environ['PATH']}"}
