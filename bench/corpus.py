"""Generated answers shaped like the tools' own, for the benchmark."""

from __future__ import annotations

import random


def search_answer(rows: int, seed: int = 1) -> dict:
    """A search answer with `rows` hits, null fields, non-ASCII text and a tip."""
    rng = random.Random(seed)
    return {
        "query": "parse tokens",
        "total_count": rows,
        "results": [
            {
                "fqn": f"pkg.mod{i}.parse_token_{i}",
                "name": f"parse_token_{i}",
                "kind": "function",
                "file": f"src/pkg/mod{i}.py",
                "line": i * 7,
                "score": rng.random(),
                "doc": None if i % 3 else "Parse one token \u2014 na\u00efve \u201cquotes\u201d",
                "tags": ("lexer", "hot"),
                "note": None,
            }
            for i in range(rows)
        ],
        "tip": "Use symbol detail for more",
    }
