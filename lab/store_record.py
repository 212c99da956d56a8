"""The store head record, made and read: the one place in Python that knows its layout."""
import struct
from dataclasses import dataclass, field

from lab.packages import jamcrc

STORING, RESTORE = 0x54415240, 0x54415256
SIZE = 400
FRONT, IMAGE, LAST = struct.Struct("<Iii3I5I"), struct.Struct("<32sIII"), struct.Struct("<I")


def padded(size):
    return (size + 4095) & ~4095


@dataclass
class StoredImage:
    name: str
    size: int
    padded_size: int
    crc: int


@dataclass
class StoreRecord:
    magic: int
    status: int
    valid_partitions: int
    counts: list  # bytes of the stream in the first three store partitions
    rmrfnvbak: int = 0
    images: list = field(default_factory=list)
    need_recovery: int = 0

    @classmethod
    def of(cls, images, saved, armed, rmrfnvbak, need_recovery):
        """As an update leaves it that saved that many bytes in each store partition, before it is armed or behind that."""
        if not armed:
            return cls(STORING, 1, 0, [0, 0, 0], rmrfnvbak, [], need_recovery)
        stored = [StoredImage(i.name, len(i.data), padded(len(i.data)), jamcrc(i.data)) for i in images]
        return cls(RESTORE, 4, sum(1 for count in saved[:3] if count), saved[:3], rmrfnvbak, stored, need_recovery)

    @classmethod
    def read(cls, data):
        """The record that `data` begins with. Its numbers are as they stand there."""
        magic, status, valid, *counts, number, rmrfnvbak, _, _, _ = FRONT.unpack_from(data)
        entries = [IMAGE.unpack_from(data, FRONT.size + IMAGE.size * i) for i in range(min(number, 8))]
        images = [StoredImage(name.rstrip(b"\0").decode(errors="replace"), *numbers) for name, *numbers in entries]
        return cls(magic, status, valid, counts, rmrfnvbak, images, *LAST.unpack_from(data, SIZE - LAST.size))

    def bytes(self):
        out = FRONT.pack(self.magic, self.status, self.valid_partitions, *self.counts, len(self.images), self.rmrfnvbak,
                         0, 0, 0)
        out += b"".join(IMAGE.pack(i.name.encode(), i.size, i.padded_size, i.crc) for i in self.images)
        return out.ljust(SIZE - LAST.size, b"\0") + LAST.pack(self.need_recovery)

    def is_armed(self):
        return self.magic == RESTORE

    def all_counts(self):
        """With the fourth store partition's, which the record leaves out: it holds the rest of the stream."""
        return [*self.counts, sum(image.padded_size for image in self.images) - sum(self.counts)]

    def cut(self, stream):
        """The images' data, in the order of the list."""
        ends = [sum(image.padded_size for image in self.images[:i]) for i in range(len(self.images))]
        return [stream[at : at + image.size] for at, image in zip(ends, self.images)]
