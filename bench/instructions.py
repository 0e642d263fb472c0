"""Counts the instructions of finish_answer and _encoded_size per call, and
fails when they grew by more than 5 % on any of a fixed set of answers.

The wall-clock bench (bench.py) needs a quiet machine and a reader; this
guard needs neither: it runs the calls under valgrind's callgrind, which
counts the instructions the process executes, the same on a loaded machine as
on an idle one.  The answers are the bench's four kinds at 200 B, 1.8 KB,
8 KB and 100 KB, from the bench's corpus and seed, with PYTHONHASHSEED=0.

Each block of calls runs between two marker calls (os.getppid starts a
count, os.getpgrp ends it; the interpreter calls neither of its own), with
the collector off.  After two calls that warm the module's caches, a block of
one call and a block of four are counted: their difference over three is the
cost of a call, what the markers and the loop cost cancelling out.  So the
figures are the calls' own, not the interpreter's start or the corpus's
making.

Where an answer's texts and keys lie in memory moves the count by a few per
cent (the module's tables by address), and any unrelated change of what the process allocated first
moves where they lie.  So each answer is counted in eight copies placed
apart at random, and the mean is taken; the run reaches the tree through a
link of fixed length, with an environment of its own settings only.

Counts depend on the Python version, so the baseline (instructions.json)
has a row per version.  A version whose row is missing is told so and not
compared.  A new baseline is a deliberate commit:
run this with --rebaseline and say in the commit why the counts moved.

With --weigh, it counts the calls again with each shortcut of the module
turned off in turn (src/next_steps/shortcuts.hpp names them) and prints how
many more instructions each answer then takes: what each shortcut buys.
"""

from __future__ import annotations

import argparse
import gc
import json
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path
from statistics import median
from typing import Any

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent
sys.path.insert(0, str(HERE))
from corpus import KINDS, answer  # noqa: E402

BASELINE = HERE / "instructions.json"
SIZES = [200, 1_800, 8_000, 100_000]
FUNCTIONS = ["finish_answer", "_encoded_size"]
# The calls of each block: one that warms the module's caches (not counted),
# then the shorter and the longer block.
BLOCKS = (1, 1, 3)
LAYOUTS = 8
TOLERANCE = 0.05


def labels() -> list[str]:
    """The answer of each group of blocks, in the order the counting run
    takes them."""
    return [f"{function} {kind.label} {size}"
            for kind in KINDS for size in SIZES for _ in range(LAYOUTS) for function in FUNCTIONS]


def placed(value: Any, spacing: random.Random, keys: dict[str, str], spacer: list[str]) -> Any:
    """A copy of an answer whose texts are new objects, each after a spacer
    drawn at random: the same answer elsewhere in memory.  Keys stay shared
    between records, as a server's literals are."""
    if isinstance(value, str):
        if spacing.random() < 0.5:
            spacer.append(value.encode("utf-8", "surrogatepass").decode("utf-8", "surrogatepass"))
        return value.encode("utf-8", "surrogatepass").decode("utf-8", "surrogatepass")
    if isinstance(value, dict):
        copy = {}
        for key, item in value.items():
            if key not in keys:
                keys[key] = placed(key, spacing, keys, spacer)
            copy[keys[key]] = placed(item, spacing, keys, spacer)
        return copy
    if isinstance(value, (list, tuple)):
        return type(value)(placed(item, spacing, keys, spacer) for item in value)
    return value


def count_blocks() -> None:
    """Runs under callgrind: the blocks of each function on each copy of
    each answer."""
    from bench import FRESHNESS
    from velquorn.tool_handlers import next_steps

    def block(number: int, function, *args, **keywords) -> None:
        gc.collect()
        gc.disable()
        os.getppid()
        for _ in range(number):
            function(*args, **keywords)
        os.getpgrp()
        gc.enable()

    for kind in KINDS:
        for size in SIZES:
            first = answer(kind, size)
            for layout in range(LAYOUTS):
                spacer: list[str] = []
                given = placed(first, random.Random(layout), {}, spacer)
                calls = {
                    "finish_answer": (next_steps.finish_answer, given, kind.tool),
                    "_encoded_size": (next_steps._encoded_size, next_steps.without_null_fields(given)),
                }
                keywords = {
                    "finish_answer": {"action": kind.action, "arguments": kind.arguments, "freshness": FRESHNESS},
                    "_encoded_size": {},
                }
                for function in FUNCTIONS:
                    for number in BLOCKS:
                        block(number, *calls[function], **keywords[function])


def counted(settings: dict[str, str] | None = None) -> dict[str, int]:
    """Instructions per call of each answer, from one run under callgrind:
    the mean over its copies of the longer block's count less the shorter's.
    The run sees nothing of this machine that could move where things lie:
    it reaches the tree through a link of fixed length, and its environment
    holds only its own settings (the module's switches among them, never
    this shell's).  Symbols are bound as the libraries load, not on their
    first call inside a block."""
    with tempfile.TemporaryDirectory(dir="/tmp") as folder:
        tree = Path(folder) / "tree"
        tree.symlink_to(ROOT)
        python = Path(sys.executable)
        if python.is_relative_to(ROOT):
            python = tree / python.relative_to(ROOT)
        out = Path(folder) / "callgrind.out"
        run = subprocess.run(
            [shutil.which("valgrind"), "--tool=callgrind", "--zero-before=getppid", "--dump-before=getpgrp",
             f"--callgrind-out-file={out}", python, tree / "bench" / Path(__file__).name, "--count-blocks"],
            env={"PYTHONHASHSEED": "0", "LD_BIND_NOW": "1", **(settings or {})}, cwd=tree,
            stderr=subprocess.PIPE, text=True)
        if run.returncode:
            sys.exit(f"The counting run failed:\n{run.stderr}")
        blocks = [total(Path(f"{out}.{n}")) for n in range(1, len(labels()) * len(BLOCKS) + 1)]
    _, shorter, longer = BLOCKS
    means = dict.fromkeys(labels(), 0.0)
    for i, label in enumerate(labels()):
        _, one, more = blocks[i * len(BLOCKS):(i + 1) * len(BLOCKS)]
        means[label] += (more - one) / (longer - shorter) / LAYOUTS
    return {label: round(mean) for label, mean in means.items()}


def total(dump: Path) -> int:
    for line in dump.read_text().splitlines():
        if line.startswith("summary:"):
            return int(line.split()[1])
    raise ValueError(f"{dump} has no summary line")


def weigh() -> None:
    """Prints, per shortcut and function, how many more instructions a call
    takes with that shortcut off, by size: the median over the four kinds,
    then their range."""
    table = (ROOT / "src" / "next_steps" / "shortcuts.hpp").read_text()
    names = re.findall(r"^\s*X\((\w+),", table, re.MULTILINE)
    on = counted()
    print("| shortcut off | call | " + " | ".join(f"{size:,} B" for size in SIZES) + " |")
    print("|---|---" + "|---" * len(SIZES) + "|")
    for name in names:
        off = counted({"VELQUORN_NEXT_STEPS_SHORTCUTS": name})
        for function in FUNCTIONS:
            cells = []
            for size in SIZES:
                more = [off[label] / on[label] - 1 for label in (f"{function} {kind.label} {size}" for kind in KINDS)]
                cells.append(f"{median(more):+.1%} ({min(more):+.1%} to {max(more):+.1%})")
            print(f"| {name} | {function} | " + " | ".join(cells) + " |", flush=True)


def compare(baseline: dict[str, int], now: dict[str, int]) -> bool:
    """Prints the counts against the baseline's; false if one grew too much."""
    print("| answer | baseline | now | growth |\n|---|---|---|---|")
    grown = []
    for label, count in now.items():
        before = baseline.get(label)
        if before is None:
            print(f"| {label} | - | {count:,} | new |")
            continue
        print(f"| {label} | {before:,} | {count:,} | {count / before - 1:+.1%} |")
        if count > before * (1 + TOLERANCE):
            grown.append(label)
    if grown:
        print(f"\nMore than {TOLERANCE:.0%} more instructions per call: {', '.join(grown)}.\n"
              f"If that is meant, take a new baseline with `{' '.join(['bench/instructions.py', *sys.argv[1:]])}"
              " --rebaseline` and commit bench/instructions.json saying why the counts moved.")
    return not grown


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--rebaseline", action="store_true",
                        help="write this machine's counts into the baseline instead of failing on growth")
    parser.add_argument("--weigh", action="store_true", help="count with each shortcut off in turn (slow)")
    parser.add_argument("--count-blocks", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.count_blocks:
        return count_blocks()
    if not shutil.which("valgrind"):
        sys.exit("valgrind is not installed (apt-get install valgrind)")
    if options.weigh:
        return weigh()
    row = f"python {sys.version_info.major}.{sys.version_info.minor}"
    rows = json.loads(BASELINE.read_text()) if BASELINE.exists() else {}
    if row not in rows and not options.rebaseline:
        print(f"Instruction counts not compared: the baseline has no row for {row}"
              "; `bench/instructions.py --rebaseline` adds one.")
        return
    now = counted()
    print(f"Instructions per call, {row}:\n")
    within = compare(rows.get(row, {}), now)
    if options.rebaseline:
        rows[row] = now
        BASELINE.write_text(json.dumps(dict(sorted(rows.items())), indent=2) + "\n")
        print(f"\nWritten to {BASELINE.name}: commit it saying why the counts moved.")
    elif not within:
        sys.exit(1)


if __name__ == "__main__":
    main()
