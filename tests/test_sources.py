"""Where steps come from: test scope, usual follow-ups, hit counts and signals.

Each table runs on a dict and on a read-only mapping of the same entries: one
is read directly, the other through its lookups, and both must agree.
"""

import types

import pytest
from conftest import outcome
from strategies import Aliased
from velquorn.tool_handlers.next_steps import NEXT_STEPS

TEN = [f"f{i}.py" for i in range(10)]
RO = types.MappingProxyType


@pytest.mark.parametrize(
    "answer, arguments, scope",
    [
        ({"file": "a.py", "files": ["b.py", "a.py"]}, {}, {"changed_files": ["a.py", "b.py"]}),
        ({"affected_files": [{"name": "n"}, 3, None, ["z.py"]], "files": ["y.py"]}, {}, {"changed_files": ["y.py"]}),
        ({"files": [{"path": "a.py"}, "b.py", {"path": 1}, "a.py"]}, {}, {"changed_files": ["a.py", "b.py"]}),
        # The own file counts against the cap; more than ten files fall back to the branch.
        ({"file": "own.py", "affected_files": TEN}, {}, {"changed_files": ["own.py", *TEN[:9]]}),
        ({"file": "own.py", "affected_files": TEN, "base_branch": "main"}, {}, {"base_branch": "main"}),
        ({"files": TEN[:3], "files_omitted": True, "base_branch": "main"}, {}, {"base_branch": "main"}),
        ({"files": TEN[:3], "files_omitted": [], "base_branch": "main"}, {}, {"changed_files": TEN[:3]}),
        ({"files": TEN + TEN[:2], "base_branch": "dev"}, {}, {"changed_files": TEN}),
        ({"base_branch": ""}, {}, {}),
        ({"files": ("a.py",), "affected_files": "b.py", "file": 7}, {"path": "p.py"}, {"changed_files": ["p.py"]}),
        ({}, {"path": 3}, {}),
    ],
)
def test_tests_scope(ns, answer, arguments, scope):
    assert ns._tests_scope(answer, arguments) == ns._tests_scope(RO(answer), RO(arguments)) == scope


@pytest.mark.parametrize(
    "answer, count",
    [({}, None), ({"symbols": [], "files": ["a", "b"]}, 0), ({"total_count": "7", "total": 3}, 3),
     ({"total_count": 2.0, "results": [1]}, 1), ({"total_count": 10**30}, 10**30),
     ({"symbols": ("a",), "results": [1, 2]}, 2), (Aliased(total=4, results=[]), 4)],
)
def test_hit_count(ns, answer, count):
    assert ns._hit_count(answer) == ns._hit_count(RO(answer)) == count


def hit(fqn, kind="function"):
    return {"fqn": fqn, "kind": kind, "file": "a.py"}


@pytest.mark.parametrize(
    "answer, takes, arguments, value",
    [
        ({"query": "ans"}, "query", {"query": ""}, "ans"),
        ({"query": "ans"}, "query", {"query": "req"}, "req"),
        ({"fqn": 5, "symbols": [hit("skip", kind="module"), hit("hit")]}, "fqn", {}, "hit"),
        ({"symbols": ["x", {"kind": "class"}, hit(7)], "callers": [hit("c")]}, "fqn", {}, "c"),
        ({"symbols": [hit("m", kind="module")]}, "fqn", {"fqn": "req"}, "req"),
        ({"file": "own.py", "files": ["f.py"]}, "path", {"path": "p.py"}, "own.py"),
        ({"results": ["r.py"], "callers": [{"path": "c.py"}]}, "path", {}, "c.py"),
        ({"components": [{"name": 1}, "x", {"name": "C"}]}, "component", {"component": "req"}, "C"),
    ],
)
def test_taken(ns, code_kinds, answer, takes, arguments, value):
    assert ns._taken(answer, takes, arguments) == ns._taken(RO(answer), takes, RO(arguments)) == value
    with pytest.raises(KeyError):
        ns._taken(answer, "changed_files", arguments)


def test_fqn_search_asks_the_symbol_model_in_hit_order_at_call_time(ns, code_kinds, monkeypatch):
    answer = {"symbols": [{"fqn": "a", "kind": "module", "file": 3}, {"fqn": "b", "kind": 1}, {"fqn": "c"}]}
    assert ns._taken(answer, "fqn", {}) == "b"
    assert code_kinds == [("module", None), (None, None)]
    monkeypatch.setattr(ns, "is_code_symbol", lambda kind, file: False)
    assert ns._usual(answer, "search", None, {}) == []


def step(tool, action, reason, **args):
    return {"tool": tool, "args": {"action": action, **args} if action else args, "reason": reason}


CALLERS, DETAIL, TESTS = "Who calls the best hit", "Details of the best hit", "Tests to run for these files"
DELTA = step("context", "delta", "Context for reviewing the changes")
HITS = {"symbols": [hit("pkg.f")], "files": ["pkg/f.py"]}


@pytest.mark.parametrize(
    "tool, action, answer, arguments, steps",
    [
        ("search", "code", HITS, {}, [step("file", "symbols", "Symbols of the first file", path="pkg/f.py")]),
        ("search", "semantic", HITS, {}, [step("symbol", "detail", DETAIL, fqn="pkg.f"),
                                          step("symbol", "callers", CALLERS, fqn="pkg.f")]),
        ("quality", "circular_deps", HITS, {}, []),
        # No hits: nothing is taken from the answer or the request.
        ("symbol", "detail", {"fqn": "a.b.f", "total_count": 0}, {"fqn": "x", "path": "p"}, []),
        ("quality", "dead_code", {"dead_symbols": [hit("d")]}, {},
         [step("symbol", "references", "Check it has no references", fqn="d")]),
        ("symbol", "detail", {"total": 2}, RO({"fqn": "req.f", "path": "req.py"}),
         [step("symbol", "callers", CALLERS, fqn="req.f"), step("symbol", "references", "Every use of it", fqn="req.f"),
          step("tests", "for_file", "Its file's tests", path="req.py")]),
        ("git", "diff", {"files": ["a.py"]}, {}, [step("tests", "recommended", TESTS, changed_files=["a.py"]), DELTA]),
        ("git", "diff", {"total_count": 0, "base_branch": "main"}, {},
         [step("tests", "recommended", TESTS, base_branch="main"), DELTA]),
        ("architecture", "layers", {"symbols": [{"name": "S"}], "components": [{"name": "C"}]}, {},
         [step("architecture", "dependencies", "What it depends on", component="S")]),
        ("file", None, {"file": "", "symbols": [hit("m", kind="module")]}, {},
         [step("file", "imports", "What it imports", path="")]),
    ],
)
def test_usual_follow_ups(ns, code_kinds, tool, action, answer, arguments, steps):
    made = ns._usual(answer, tool, action, arguments)
    assert made == steps
    assert [(list(one), list(one["args"])) for one in made] == [(list(one), list(one["args"])) for one in steps]
    assert len({id(one["args"]) for one in made}) == len(made), "steps never share their arguments"



def test_the_hit_count_is_read_wherever_skipping_it_could_be_told(ns, monkeypatch):
    # git diff's hints take nothing from the hits; still, an answer whose
    # reading runs host code, or a hit count of the caller's own, sees it read.
    read = []

    class Measured(list):
        def __len__(self):
            read.append("len")
            return super().__len__()

    class Counted(int):
        def __int__(self):
            read.append("int")
            return 3

    ns._usual({"files": Measured(["a.py"])}, "git", "diff", {})
    ns._usual({"total_count": Counted(3)}, "git", "diff", {})
    monkeypatch.setattr(ns, "_hit_count", read.append)
    answer = {"files": ["a.py"]}
    ns._usual(answer, "git", "diff", {})
    assert read == ["len", "int", answer]


# An answer from which every kind of argument can be taken.
EVERYTHING = {"fqn": "pkg.f", "file": "pkg/f.py", "query": "q", "files": ["pkg/f.py"], "components": [{"name": "C"}]}


@pytest.mark.parametrize("key", sorted(NEXT_STEPS))
def test_each_row_of_next_steps_makes_its_steps(ns, code_kinds, key):
    tool, _, action = key.partition(":")
    wanted = []
    for hint in NEXT_STEPS[key]:
        if hint.takes == "changed_files":
            taken = ns._tests_scope(EVERYTHING, {})
        else:
            taken = {hint.takes: ns._taken(EVERYTHING, hint.takes, {})} if hint.takes else {}
        wanted.append(step(hint.tool, hint.action, hint.reason, **taken))
    # Each hint of the row makes a step: a taken None or an empty scope would drop it.
    assert ns._usual(EVERYTHING, tool, action or None, {}) == wanted
    assert None not in [value for one in wanted for value in one["args"].values()]


MEANING, UNTESTED = "No hits: search by meaning", "No test covers it: tests for a change of it"


class Untouchable(dict):
    get = __getitem__ = None  # any lookup fails


@pytest.mark.parametrize(
    "function, args, steps",
    [
        ("_signals", ("search", "code", {"total_count": 0}, {"query": "q"}), [step("search", "semantic", MEANING, query="q")]),
        ("_signals", ("search", "symbols", {"symbols": [], "query": "Foo"}, {}),
         [step("search", "semantic", MEANING, query="Foo")]),
        ("_signals", ("search", "symbols", {"total_count": 0}, {"query": ""}), []),
        ("_signals", ("search", "semantic", {"results": []}, {"query": "how"}),
         [step("explore", None, "No close match: ask explore", query="how")]),
        ("_signals", ("symbol", "callers", {"total_count": 8}, {"fqn": "f"}),
         [step("quality", "impact", "8 callers: check the blast radius", fqn="f")]),
        ("_signals", ("symbol", "callers", {"total_count": 7}, {"fqn": "f"}), []),
        ("_signals", ("symbol", "references", {"total": 30, "fqn": "a.b.C"}, {"fqn": ""}),
         [step("quality", "impact", "30 references: check the blast radius", fqn="a.b.C")]),
        # Counts past one digit of the int's storage.
        ("_signals", ("symbol", "callers", {"total_count": 2**30}, {"fqn": "f"}),
         [step("quality", "impact", "1073741824 callers: check the blast radius", fqn="f")]),
        ("_signals", ("symbol", "callers", {"total_count": 10**20}, {"fqn": "f"}),
         [step("quality", "impact", "100000000000000000000 callers: check the blast radius", fqn="f")]),
        ("_signals", ("tests", "for_file", {"tests": []}, {"path": ""}),
         [step("tests", "recommended", UNTESTED, changed_files=[""])]),
        ("_signals", ("tests", "for_file", {"tests": [], "path": "a.py"}, {"path": 5}), []),
        ("_signals", ("tests", "for_file", {"tests": ["t.py"]}, {"path": "a.py"}), []),
        # Answers and requests are read through their lookups, and not at all without a row.
        ("_signals", ("search", "code", Aliased(total=0), Aliased(fqn="q")), [step("search", "semantic", MEANING, query="q")]),
        ("_signals", ("search", None, Untouchable(), Untouchable()), []),
        ("_signals", ("symbol", "detail", {}, None), []),
        ("_signals", ("search", "code", {"total_count": 0}, None), AttributeError),
        # The signal functions read what is known a field at a time, none past the first test that fails.
        ("_blast_radius", ({"hits": 12, "fqn": "m.f", "what": "callers"},),
         step("quality", "impact", "12 callers: check the blast radius", fqn="m.f")),
        ("_blast_radius", ({"hits": 7},), None),
        ("_search_by_meaning", ({"hits": 0, "query": ""},), None),
        ("_ask_explore", ({"hits": 0, "query": "q"},), step("explore", None, "No close match: ask explore", query="q")),
        ("_untested", ({"hits": 1},), None),
        ("_untested", ({},), KeyError),
    ],
)
def test_signals(ns, function, args, steps):
    if function == "_signals":
        tool, action, answer, arguments = args
        args = (answer, tool, action, RO(arguments) if type(arguments) is dict else arguments)
    else:
        args = (RO(args[0]),)
    made = outcome(getattr(ns, function), *args)
    if isinstance(steps, type):
        assert made[0] is steps
    else:
        assert made == ("value", steps)
        orders = [[list(one["args"]) for one in (made if isinstance(made, list) else [made] * bool(made))]
                  for made in (made[1], steps)]
        assert orders[0] == orders[1]
