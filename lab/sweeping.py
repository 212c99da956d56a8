"""Fault sweeps: many cases on a few modules, a random share of them, and the counts of their outcomes.

A case is a tuple that begins with its plan, its kind and its fault; the last two are its place in the table.
"""
import argparse
import os
import pathlib
import random
import re
import subprocess
from collections import Counter, defaultdict
from concurrent.futures import ThreadPoolExecutor

from lab.page import fill


def parser():
    """The options that all sweeps have."""
    options = argparse.ArgumentParser()
    options.add_argument("cases", nargs="*", metavar="CASE")
    options.add_argument("--share", default="1/1", metavar="N/M", help="a random share, spread over all kinds of faults")
    options.add_argument("--seed", type=int, default=random.randrange(10**6))
    options.add_argument("--jobs", type=int, default=os.cpu_count())
    options.add_argument("--write", type=pathlib.Path, metavar="PAGE", help="put the counts into this page")
    return options


def share_of(cases, options, kept=lambda case: False):
    """The share that the options ask for. It leaves out no kind of fault as long as it has room for each. What is `kept` is
    part of every share."""
    ranks, (numerator, denominator) = Counter(), map(int, options.share.split("/"))
    shuffled = random.Random(options.seed).sample(cases, len(cases))
    ranked = sorted(shuffled, key=lambda case: ranks.update([case[1:3]]) or ranks[case[1:3]])
    count = len(cases) * numerator // denominator
    return ranked[:count] + [case for case in ranked[count:] if kept(case)]


def sweep(modules, cases, try_case, program):
    """Runs all cases, each on the next module that is free. `try_case` returns the outcomes of one and raises an
    AssertionError when something is wrong. Returns the outcomes by kind and fault, and the violations."""
    table, violations = defaultdict(Counter), []

    def try_on_free_module(case):
        module = modules.pop()
        try:
            return try_case(module, case)
        except (AssertionError, subprocess.TimeoutExpired) as violation:
            violations.append(f"VIOLATED {case.fault} ({case.kind}): {violation}\n    {program} \"{case.plan}\"")
            print(violations[-1], flush=True)
            return ("violated",)
        finally:
            modules.append(module)

    with ThreadPoolExecutor(len(modules)) as pool:
        for number, (case, outcomes) in enumerate(zip(cases, pool.map(try_on_free_module, cases)), 1):
            table[case.kind, case.fault].update(("cases", *outcomes))
            if number % 500 == 0:
                print(f"{number} of {len(cases)} cases", flush=True)
    return table, violations


def as_table(table, outcomes):
    """The counts as a page shows them, with a column for each outcome that there was."""
    rows = [*sorted(table.items()), (("all", ""), sum(table.values(), Counter()))]
    found = rows[-1][1]
    columns = ["cases", *(name for name in dict.fromkeys(outcomes) if found[name]), "violated"]
    lines = ["| On | Fault | " + " | ".join(columns) + " |", "|" + "---|" * (len(columns) + 2)]
    return "\n".join(lines + [f"| {kind} | {fault} | " + " | ".join(str(row[name] or "") for name in columns) + " |"
                              for (kind, fault), row in rows])


def report(title, table, violations, options, family):
    """Prints the counts and puts them into the page that is asked for. Returns the exit status."""
    print(table)
    if options.write:
        fill(options.write, family, f"{title}:\n\n{table}")
    passed = sum(int(number) for number in re.findall(r"^\| all \|  \| (\d+)", table, re.M)) - len(violations)
    print(*violations, f"{passed} passed, {len(violations)} failed", sep="\n")
    return 1 if violations else 0
