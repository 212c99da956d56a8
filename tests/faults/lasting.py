"""Faults that last: blocks that fail for good, from the start or from any later operation on them on, alone and in pairs.

Each case is three runs of the same update: with its faults, without, and with them again.
"""
import itertools
from collections import Counter, namedtuple

from judge import OUTCOMES, Before, judge_lasting
from lab.expected import capacity
from lab.swept_module import MODULES, PACKAGE

SORTS = {  # of faults: the operation and what becomes of it
    "erase never works": ("erase", "refused"), "program never works": ("program", "refused"),
    "program lands in half": ("program", "short"), "reads are uncorrectable": ("read", "uncorrectable"),
    "reads are wrong": ("read", "corrupt"), "found bad": ("badblock", "bad")}
RETRIES = 3  # more operations than usual that another fault on the same block can bring about
SPARE = 2  # blocks behind a partition's data that two faults can push the data onto

Fault = namedtuple("Fault", "line sort block marks")
Case = namedtuple("Case", "plan kind fault faults")  # `kind` and `fault` are its place in the table


def places(operations):
    """How often each operation of a whole update works on each block: {(operation, (partition, block)): times}."""
    return Counter((kind, (name, int(block))) for kind, name, block in (line.split(" ") for line in operations) if name)


def faults_on(module, worked_on, further=0):
    """All lasting faults, or those of blocks with so many more operations on them."""
    for sort, (kind, effect) in SORTS.items():
        for (found, (name, block)), times in worked_on.items():
            if found != kind or block in module.bad.get(name, ()):
                continue
            for spared, mark in itertools.product(range(times + further), ("", "+bad") if kind != "badblock" else ("",)):
                line = f"{kind} in {name} {block} after {spared} {effect}{mark} always"
                yield Fault(line, sort, (name, block), mark == "+bad" or kind == "badblock")


def case_of(module_kind, faults):
    sort = " and ".join(sorted({fault.sort for fault in faults}))
    blocks = len({fault.block for fault in faults})
    kind = module_kind if len(faults) == 1 else "one block" if blocks == 1 else "two blocks"
    return Case(f"{module_kind}: " + "; ".join(fault.line for fault in faults), kind, sort, faults)


def lasting_cases(module, operations):
    for fault in faults_on(module, places(operations)):
        yield from (case_of(kind, [fault]) for kind in MODULES)


def pair_cases(module, operations):
    """Two faults on different blocks: on those of the data and the spare ones right behind. Two on one block: different
    operations, also those that only the other fault brings about."""
    worked_on, near = places(operations), set()
    for name in module.partitions:
        data = {block for kind, (where, block) in worked_on if kind == "program" and where == name}
        good = module.good_blocks(name)
        near |= {(name, block) for block in good[: good.index(max(data)) + 1 + SPARE]} if data else set()
    worked_on = {key: times for key, times in worked_on.items() if key[1] in near}
    apart = itertools.combinations(faults_on(module, worked_on), 2)
    beside = itertools.combinations(faults_on(module, worked_on, RETRIES), 2)
    pairs = itertools.chain((pair for pair in apart if pair[0].block != pair[1].block),
                            (pair for pair in beside if pair[0].block == pair[1].block
                             and pair[0].line.split()[0] != pair[1].line.split()[0]))
    return [case_of(kind, pair) for pair in pairs for kind in MODULES]


def parse_case(text):
    """A case as a violation names it."""
    kind, _, plan = text.partition(": ")
    faults = []
    for line in plan.split("; "):
        operation, _, name, block, *_ = line.split()
        sort = next(sort for sort, (kind_of, effect) in SORTS.items() if kind_of == operation and f" {effect}" in line)
        faults.append(Fault(line, sort, (name, int(block)), "bad " in line))
    return case_of(kind, faults)


def has_room(module):
    """Whether the update fits into the blocks that are not marked bad."""
    stored = sum(-(-len(image.data) // 4096) * 4096 for image in PACKAGE.store_images())
    boot = PACKAGE.images[1]
    return (stored <= sum(capacity(name, module) for name in ("userdata", "recoveryfs"))
            and len(boot.data) <= len(module.good_blocks(boot.name)) * module.block)


def try_lasting(module, case):
    """Returns what became of the first and the third run."""
    module_kind, _, plan = case.plan.partition(": ")
    module.reset(module_kind)
    before, outcomes = Before(module, MODULES[module_kind]), []
    head = "userdata", module.good_blocks("userdata")[0]
    for faulty in (True, False, True):
        status = module.update(plan if faulty else "")
        before = judge_lasting(module, status, before)
        outcomes.append(OUTCOMES[status])
        if not faulty:
            assert status == 0 or not has_room(module), "the run without faults did not succeed"
            assert module.marked() or module.dumps() == module.expected, "flash is not right without faults"
    survivable = all(fault.marks and fault.block != head and fault.sort[:5] in ("erase", "progr") for fault in case.faults)
    assert not survivable or len(case.faults) > 1 or outcomes[0] == "survived", "not survived"
    return outcomes[0], f"again: {outcomes[2]}"
