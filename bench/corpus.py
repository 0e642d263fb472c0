"""Generated answers shaped like the tools' own, for the benchmark.

Four kinds of answer, each grown row by row to a wanted size: search hits with
docs and signatures, the callers of a symbol with code snippets, a git change
set, and a list of tests.  Each carries null fields, tuples, nested notes and
tips, a few floats and big integers, and text in one of three flavours.
"""

from __future__ import annotations

import json
import random
from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

# Docs, messages and names; the mixed flavour is mostly ASCII, as real
# answers are, with accents, CJK and emoji here and there.
TEXTS = {
    "ascii": [
        "Parse one token from the stream and return it.",
        "Read the next line; returns None at the end of input.",
        'Split "key=value" pairs, honouring \\ escapes.',
        "Rebuild the index of the repository from scratch.",
    ],
    "accents": [
        "Décode l'entrée et renvoie le résultat — façade naïve.",
        "Größe der Eingabe prüfen, dann übergeben.",
        "Lê a próxima linha; devolve None no fim da entrada.",
        "Élève « les » jetons à leur forme canonique.",
    ],
    "cjk": [
        "解析输入的令牌并返回结果 🚀",
        "次の行を読み込みます。入力の終わりでは None を返します ✅",
        "토큰을 파싱하고 결과를 반환합니다 🔥",
        "重建仓库的索引 📦 — 从头开始",
    ],
}
TEXTS["mixed"] = TEXTS["ascii"] * 3 + TEXTS["accents"][:2] + TEXTS["cjk"][:1]
AUTHORS = ["Ana Souza", "José Müller", "李雷", "Priya Raman", "Zoë O'Neil", "Kenji Sato"]


def compact_size(answer: Any) -> int:
    return len(json.dumps(answer, separators=(",", ":"), ensure_ascii=False, default=str).encode())


def search_answer(rows: int, rng: random.Random, texts: list[str]) -> dict:
    hits = [
        {
            "fqn": f"app.lexer{i % 7}.Lexer.parse_token_{i}",
            "name": f"parse_token_{i}",
            "kind": "method" if i % 4 else "function",
            "file": f"src/app/lexer{i % 7}.py",
            "line": 40 + i * 7,
            "score": round(rng.random(), 4),
            "signature": f"def parse_token_{i}(self, text: str, *, strict: bool = False) -> Token | None",
            "doc": None if i % 3 == 1 else rng.choice(texts),
            "decorators": ("staticmethod",) if i % 5 == 0 else (),
            "note": None,
        }
        for i in range(rows)
    ]
    return {"query": "parse token", "total_count": rows, "symbols": hits, "truncated": None,
            "tip": "Use symbol detail for a hit's body"}


def callers_answer(rows: int, rng: random.Random, texts: list[str]) -> dict:
    found = [
        {
            "fqn": f"app.parser{i % 5}.Parser.parse_expression_{i}",
            "kind": "method",
            "file": f"src/app/parser{i % 5}.py",
            "line": 100 + i,
            "snippet": f'    tok = self.lexer.next_token("{i}", sep="\\t")  # {rng.choice(texts)}',
            "context": {"class": "Parser", "async": i % 9 == 0, "hints": None},
        }
        for i in range(rows)
    ]
    return {"fqn": "app.tokens.Token", "total_count": rows + 9, "callers": found, "callers_omitted": 9,
            "notes": ["Indirect calls through getattr are not listed.", None]}


def changes_answer(rows: int, rng: random.Random, texts: list[str]) -> dict:
    commits = [
        {
            "sha": f"{rng.getrandbits(160):040x}",
            "author": rng.choice(AUTHORS),
            "message": rng.choice(texts),
            "committed_ns": 1_732_000_000_000_000_000 + i * 977_000_000,
            "object_id": 2**96 + rng.getrandbits(64),
            "parents": (f"{rng.getrandbits(160):040x}",),
        }
        for i in range(rows // 3)
    ]
    files = [
        {"path": f"src/app/module_{i}.py", "status": "modified" if i % 4 else "added",
         "additions": rng.randrange(400), "deletions": rng.randrange(90), "renamed_from": None}
        for i in range(rows)
    ]
    return {"base_branch": "main", "commits": commits, "affected_files": files, "files_omitted": 0,
            "stats": {"churn": round(rng.uniform(0, 50), 3), "hint": {"tip": "Review tests of added files"}}}


def tests_answer(rows: int, rng: random.Random, texts: list[str]) -> dict:
    tests = [
        {"name": f"test_parse_token[case-{i}]", "file": f"tests/test_lexer{i % 6}.py", "line": 12 + i * 3,
         "duration_s": round(rng.expovariate(20), 5), "markers": ["slow"] if i % 8 == 0 else [],
         "doc": rng.choice(texts) if i % 4 == 0 else None}
        for i in range(rows)
    ]
    return {"path": "src/app/lexer.py", "total_count": rows, "tests": tests,
            "notes": {"flaky": [t["name"] for t in tests[:2]], "tips": ["Run the slow ones last"]}}


@dataclass(frozen=True)
class Kind:
    label: str
    tool: str
    action: str
    arguments: dict
    build: Callable[[int, random.Random, list[str]], dict]


KINDS = [
    Kind("search", "search", "symbols", {"query": "parse token"}, search_answer),
    Kind("callers", "symbol", "callers", {"fqn": "app.tokens.Token"}, callers_answer),
    Kind("git", "git", "changes", {"base": "main"}, changes_answer),
    Kind("tests", "tests", "for_file", {"path": "src/app/lexer.py"}, tests_answer),
]


def answer(kind: Kind, size: int, flavour: str = "mixed", seed: int = 1) -> dict:
    """An answer of `kind` with as many rows as bring it nearest to `size` bytes."""
    texts = TEXTS[flavour]

    def grown(rows: int) -> dict:
        return kind.build(rows, random.Random(seed), texts)

    empty, ten = compact_size(grown(0)), compact_size(grown(10))
    return grown(max(0, round((size - empty) * 10 / (ten - empty))))
