"""Where steps come from: test scope, usual follow-ups, hit counts and signals,
alike from dicts and from read-only mappings (read through their lookups)."""

import types

import pytest
from conftest import outcome, same
from strategies import Aliased

TEN = [f"f{i}.py" for i in range(10)]
RO = types.MappingProxyType


def hit(fqn, kind="function"):
    return {"fqn": fqn, "kind": kind, "file": "a.py"}


def step(tool, action, reason, **args):
    return {"tool": tool, "args": {"action": action, **args} if action else args, "reason": reason}


CALLERS, DETAIL, TESTS = "Who calls the best hit", "Details of the best hit", "Tests to run for these files"
DELTA = step("context", "delta", "Context for reviewing the changes")
HITS = {"symbols": [hit("pkg.f")], "files": ["pkg/f.py"]}
MEANING, UNTESTED = "No hits: search by meaning", "No test covers it: tests for a change of it"


class Untouchable(dict):
    get = __getitem__ = None  # any lookup fails


def scope(answer, arguments=None, **expected):
    return "_tests_scope", (answer, arguments or {}), expected


def impact(count, fqn, what="callers"):
    return step("quality", "impact", f"{count} {what}: check the blast radius", fqn=fqn)


SOURCES = [
    scope({"file": "a.py", "files": ["b.py", "a.py"]}, changed_files=["a.py", "b.py"]),
    scope({"affected_files": [{"name": "n"}, 3, None, ["z.py"]], "files": ["y.py"]}, changed_files=["y.py"]),
    scope({"files": [{"path": "a.py"}, "b.py", {"path": 1}, "a.py"]}, changed_files=["a.py", "b.py"]),
    # The own file counts against the cap; more than ten files fall back to the branch.
    scope({"file": "own.py", "affected_files": TEN}, changed_files=["own.py", *TEN[:9]]),
    scope({"file": "own.py", "affected_files": TEN, "base_branch": "main"}, base_branch="main"),
    scope({"files": TEN[:3], "files_omitted": True, "base_branch": "main"}, base_branch="main"),
    scope({"files": TEN[:3], "files_omitted": [], "base_branch": "main"}, changed_files=TEN[:3]),
    scope({"files": TEN + TEN[:2], "base_branch": "dev"}, changed_files=TEN),
    scope({"base_branch": ""}),
    scope({"files": ("a.py",), "affected_files": "b.py", "file": 7}, {"path": "p.py"}, changed_files=["p.py"]),
    scope({}, {"path": 3}),
    *(("_hit_count", (answer,), count) for answer, count in [
        ({}, None), ({"symbols": [], "files": ["a", "b"]}, 0), ({"total_count": "7", "total": 3}, 3),
        ({"total_count": 2.0, "results": [1]}, 1), ({"total_count": 10**30}, 10**30),
        ({"symbols": ("a",), "results": [1, 2]}, 2), (Aliased(total=4, results=[]), 4)]),
    ("_taken", ({"query": "ans"}, "query", {"query": ""}), "ans"),
    ("_taken", ({"query": "ans"}, "query", {"query": "req"}), "req"),
    ("_taken", ({"fqn": 5, "symbols": [hit("skip", kind="module"), hit("hit")]}, "fqn", {}), "hit"),
    ("_taken", ({"symbols": ["x", {"kind": "class"}, hit(7)], "callers": [hit("c")]}, "fqn", {}), "c"),
    ("_taken", ({"symbols": [hit("m", kind="module")]}, "fqn", {"fqn": "req"}), "req"),
    ("_taken", ({"file": "own.py", "files": ["f.py"]}, "path", {"path": "p.py"}), "own.py"),
    ("_taken", ({"results": ["r.py"], "callers": [{"path": "c.py"}]}, "path", {}), "c.py"),
    ("_taken", ({"components": [{"name": 1}, "x", {"name": "C"}]}, "component", {"component": "req"}), "C"),
    ("_taken", ({"file": "own.py"}, "changed_files", {}), KeyError),
    ("_usual", (HITS, "search", "code", {}), [step("file", "symbols", "Symbols of the first file", path="pkg/f.py")]),
    ("_usual", (HITS, "search", "semantic", {}), [step("symbol", "detail", DETAIL, fqn="pkg.f"),
                                                  step("symbol", "callers", CALLERS, fqn="pkg.f")]),
    ("_usual", (HITS, "quality", "circular_deps", {}), []),
    # No hits: nothing is taken from the answer or the request.
    ("_usual", ({"fqn": "a.b.f", "total_count": 0}, "symbol", "detail", {"fqn": "x", "path": "p"}), []),
    ("_usual", ({"dead_symbols": [hit("d")]}, "quality", "dead_code", {}),
     [step("symbol", "references", "Check it has no references", fqn="d")]),
    ("_usual", ({"total": 2}, "symbol", "detail", {"fqn": "req.f", "path": "req.py"}),
     [step("symbol", "callers", CALLERS, fqn="req.f"), step("symbol", "references", "Every use of it", fqn="req.f"),
      step("tests", "for_file", "Its file's tests", path="req.py")]),
    ("_usual", ({"files": ["a.py"]}, "git", "diff", {}), [step("tests", "recommended", TESTS, changed_files=["a.py"]),
                                                         DELTA]),
    ("_usual", ({"total_count": 0, "base_branch": "main"}, "git", "diff", {}),
     [step("tests", "recommended", TESTS, base_branch="main"), DELTA]),
    ("_usual", ({"symbols": [{"name": "S"}], "components": [{"name": "C"}]}, "architecture", "layers", {}),
     [step("architecture", "dependencies", "What it depends on", component="S")]),
    ("_usual", ({"file": "", "symbols": [hit("m", kind="module")]}, "file", None, {}),
     [step("file", "imports", "What it imports", path="")]),
    ("_signals", ({"total_count": 0}, "search", "code", {"query": "q"}), [step("search", "semantic", MEANING, query="q")]),
    ("_signals", ({"symbols": [], "query": "Foo"}, "search", "symbols", {}),
     [step("search", "semantic", MEANING, query="Foo")]),
    ("_signals", ({"total_count": 0}, "search", "symbols", {"query": ""}), []),
    ("_signals", ({"results": []}, "search", "semantic", {"query": "how"}),
     [step("explore", None, "No close match: ask explore", query="how")]),
    ("_signals", ({"total_count": 8}, "symbol", "callers", {"fqn": "f"}), [impact(8, "f")]),
    ("_signals", ({"total_count": 7}, "symbol", "callers", {"fqn": "f"}), []),
    ("_signals", ({"total": 30, "fqn": "a.b.C"}, "symbol", "references", {"fqn": ""}),
     [impact(30, "a.b.C", "references")]),
    # Counts past one digit of the int's storage, and past a machine integer either way.
    ("_signals", ({"total_count": 2**30}, "symbol", "callers", {"fqn": "f"}), [impact(2**30, "f")]),
    ("_signals", ({"total_count": 10**20}, "symbol", "callers", {"fqn": "f"}), [impact(10**20, "f")]),
    ("_signals", ({"total_count": -(10**20)}, "symbol", "callers", {"fqn": "f"}), []),
    ("_signals", ({"tests": []}, "tests", "for_file", {"path": ""}), [step("tests", "recommended", UNTESTED,
                                                                          changed_files=[""])]),
    ("_signals", ({"tests": [], "path": "a.py"}, "tests", "for_file", {"path": 5}), []),
    ("_signals", ({"tests": ["t.py"]}, "tests", "for_file", {"path": "a.py"}), []),
    # Answers and requests are read through their lookups, and not at all without a row.
    ("_signals", (Aliased(total=0), "search", "code", Aliased(fqn="q")), [step("search", "semantic", MEANING, query="q")]),
    ("_signals", (Untouchable(), "search", None, Untouchable()), []),
    ("_signals", ({}, "symbol", "detail", None), []),
    ("_signals", ({"total_count": 0}, "search", "code", None), AttributeError),
    # The signal functions read what is known a field at a time, none past the first test that fails.
    ("_blast_radius", ({"hits": 12, "fqn": "m.f", "what": "callers"},), impact(12, "m.f")),
    ("_blast_radius", ({"hits": 7},), None),
    ("_search_by_meaning", ({"hits": 0, "query": ""},), None),
    ("_ask_explore", ({"hits": 0, "query": "q"},), step("explore", None, "No close match: ask explore", query="q")),
    ("_untested", ({"hits": 1},), None),
    ("_untested", ({},), KeyError),
]


@pytest.mark.parametrize("function, args, expected", SOURCES)
def test_sources(ns, code_kinds, function, args, expected):
    for given in (args, tuple(RO(arg) if type(arg) is dict else arg for arg in args)):
        made = outcome(getattr(ns, function), *given)
        if isinstance(expected, type):
            assert made[0] is expected
            continue
        assert same(made, ("value", expected))
        steps = [one for one in made[1] if isinstance(one, dict)] if isinstance(made[1], list) else []
        assert len({id(one["args"]) for one in steps}) == len(steps), "steps never share their arguments"


def test_fqn_search_asks_the_symbol_model_in_hit_order_at_call_time(ns, code_kinds, monkeypatch):
    answer = {"symbols": [{"fqn": "a", "kind": "module", "file": 3}, {"fqn": "b", "kind": 1}, {"fqn": "c"}]}
    assert ns._taken(answer, "fqn", {}) == "b"
    assert code_kinds == [("module", None), (None, None)]
    monkeypatch.setattr(ns, "is_code_symbol", lambda kind, file: False)
    assert ns._usual(answer, "search", None, {}) == []


def test_the_hit_count_is_read_wherever_skipping_it_could_be_told(ns, monkeypatch):
    # git diff's hints take nothing from the hits; still, an answer whose
    # reading runs host code, or a hit count of the caller's own, sees it read.
    read = []
    measured = type("Measured", (list,), {"__len__": lambda self: read.append("len") or 1})
    counted = type("Counted", (int,), {"__int__": lambda self: read.append("int") or 3})
    for answer in ({"files": measured(["a.py"])}, {"total_count": counted(3)}):
        ns._usual(answer, "git", "diff", {})
    monkeypatch.setattr(ns, "_hit_count", read.append)
    ns._usual(answer := {"files": ["a.py"]}, "git", "diff", {})
    assert read == ["len", "int", answer]
