"""A large answer end to end: hundreds of hits, nested hint fields, a freshness
block, with the budget recomputed from json.dumps alone."""

import json

import pytest
from reference import compact_size, hint_size, within_share


def large_answer(rows, note):
    symbols = [{"fqn": f"pkg.m{i}.parse_{i}", "kind": "function" if i else "module", "file": f"src/pkg/m{i}.py",
                "doc": None, "span": (i, i + 3), "extra": {"note": note * (i % 3), "hints": ["é", None]}}
               for i in range(rows)]
    return {"query": "parse", "total_count": rows, "symbols": symbols, "tip": "Narrow the query", "warnings": None}


# The last answer's hints leave room for the first step only.
@pytest.mark.parametrize("rows, note, kept", [(300, "", 2), (300, "stale ", 2), (40, "stale index, rebuild " * 3, 1)])
def test_large_answer_is_finished_exactly(ns, monkeypatch, rows, note, kept):
    monkeypatch.setattr(ns, "is_code_symbol", lambda kind, file: kind == "function")
    block = {"indexed_at": "2024-05-02T09:14:00Z", "stale_files": ["src/pkg/m1.py"], "wiki": None}
    answer = large_answer(rows, note)
    before = json.dumps(answer)

    finished = ns.finish_answer(answer, "search", action="symbols", freshness=block)

    assert json.dumps(answer) == before
    assert list(finished) == ["query", "total_count", "symbols", "tip", "freshness", "next_steps"]
    first = finished["symbols"][1]
    assert list(first) == ["fqn", "kind", "file", "span", "extra"]
    assert first["span"] == [1, 4] and type(first["span"]) is list
    assert first["extra"]["hints"] == ["é", None]
    assert finished["freshness"] is block
    # The first hit is not code: the steps use the second one's fqn.
    usual = [
        {"tool": "symbol", "args": {"action": "detail", "fqn": "pkg.m1.parse_1"}, "reason": "Details of the best hit"},
        {"tool": "symbol", "args": {"action": "callers", "fqn": "pkg.m1.parse_1"}, "reason": "Who calls the best hit"},
    ]
    without_steps = {k: v for k, v in finished.items() if k != "next_steps"}
    assert finished["next_steps"] == within_share(without_steps, usual, 1) == usual[:kept]
    assert compact_size(without_steps) == ns._encoded_size(without_steps)
    assert hint_size(without_steps) == ns._hint_size(without_steps)

