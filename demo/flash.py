"""What lies on a simulated module's flash, read from the module's flash files without any code of the updater."""
import struct

STORE = ("userdata", "recoveryfs", "recovery", "vexonv")
ARMED = 0x54415256


def read_partition(module, name):
    """The bytes of a partition's good blocks, in order."""
    flash, size = module.dump(name), module.block
    return b"".join(flash[b * size : (b + 1) * size] for b in module.good_blocks(name))


def read_store(module):
    """The store's images by name, as the software that restores them would find them: through the head record."""
    parts = [read_partition(module, name) for name in STORE]
    record, parts[0] = parts[0][:400], parts[0][module.block :]
    magic, _, _, *counts, image_num = struct.unpack_from("<Iii3II", record)
    if magic != ARMED:
        return {}
    entries = [struct.unpack_from("<32sIII", record, 44 + 44 * i) for i in range(image_num)]
    # The record counts the bytes of three store partitions; the fourth holds what is left.
    counts.append(sum(aligned for _, _, aligned, _ in entries) - sum(counts))
    stream = b"".join(part[:count] for part, count in zip(parts, counts))
    images, at = {}, 0
    for name, size, aligned, _ in entries:
        images[name.rstrip(b"\0").decode()] = stream[at : at + size]
        at += aligned
    return images


def block_states(module, name):
    """One letter a block: x bad, H store head record, # data, . erased, ~ as before the update."""
    flash, before, size = module.dump(name), module.initial(name), module.block
    good = module.good_blocks(name)

    def state(block):
        content = flash[block * size : (block + 1) * size]
        if block not in good:
            return "x"
        if content == b"\xff" * size:
            return "."
        if content == before[block * size : (block + 1) * size]:
            return "~"
        return "H" if name == STORE[0] and block == good[0] else "#"

    return "".join(map(state, range(len(flash) // size)))
