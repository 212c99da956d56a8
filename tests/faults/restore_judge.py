"""What a restore left on flash, judged without any of its code."""
from lab.expected import STORE_LIST, lay_blocks, store_names
from lab.store_record import RESTORE, StoreRecord, padded

RESTORED, REFUSED, FAILED, NOTHING, POWER_LOST = 0, 10, 11, 20, 97
OUTCOMES = {RESTORED: "restored", REFUSED: "refused", FAILED: "failed", NOTHING: "nothing", POWER_LOST: "recovered"}
TORN = 2


def split(module, flash):
    return [flash[at : at + module.block] for at in range(0, len(flash), module.block)]


def is_torn(module, name, block):
    pages = module.block // module.page
    return TORN in module.page_states(name)[block * pages : (block + 1) * pages]


def readable(module, name, unreadable=()):
    """The blocks that a reader takes, by number: neither marked bad nor torn nor broken for good."""
    return {b: data for b, data in enumerate(split(module, module.dump(name)))
            if b in module.good_blocks(name) and not is_torn(module, name, b) and (name, b) not in unreadable}


def lay_store(module, images, counts):
    """Flash with an armed store of these images, `counts` blocks in each partition. A partition's torn blocks are passed
    over like bad ones. Returns the bytes by partition."""
    stream = b"".join(image.data.ljust(padded(len(image.data)), b"\0") for image in images)
    saved, flash = [], {}
    for name, count in zip(store_names(module), counts):
        piece, stream = stream[: count * module.block], stream[count * module.block :]
        saved.append(len(piece))
        flash[name] = piece
    assert not stream, "the store is too small"
    record = StoreRecord.of(images, saved, True, 0, 0).bytes()
    flash[STORE_LIST[0]] = record.ljust(module.block, b"\0") + flash[STORE_LIST[0]]
    return {name: lay_blocks(module, name, data) for name, data in flash.items()}


def is_armed(module):
    head = module.good_blocks("userdata")[0]
    state = module.page_states("userdata")[head * module.block // module.page]
    return state != TORN and split(module, module.dump("userdata"))[head][:4] == RESTORE.to_bytes(4, "little")


def wrong_targets(module, images, unreadable=()):
    """The targets that do not hold their image and nothing else, as a reader that passes over broken blocks finds them."""
    wrong = []
    for name, data in images.items():
        found = b"".join(readable(module, name, unreadable).values())
        if found[: len(data)] != data or found[len(data) :].strip(b"\xff"):
            wrong.append(name)
    return wrong


def programmed_ends(module, names):
    """Blocks whose last pages were programmed though they hold nothing but 0xFF."""
    pages = module.block // module.page
    return [(name, b) for name in names for b, data in readable(module, name).items()
            if data.endswith(b"\xff" * module.page) and module.page_states(name)[(b + 1) * pages - 1] != 0]


def judge(module, images, status, unreadable=(), erases=True):
    """Raises an AssertionError. `unreadable` are the blocks that a fault keeps from being read, for good. `erases`: no
    fault keeps blocks from being erased."""
    assert status in OUTCOMES, f"exit status {status}"
    head, pages = module.good_blocks("userdata")[0], module.block // module.page
    armed, wrong = is_armed(module), wrong_targets(module, images, unreadable)
    for name in module.partitions:
        pairs = zip(split(module, module.initial(name)), split(module, module.dump(name)))
        changed = {b for b, (before, after) in enumerate(pairs) if before != after}
        allowed = set(module.good_blocks(name)) if name in images else {head} if name == "userdata" else set()
        assert not changed - allowed, f"blocks {changed - allowed} of {name} were changed"
    if status in (REFUSED, NOTHING):
        assert module.is_untouched(), "written, and yet nothing was to be done"
    assert armed or not wrong, f"disarmed over wrong {wrong}"
    if armed:
        stands = module.dump("userdata")[head * module.block :][: module.block]
        assert stands == module.initial("userdata")[head * module.block :][: module.block], "the record was changed"
    if status == RESTORED:
        assert not wrong, f"exit status 0 over wrong {wrong}"
        first = split(module, module.dump("userdata"))[head]
        assert not first.strip(b"\xff") and TORN not in module.page_states("userdata")[head * pages : (head + 1) * pages], \
            "not disarmed"
        torn = [(name, b) for name in images for b in module.good_blocks(name) if is_torn(module, name, b)]
        assert not torn or not erases, f"torn blocks are left: {torn}"
        assert not programmed_ends(module, images), f"programmed with 0xFF: {programmed_ends(module, images)}"
