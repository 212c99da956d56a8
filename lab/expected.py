"""What flash and the run directory must hold after an update with a package, without any of the program's own code."""
import itertools

from lab.packages import RECOVERY_NAMES, STORE_NAMES
from lab.store_record import StoreRecord, padded

STORE_LIST = ("userdata", "recoveryfs", "recovery", "vexonv")
RESERVES = {"userdata": 0xA00000, "recoveryfs": 0x400000, "recovery": 0x200000, "vexonv": 0x200000}


def store_names(module):
    """The module's store partitions: the store ends before the first of the list that is missing."""
    return list(itertools.takewhile(lambda name: name in module.partitions, STORE_LIST))


def capacity(partition, module):
    """Bytes of package data that a store partition takes."""
    head = 1 if partition == STORE_LIST[0] else 0
    blocks = len(module.good_blocks(partition)) - head - RESERVES[partition] // module.block
    return max(blocks, 0) * module.block


def lay_blocks(module, name, data, skip=0):
    """A partition, first erased, then written from its good block number `skip` on."""
    flash = bytearray(module.initial(name))
    good = module.good_blocks(name)
    for block in good:
        flash[block * module.block : (block + 1) * module.block] = b"\xff" * module.block
    for n, at in enumerate(range(0, len(data), module.block)):
        piece = data[at : at + module.block].ljust(module.block, b"\0")
        block = good[skip + n]
        flash[block * module.block : (block + 1) * module.block] = piece
    return bytes(flash)


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
        record = StoreRecord.of(package.store_images(), saved, armed, rmrfnvbak, need)
        first = record.bytes().ljust(module.block, b"\0") + pieces[0]
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
