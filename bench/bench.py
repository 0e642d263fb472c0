"""Times finish_answer and its parts against the host's own json.dumps.

For answers of four kinds from 200 B to 100 KB it prints, in one run, the
microseconds per call of finish_answer, of its parts (the null-free copy, and
on that copy _encoded_size, _hint_size and _add_next_steps) and of one
compact json.dumps, with two ratios: finish_answer against the floor of two
walks (the copy plus one measuring walk), and finish_answer against sending
the answer.  Then _encoded_size against counting the text json.dumps writes,
on ~50 KB answers in three flavours of text.  Every figure is a ratio
measured in one run, so it holds on any machine.  It also draws the times
against answer size (matplotlib, the `bench` extra).
"""

from __future__ import annotations

import argparse
import json
import platform
import sys
import time
import timeit
from collections.abc import Callable
from datetime import date
from pathlib import Path
from statistics import median

sys.path.insert(0, str(Path(__file__).parent))
from corpus import KINDS, answer, compact_size  # noqa: E402

from velquorn.tool_handlers import next_steps  # noqa: E402

SIZES = [200, 700, 1_800, 8_000, 30_000, 100_000]
FLAVOURS = ["ascii", "accents", "cjk"]
FRESHNESS = {"current": False, "indexed_at": "2026-11-20T09:14:00Z", "stale_files": ["src/app/lexer.py"],
             "stale_file_count": 1}
PARTS = ["finish_answer", "copy", "_encoded_size", "_hint_size", "_add_next_steps", "json.dumps"]
ROUNDS = 25
BATCH_SECONDS = 0.004

# A timed part: run(number) makes that many calls and gives the seconds they took.
Run = Callable[[int], float]


def calls(fn: Callable[[], object]) -> Run:
    return timeit.Timer(fn).timeit


def interleaved(parts: dict[str, Run]) -> dict[str, float]:
    """Best seconds per call of each part, the parts taking turns in short
    batches: a slow spell of a shared machine then hits every part alike,
    and the best batch of each is one that ran in a quiet moment."""
    numbers = {}
    for name, run in parts.items():
        run(3)
        numbers[name] = max(1, int(BATCH_SECONDS / (run(10) / 10)))
    best = dict.fromkeys(parts, float("inf"))
    for _ in range(ROUNDS):
        for name, run in parts.items():
            best[name] = min(best[name], run(numbers[name]) / numbers[name])
    return best


def add_next_steps_calls(kind, given: dict) -> Run:
    """_add_next_steps changes its answer, so each call gets a fresh copy."""
    def run(number: int) -> float:
        copies = [next_steps.without_null_fields(given) for _ in range(number)]
        start = time.perf_counter()
        for copy in copies:
            next_steps._add_next_steps(copy, kind.tool, action=kind.action, arguments=kind.arguments)
        return time.perf_counter() - start
    return run


def dumps(value: object) -> str:
    return json.dumps(value, separators=(",", ":"), ensure_ascii=False)


def measure(kind, size: int) -> dict[str, float]:
    given = answer(kind, size)
    copy = next_steps.without_null_fields(given)
    times = interleaved({
        "finish_answer": calls(lambda: next_steps.finish_answer(
            given, kind.tool, action=kind.action, arguments=kind.arguments, freshness=FRESHNESS)),
        "copy": calls(lambda: next_steps.without_null_fields(given)),
        "_encoded_size": calls(lambda: next_steps._encoded_size(copy)),
        "_hint_size": calls(lambda: next_steps._hint_size(copy)),
        "_add_next_steps": add_next_steps_calls(kind, given),
        "json.dumps": calls(lambda: dumps(given)),
    })
    return {"bytes": compact_size(given), **times}


def size_table() -> list[dict]:
    print("| answer | bytes | " + " | ".join(PARTS) + " | finish / (copy + size) | finish / dumps |")
    print("|---" * (len(PARTS) + 4) + "|")
    rows = []
    for size in SIZES:
        for kind in KINDS:
            row = {"kind": kind.label, "target": size, **measure(kind, size)}
            floor = row["copy"] + row["_encoded_size"]
            print(f"| {kind.label} | {row['bytes']:,} | "
                  + " | ".join(f"{row[p] * 1e6:.1f}" for p in PARTS)
                  + f" | {row['finish_answer'] / floor:.2f} | {row['finish_answer'] / row['json.dumps']:.2f} |",
                  flush=True)
            rows.append(row)
    return rows


def speedup_table() -> None:
    print("\n_encoded_size against len(json.dumps(...).encode()), ~50 KB answers: times faster")
    print("| text | " + " | ".join(k.label for k in KINDS) + " |")
    print("|---" * (len(KINDS) + 1) + "|")
    for flavour in FLAVOURS:
        cells = []
        for kind in KINDS:
            given = answer(kind, 50_000, flavour)
            times = interleaved({"text": calls(lambda: len(dumps(given).encode())),
                                 "size": calls(lambda: next_steps._encoded_size(given))})
            cells.append(f"{times['text'] / times['size']:.1f}")
        print(f"| {flavour} | " + " | ".join(cells) + " |", flush=True)


def plot(rows: list[dict], path: Path) -> None:
    try:
        import matplotlib
    except ImportError:
        print(f"matplotlib is missing (pip install matplotlib): no plot written to {path}", file=sys.stderr)
        return
    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(figsize=(8, 5.5))
    groups = [[row for row in rows if row["target"] == size] for size in SIZES]
    for part in PARTS:
        # Every answer is a dot; the line joins the medians of the kinds at each
        # size.  A label that opens with "_" would be left out of the legend.
        line = axes.plot([median(r["bytes"] for r in g) for g in groups],
                         [median(r[part] * 1e6 for r in g) for g in groups],
                         linewidth=2.4 if part == "finish_answer" else 1.3,
                         linestyle="--" if part == "json.dumps" else "-", label=f" {part}")
        axes.scatter([r["bytes"] for r in rows], [r[part] * 1e6 for r in rows], s=8, color=line[0].get_color())
    axes.set(xscale="log", yscale="log", xlabel="answer size (bytes of compact UTF-8 JSON)",
             ylabel=f"µs per call (best of {ROUNDS} batches)",
             title=f"next_steps on {platform.machine()}, Python {platform.python_version()}, {date.today()}")
    axes.grid(True, which="both", alpha=0.3)
    axes.legend()
    figure.tight_layout()
    figure.savefig(path, dpi=110)
    print(f"\nplot written to {path}")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--plot", type=Path, default=Path(__file__).parent / "speed.png",
                        help="where to write the plot (default: %(default)s)")
    parser.add_argument("--no-plot", action="store_true", help="print the tables only")
    options = parser.parse_args()
    print(f"{platform.processor() or platform.machine()}, Python {platform.python_version()}, {date.today()}\n")
    rows = size_table()
    speedup_table()
    if not options.no_plot:
        plot(rows, options.plot)


if __name__ == "__main__":
    main()
