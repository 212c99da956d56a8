"""What lies on a simulated module's flash, read from the module's flash files without any code of the updater."""
from lab.expected import STORE_LIST
from lab.store_record import StoreRecord


def read_partition(module, name):
    """The bytes of a partition's good blocks, in order."""
    flash, size = module.dump(name), module.block
    return b"".join(flash[b * size : (b + 1) * size] for b in module.good_blocks(name))


def read_store(module):
    """The store's images by name, as the software that restores them would find them: through the head record."""
    parts = [read_partition(module, name) for name in STORE_LIST]
    record = StoreRecord.read(parts[0])
    if not record.is_armed():
        return {}
    parts[0] = parts[0][module.block :]
    stream = b"".join(part[:count] for part, count in zip(parts, record.all_counts()))
    return {image.name: data for image, data in zip(record.images, record.cut(stream))}


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
        return "H" if name == STORE_LIST[0] and block == good[0] else "#"

    return "".join(map(state, range(len(flash) // size)))
