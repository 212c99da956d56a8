"""Firmware packages made byte by byte, independently of the program's own code, and what updates with them leave."""
import itertools
import struct
import zlib
from dataclasses import dataclass, field

HEAD_SIZE = 3536
MAGIC = 0x7665786F
STORING, RESTORE = 0x54415240, 0x54415256
STORE_NAMES = ("system", "modem", "systemdata")
RECOVERY_NAMES = ("recovery", "recoveryfs")
STORE_LIST = ("userdata", "recoveryfs", "recovery", "vexonv")
RESERVES = {"userdata": 0xA00000, "recoveryfs": 0x400000, "recovery": 0x200000, "vexonv": 0x200000}


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


def padded(size):
    return (size + 4095) & ~4095


def store_names(module):
    """The module's store partitions: the store ends before the first of the list that is missing."""
    return list(itertools.takewhile(lambda name: name in module.partitions, STORE_LIST))


def capacity(partition, module):
    """Bytes of package data that a store partition takes."""
    head = 1 if partition == STORE_LIST[0] else 0
    blocks = len(module.good_blocks(partition)) - head - RESERVES[partition] // module.block
    return max(blocks, 0) * module.block


def lay_blocks(module, name, data, skip=0):
    """A partition that was erased and then written from its good block number `skip` on."""
    flash = bytearray(module.initial(name))
    good = module.good_blocks(name)
    for block in good:
        flash[block * module.block : (block + 1) * module.block] = b"\xff" * module.block
    for n, at in enumerate(range(0, len(data), module.block)):
        piece = data[at : at + module.block].ljust(module.block, b"\0")
        block = good[skip + n]
        flash[block * module.block : (block + 1) * module.block] = piece
    return bytes(flash)


def head_record(package, saved, armed, rmrfnvbak=0, need_recovery=0):
    """The 400 bytes of the store head record. `saved` counts the bytes in each store partition."""
    images = package.store_images() if armed else []
    counts = saved[:3] if armed else [0, 0, 0]
    out = struct.pack("<Iii", RESTORE if armed else STORING, 4 if armed else 1, sum(1 for c in counts if c))
    out += struct.pack("<3I", *counts) + struct.pack("<5I", len(images), rmrfnvbak, 0, 0, 0)
    for i in images:
        out += struct.pack("<32sIII", i.name.encode(), len(i.data), padded(len(i.data)), jamcrc(i.data))
    return out.ljust(396, b"\0") + struct.pack("<I", need_recovery)


def store_split(package, module):
    """The store stream cut into the pieces that each store partition holds, as far as the stream gets."""
    stream = b"".join(i.data.ljust(padded(len(i.data)), b"\0") for i in package.store_images())
    pieces = []
    for name in store_names(module):
        room = capacity(name, module)
        pieces.append(stream[:room])
        full, stream = len(stream) >= room, stream[room:]
        if not full:
            break
    return pieces


def expected_flash(package, module, rmrfnvbak=0, armed=True):
    """Every byte of every partition after a successful update, or one that failed before it installed anything (`armed`
    false), of flash without failing blocks."""
    flash = {name: module.initial(name) for name in module.partitions}
    if package.store_images():
        pieces = store_split(package, module)
        saved = [len(p) for p in pieces] + [0] * (4 - len(pieces))
        total = sum(len(i.data) for i in package.store_images())
        need = int(capacity(STORE_LIST[0], module) < total)
        record = head_record(package, saved, armed, rmrfnvbak, need)
        first = record.ljust(module.block, b"\0") + pieces[0]
        flash[STORE_LIST[0]] = lay_blocks(module, STORE_LIST[0], first)
        for name, piece in zip(STORE_LIST[1:], pieces[1:]):
            flash[name] = lay_blocks(module, name, piece)
    for image in package.images:
        if image.name in RECOVERY_NAMES or (armed and image.name not in STORE_NAMES):
            flash[image.name] = lay_blocks(module, image.name, image.data)
    return flash


def expected_files(package, http_header):
    """The files of the run directory after a successful update. None stands for contents that vary."""
    final = "RESTORE" if package.store_images() else "SUCCESS"
    history = ["IDLE", "DOWNLOAD", "CHECK", "INSTALL", final, final]
    length = str(len(package.bytes())).encode()
    files = {"status": b"4" if final == "RESTORE" else b"5", "head": package.head(), "http_header": http_header,
             "status_str": "".join(f"TARV_STATUS_{name}\n" for name in history).encode(),
             "file_size": length, "download_size": length}
    files.update(dict.fromkeys(("tarv_log", "download_time", "check_time", "install_time", "total_time")))
    if package.first_name() in RECOVERY_NAMES:
        files["pt_type"] = b"3"
    elif final == "SUCCESS":
        files["pt_type"] = b"2"
    for image in package.images:
        if image.name not in STORE_NAMES + RECOVERY_NAMES:
            files[image.saved_name()] = image.data
    return files


def differences(module, package, http_header, **record):
    """The partitions and files that are not as a successful update leaves them. `record` is for the head record."""
    flash, files = expected_flash(package, module, **record), expected_files(package, http_header)
    found = module.files()
    found.update((name, None) for name, data in files.items() if data is None and name in found)
    return ([f"partition {name}" for name in module.partitions if module.dump(name) != flash[name]] +
            [f"file {name}" for name in sorted({*files, *found})
             if name not in found or name not in files or found[name] != files[name]])
