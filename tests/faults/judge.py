"""What a run of the updater left behind, judged without any of its code."""
import re

from lab.packages import jamcrc
from lab.store_record import StoreRecord

STATUSES = ("IDLE", "DOWNLOAD", "CHECK", "INSTALL", "RESTORE", "SUCCESS", "FAILED")
HISTORIES = {0: [*STATUSES[:5], "RESTORE"], **{255 - i: [*STATUSES[: 2 + i], "FAILED"] for i in range(3)}}
POWER_LOST, NOT_STARTED = 97, 1
ARMED_ALL_THE_SAME = "record is not in its place|mtd_write_close error"  # log lines of runs that fail behind the record
OUTCOMES = {0: "survived", **dict.fromkeys((255, 254, 253), "failed"), POWER_LOST: "recovered",
            NOT_STARTED: "not started"}


def unreadable(module):
    """The blocks that faults of the last run have made uncorrectable for good, as (partition, number)."""
    words = [line.split() for line in module.struck() if "uncorrectable" in line and line.endswith(" always")]
    return {(name, int(block)) for _, _, name, block, *_ in words}


def read(module, name, first, count):
    """What a reader gets from block `first` of a partition on: it passes over blocks that are marked bad or that it cannot
    read."""
    data, blocks, pages = b"", module.split(module.dump(name)), module.block // module.page
    lost = unreadable(module)
    for b in module.good_blocks(name):
        is_torn = 2 in module.page_states(name)[b * pages : (b + 1) * pages]
        if first <= b and len(data) < count and not is_torn and (name, b) not in lost:
            data += blocks[b]
    return data[:count]


def armed_images(module):
    """The images of an armed store by name, as software that restores finds them, or None. They have to be right."""
    head = module.good_blocks("userdata")[0]
    record = StoreRecord.read(module.split(module.dump("userdata"))[head])
    is_torn = module.page_states("userdata")[head * module.block // module.page] == 2
    if not record.is_armed() or is_torn or ("userdata", head) in unreadable(module):
        return None
    stream = read(module, "userdata", head + 1, record.counts[0]) + read(module, "recoveryfs", 0, record.counts[1])
    images = {image.name: data for image, data in zip(record.images, record.cut(stream))}
    for image, data in zip(record.images, record.cut(stream)):
        assert len(data) == image.size and jamcrc(data) == image.crc, "armed over a store that is not right"
    taken = sum(image.padded_size for image in record.images)
    assert taken == len(stream) == sum(record.counts), "armed over a store of another length"
    return images


def judge_flash(module, struck):
    """After the last step of an update."""
    assert armed_images(module) == {i.name: i.data for i in module.package.store_images()}, "not the package's store"
    boot = module.package.images[1]
    assert read(module, boot.name, 0, len(boot.data)) == boot.data, "boot is wrong"
    if struck.startswith("badblock"):
        return  # a bad block that passed for a good one while room was counted: the images lie elsewhere
    for name, wanted in module.expected.items():
        for b, (good, found) in enumerate(zip(module.split(wanted), module.split(module.dump(name)))):
            spared = struck == f"erase {name} {b}" and not good.strip(b"\xff")  # behind the data
            assert good == found or spared, f"block {b} of {name} is wrong"


def messages(log):
    """The log's lines without what differs from run to run."""
    return {re.sub(r"\d+", "#", line) for line in re.sub(r"\[\d{8}_\d{6}\] ", "\n", log).split("\n")}


def judge_log(module, log, struck=""):
    said = [line for line in messages(log) - module.usual if not re.search(r"main.*vexo_tarv_\w+ failed", line)]
    assert said or struck.endswith((" tarv_log", " tarvolin")), "the log does not say why"


def judge_failure(module, status, struck):
    log, untouched = module.log(), module.is_untouched()
    if not untouched and armed_images(module) is not None:
        assert re.search(ARMED_ALL_THE_SAME, log), "failed, and yet armed"
        judge_flash(module, struck)
    began = "umount_ubi userdata success" in log or struck.endswith(" tarv_log")
    assert untouched or began, "refused, and yet flash was changed"
    assert status == 253 or module.dump("boot") == module.initial("boot"), "installed before the check"
    judge_log(module, log, struck)


def judge_status(module, status, struck):
    """History and last status go with the exit status, but for the one line or file that the fault struck."""
    expected = HISTORIES[status] if struck != "mkdir tarvolin" else []
    last = [str(STATUSES.index(name)) for name in expected[-2:]] or [None]
    lacking = [expected[:i] + expected[i + 1 :] for i in range(len(expected)) if struck.endswith(" status_str")]
    stale = [last[0], "", None] if struck.endswith(" status") else []
    assert module.history() in [expected, *lacking], f"exit status {status} after {module.history()}"
    assert module.text("status") in [last[-1], *stale], f"exit status {status} with status {module.text('status')}"


def judge_bounds(module, dumps, bad):
    """Nothing but what an update may write has changed since flash was like `dumps`, with those blocks bad."""
    for name in module.partitions:
        pairs = zip(module.split(dumps[name]), module.split(module.dump(name)))
        changed = {b for b, (before, after) in enumerate(pairs) if before != after}
        assert not changed & bad.get(name, {0}), f"{name} was changed where it must not be"
    for top in (module.folder / name for name in ("tmp", "run", "data")):
        strange = {str(path.relative_to(module.folder)) for path in top.rglob("*")} - module.allowed_files
        assert not strange, f"files {strange}"


def judge(module, status, struck):
    """Raises an AssertionError. `struck` is what the fault hit, "" for nothing."""
    assert status in OUTCOMES and (status != NOT_STARTED or ".pid" in struck), f"exit status {status}"
    judge_bounds(module, {name: module.initial(name) for name in module.partitions}, module.bad)
    if status == NOT_STARTED:
        assert module.is_untouched() and not module.run_dir.exists(), "not started, and yet something was done"
    elif status == POWER_LOST:
        armed_images(module)
    else:
        judge_status(module, status, struck)
        judge_failure(module, status, struck) if status else judge_flash(module, struck)


class Before:
    """What a run finds: flash, the blocks marked bad, and the images of the armed store, None without one."""

    def __init__(self, module, package=None):
        self.dumps = module.dumps()
        self.bad = {name: set(blocks) for name, blocks in module.bad.items()}
        self.armed = {i.name: i.data for i in package.store_images()} if package else None


def judge_lasting(module, status, before):
    """After a run on flash with faults that last. Returns what the next run finds."""
    assert status in (0, 255, 254, 253), f"exit status {status}"
    judge_bounds(module, before.dumps, before.bad)
    judge_status(module, status, "")
    after, boot = Before(module), module.package.images[1]
    # A run that changed nothing is not to blame for blocks that fail by themselves under an earlier store.
    after.armed = armed_images(module) if status == 0 or after.dumps != before.dumps else before.armed
    ours = {i.name: i.data for i in module.package.store_images()}
    stands = "earlier armed store still stands" in (module.text("fail_reason") or "")
    assert not stands or after.armed == before.armed is not None, "no earlier store stands armed"
    if status == 0:
        assert after.armed == ours, "success, and not the package's store"
        assert read(module, boot.name, 0, len(boot.data)) == boot.data, "success, and boot is wrong"
        return after
    assert status == 253 or after.dumps["boot"] == before.dumps["boot"], "installed before the check"
    judge_log(module, module.log())
    if after.armed is not None and after.dumps != before.dumps and not stands:
        assert re.search(ARMED_ALL_THE_SAME, module.log()) and after.armed == ours, "failed, and yet armed"
    return after
