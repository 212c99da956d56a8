"""The checksum's speed and the program's size."""
import pathlib
import re
import subprocess
import tempfile

from table import Row, ratio


def checksum(bin_dir):
    bytewise, ours, zlib = map(float, subprocess.check_output([bin_dir / "crc-rounds", "time"], text=True).split())
    return [ratio("CRC, x86-64", ours, bytewise, ">= 4", "MB/s", "byte-wise"),
            ratio("CRC, x86-64", ours, zlib, ">= 0.9", "MB/s", "zlib")]


def checksum_on_arm(bin_dir, sysroot):
    """Instructions for 8 bytes, counted by the emulator as it takes them one by one."""
    def count(name, passes):
        command = ["qemu-arm-static", "-L", sysroot, "-singlestep", "-d", "nochain,exec", "-D", "/dev/stdout",
                   bin_dir / "crc-rounds", name, str(passes)]
        return subprocess.check_output(command, stderr=subprocess.DEVNULL).count(b"Trace ")

    def per_eight_bytes(name):
        return (count(name, 3) - count(name, 1)) / (2 * 4096 / 8)

    ours, bytewise = per_eight_bytes("ours"), per_eight_bytes("bytewise")
    return [Row("CRC, 32-bit ARM, 8 bytes", f"{ours:.1f} instructions", f"{bytewise:.1f}, byte-wise", bytewise / ours,
                ">= 2.5")]


def stripped_size(bin_dir, program, limit, prefix="arm-linux-gnueabihf-"):
    """`limit` is in KiB."""
    with tempfile.TemporaryDirectory() as folder:
        stripped = pathlib.Path(folder) / program
        subprocess.run([prefix + "strip", "-o", stripped, bin_dir / program], check=True)
        size = stripped.stat().st_size
        dynamic = subprocess.check_output([prefix + "readelf", "-d", stripped], text=True)
    needed = re.findall(r"\(NEEDED\).*\[(.*?)\]", dynamic)
    return Row(f"{program} for 32-bit ARM, stripped", f"{size:,} bytes", "needs " + ", ".join(needed), size / 1024,
               f"<= {limit}")


def size_on_arm(bin_dir):
    return [stripped_size(bin_dir, "tarvolin", 120), stripped_size(bin_dir, "tarv-restore", 64)]
