"""Times the module against the host's own json.dumps on one ~50 KB answer.

Figures are ratios measured in one run, so they hold on any machine:
_encoded_size against the text it counts, finish_answer against sending
the answer (one json.dumps).
"""

from __future__ import annotations

import json
import sys
import timeit
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
from corpus import search_answer  # noqa: E402

from velquorn.tool_handlers import next_steps  # noqa: E402


def best(fn, number: int) -> float:
    return min(timeit.repeat(fn, number=number, repeat=5)) / number


def main() -> None:
    answer = search_answer(230)
    size = len(json.dumps(answer, separators=(",", ":"), ensure_ascii=False).encode())
    dumps = best(lambda: json.dumps(answer, separators=(",", ":"), ensure_ascii=False, default=str), 500)
    dumps_len = best(
        lambda: len(json.dumps(answer, separators=(",", ":"), ensure_ascii=False, default=str).encode()), 500
    )
    figures = {
        "_encoded_size": best(lambda: next_steps._encoded_size(answer), 500),
        "without_null_fields": best(lambda: next_steps.without_null_fields(answer), 500),
        "finish_answer": best(
            lambda: next_steps.finish_answer(answer, "search", action="code", arguments={"query": "parse"}), 500
        ),
    }
    print(f"answer: {size} bytes; json.dumps {dumps * 1e6:.0f} us, with encode and len {dumps_len * 1e6:.0f} us")
    for name, seconds in figures.items():
        print(f"{name:20} {seconds * 1e6:7.1f} us   json.dumps / it: {dumps_len / seconds:5.2f}")


if __name__ == "__main__":
    main()
