"""The work the build profiles the module on before it optimizes it.

The build compiles the module once with counters, runs this on it, and
compiles it again laid out by what the counters saw: hot paths together and
straight, the rest out of their way.  The answers are the bench's kinds in
every flavour of text, at sizes the bench does not time, from another seed.
The plain copy is run on its own too: finishing makes its copy by another
path.  What this does not run (errors, rare value kinds, the name lookups) is
still optimized as usual.
"""

from __future__ import annotations

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
from corpus import KINDS, answer  # noqa: E402

from velquorn.tool_handlers import next_steps  # noqa: E402

FRESHNESS = {"current": False, "indexed_at": "2026-11-20T09:14:00Z", "stale_files": ["src/app/lexer.py"],
             "stale_file_count": 1}
# Bytes of answer finished per size: small answers run more often, as they do
# on the server.
WORK = 600_000


def main() -> None:
    for size in (300, 1_000, 4_000, 20_000):
        for kind in KINDS:
            for flavour in ("mixed", "ascii", "accents", "cjk"):
                given = answer(kind, size, flavour, seed=7)
                for _ in range(max(2, WORK // size)):
                    next_steps.finish_answer(given, kind.tool, action=kind.action, arguments=kind.arguments,
                                             freshness=FRESHNESS)
                    next_steps._encoded_size(given)
                    next_steps.without_null_fields(given)


if __name__ == "__main__":
    main()
