"""Firmware packages made byte by byte, without any of the program's own code. What they leave: lab/expected.py."""
import struct
import zlib
from dataclasses import dataclass, field

HEAD_SIZE = 3536
MAGIC = 0x7665786F
STORE_NAMES = ("system", "modem", "systemdata")
RECOVERY_NAMES = ("recovery", "recoveryfs")


def jamcrc(data):
    return zlib.crc32(data) ^ 0xFFFFFFFF


def noise(size, seed=1):
    """Bytes that no erased, zeroed or shifted flash could be taken for."""
    out = bytearray()
    state = seed & 0xFFFFFFFF
    while len(out) < size:
        state = (state * 1664525 + 1013904223) & 0xFFFFFFFF
        out += struct.pack("<I", state) * 7 + struct.pack("<I", len(out))
    return bytes(out[:size])


@dataclass
class Image:
    name: str
    data: bytes
    file_name: str = None
    size: int = None  # as the table announces it
    crc: int = None
    behind: bytes = b""  # what stands in the name's field, behind the name and its NUL

    def saved_name(self):
        return self.file_name if self.file_name is not None else self.name + ".img"

    def entry(self):
        size = len(self.data) if self.size is None else self.size
        crc = jamcrc(self.data) if self.crc is None else self.crc
        name = _bytes(self.name) + (b"\0" + self.behind if self.behind else b"")
        return struct.pack("<32s68sII", name, _bytes(self.saved_name()), size, crc)


@dataclass
class Package:
    images: list = field(default_factory=list)
    version: str = "31405-test"
    magic: int = MAGIC
    head_size: int = HEAD_SIZE
    image_num: int = None
    head_crc: int = None
    unused: bytes = b""  # table bytes behind the images

    def head(self):
        num = len(self.images) if self.image_num is None else self.image_num
        table = (b"".join(i.entry() for i in self.images) + self.unused).ljust(32 * 108, b"\0")[: 32 * 108]
        front = struct.pack("<IHH64sHH", self.magic, 1, 2, _bytes(self.version), self.head_size, num) + table
        return front + struct.pack("<I", jamcrc(front) if self.head_crc is None else self.head_crc)

    def bytes(self):
        return self.head() + b"".join(i.data for i in self.images)

    def first_name(self):
        """The partition that the first entry names, which counts even where no image is announced."""
        return self.head()[76:108].split(b"\0")[0].decode(errors="replace")

    def store_images(self):
        return [i for i in self.images if i.name in STORE_NAMES]


def images(*names_and_sizes):
    """A package of images: name, size, name, size ..."""
    names, sizes = names_and_sizes[::2], names_and_sizes[1::2]
    return Package([Image(name, noise(size, seed)) for seed, (name, size) in enumerate(zip(names, sizes), 1)])


def no_images(first="system"):
    """An empty package; its first entry still has to name a partition that updaters know."""
    return Package(unused=_bytes(first).ljust(108, b"\0"), image_num=0)


def _bytes(text):
    return text if isinstance(text, bytes) else text.encode()
