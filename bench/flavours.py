"""Times _encoded_size against len(json.dumps(...).encode()) on ~50 KB answers
whose text is ASCII only, Latin-1 accents (one-byte storage, not ASCII), or
CJK and emoji (two- and four-byte storage).  Figures are ratios from one run.
"""

from __future__ import annotations

import json
import random
import sys
import timeit

from velquorn.tool_handlers import next_steps

WORDS = {
    "ascii": ["parse", "token", "stream", "buffer", "index", "symbol", "the", "of", "a", "reader"],
    "accents": ["naïve", "café", "résumé", "über", "façade", "señor", "token", "the", "déjà", "vu"],
    "cjk-emoji": ["解析", "トークン", "索引", "符号", "🚀", "emoji😀", "流", "读取器", "the", "값"],
}


def sentence(rng: random.Random, words: list[str], count: int) -> str:
    return " ".join(rng.choice(words) for _ in range(count))


def answer(flavour: str, target: int = 50_000, seed: int = 1) -> dict:
    """A search-like answer of about `target` bytes: hits with short keys,
    ints, floats, short names and a long doc each, and a tip."""
    rng, words, hits = random.Random(seed), WORDS[flavour], []
    body = {"query": sentence(rng, words, 2), "total_count": 0, "results": hits, "tip": sentence(rng, words, 8)}
    while size(body) < target:
        i = len(hits)
        hits.append(
            {
                "fqn": f"pkg.mod{i}.{rng.choice(words)}_{i}",
                "name": rng.choice(words),
                "kind": "function",
                "file": f"src/pkg/mod{i}.py",
                "line": i * 7,
                "score": rng.random(),
                "doc": sentence(rng, words, rng.randint(4, 40)),
                "signature": f"def f(self, x: int = {i}) -> \"{rng.choice(words)}\"",
                "tags": ["lexer", rng.choice(words)],
            }
        )
        body["total_count"] = len(hits)
    return body


def size(value) -> int:
    return len(json.dumps(value, separators=(",", ":"), ensure_ascii=False).encode())


def best_pair(first, second, number: int, rounds: int = 40) -> tuple[float, float]:
    """The best time per call of each, measured in alternation so that both
    see the same load on a shared machine."""
    times = [(timeit.timeit(first, number=number), timeit.timeit(second, number=number)) for _ in range(rounds)]
    return min(t for t, _ in times) / number, min(t for _, t in times) / number


def main() -> None:
    number = int(sys.argv[1]) if len(sys.argv) > 1 else 100
    for flavour in WORDS:
        value = answer(flavour)
        assert next_steps._encoded_size(value) == size(value)
        dumps, mine = best_pair(lambda: size(value), lambda: next_steps._encoded_size(value), number)
        print(f"{flavour:10} {size(value):6} B  json.dumps {dumps * 1e6:6.1f} us  "
              f"_encoded_size {mine * 1e6:5.1f} us  ratio {dumps / mine:5.2f}")


if __name__ == "__main__":
    main()
