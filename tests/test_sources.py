"""Where steps come from: test scope, usual follow-ups, hit counts and signals."""

import types

import pytest

TEN = [f"f{i}.py" for i in range(10)]


@pytest.mark.parametrize(
    "answer, arguments, files, scope",
    [
        ({"file": "a.py", "files": ["b.py", "a.py"]}, {}, ["a.py", "b.py"], {"changed_files": ["a.py", "b.py"]}),
        ({"affected_files": ["x.py"], "files": ["y.py"]}, {}, ["x.py"], {"changed_files": ["x.py"]}),
        ({"affected_files": [{"name": "n"}, 3, None, ["z.py"]], "files": ["y.py"]}, {}, ["y.py"],
         {"changed_files": ["y.py"]}),
        ({"files": [{"path": "a.py"}, "b.py", {"path": 1}, "a.py"]}, {}, ["a.py", "b.py"],
         {"changed_files": ["a.py", "b.py"]}),
        # The own file counts against the cap.
        ({"file": "own.py", "affected_files": TEN, "base_branch": "main"}, {}, ["own.py", *TEN],
         {"base_branch": "main"}),
        ({"file": "own.py", "affected_files": TEN}, {}, ["own.py", *TEN], {"changed_files": ["own.py", *TEN[:9]]}),
        ({"files": TEN, "base_branch": "main"}, {}, TEN, {"changed_files": TEN}),
        ({"files": TEN[:3], "files_omitted": True, "base_branch": "main"}, {}, TEN[:3], {"base_branch": "main"}),
        ({"files": TEN[:3], "files_omitted": 2}, {}, TEN[:3], {"changed_files": TEN[:3]}),
        ({"files": TEN[:3], "files_omitted": [], "base_branch": "main"}, {}, TEN[:3], {"changed_files": TEN[:3]}),
        ({"files": TEN + TEN[:2] + ["f0.py"], "base_branch": "dev"}, {}, TEN, {"changed_files": TEN}),
        ({"base_branch": "main"}, {"path": "p.py"}, ["p.py"], {"changed_files": ["p.py"]}),
        ({"base_branch": "main"}, {}, [], {"base_branch": "main"}),
        ({"base_branch": ""}, {}, [], {}),
        ({"base_branch": 5}, {}, [], {}),
        ({"file": "own.py"}, {"path": "p.py"}, ["own.py"], {"changed_files": ["own.py"]}),
        ({"files": ("a.py",), "affected_files": "b.py", "file": 7}, {"path": "p.py"}, ["p.py"],
         {"changed_files": ["p.py"]}),
        ({}, {"path": 3}, [], {}),
        ({}, {}, [], {}),
    ],
)
def test_tests_scope(ns, answer, arguments, files, scope):
    # A read-only mapping is read through its lookups, a dict directly: both agree.
    for given in (answer, types.MappingProxyType(answer)):
        assert ns._answer_files(given, types.MappingProxyType(arguments)) == files
        assert ns._tests_scope(given, arguments) == scope


@pytest.mark.parametrize(
    "answer, count",
    [
        ({"total_count": 5, "symbols": []}, 5),
        ({"symbols": [], "files": ["a", "b"]}, 0),
        ({}, None),
        ({"total_count": "7", "total": 3}, 3),
        ({"total_count": 2.0, "results": [1]}, 1),
        ({"total_count": True}, 1),
        ({"total": -2, "results": []}, -2),
        ({"total_count": 10**30}, 10**30),
        ({"symbols": ("a",), "results": [1, 2]}, 2),
        ({"components": [1, 2, 3], "query": "x"}, 3),
    ],
)
def test_hit_count(ns, answer, count):
    assert ns._hit_count(answer) == ns._hit_count(types.MappingProxyType(answer)) == count


class Aliased(dict):
    """Its lookups, not its storage, say what it holds."""

    def get(self, key, default=None):
        return super().get("count" if key == "total_count" else key, default)


def test_dict_subclasses_are_read_through_their_lookups(ns):
    assert ns._hit_count(Aliased(count=4, results=[])) == 4
    assert ns._signals(Aliased(count=0), "search", "code", Aliased(query="q"))[0]["args"]["query"] == "q"


def fqn_hit(fqn, kind="function", file="a.py"):
    return {"fqn": fqn, "kind": kind, "file": file}


@pytest.mark.parametrize(
    "answer, takes, arguments, value",
    [
        ({"query": "ans"}, "query", {"query": ""}, "ans"),
        ({"query": "ans"}, "query", {"query": "req"}, "req"),
        ({}, "query", {}, None),
        ({"query": ""}, "query", {"query": ""}, ""),
        ({"query": 5}, "query", {}, 5),
        ({"fqn": "own", "symbols": [fqn_hit("hit")]}, "fqn", {"fqn": "req"}, "own"),
        ({"fqn": 5, "symbols": [fqn_hit("skip", kind="module"), fqn_hit("hit")]}, "fqn", {}, "hit"),
        ({"symbols": ["x", {"kind": "class"}, fqn_hit(7)], "callers": [fqn_hit("c")]}, "fqn", {}, "c"),
        ({"symbols": [fqn_hit("m", kind="module")]}, "fqn", {"fqn": "req"}, "req"),
        ({}, "fqn", {"fqn": 5}, None),
        ({"file": "own.py", "files": ["f.py"]}, "path", {"path": "p.py"}, "own.py"),
        ({"results": ["r.py"], "callers": [{"path": "c.py"}]}, "path", {}, "c.py"),
        ({"results": ["r.py"], "tests": ["t.py"]}, "path", {"path": "p.py"}, "p.py"),
        ({"files": [{"path": 1}, "f.py"]}, "path", {}, "f.py"),
        ({"symbols": [{"name": "S"}], "components": [{"name": "C"}]}, "component", {}, "S"),
        ({"components": [{"name": 1}, "x", {"name": "C"}]}, "component", {"component": "req"}, "C"),
    ],
)
def test_taken(ns, code_kinds, answer, takes, arguments, value):
    assert ns._taken(answer, takes, arguments) == value
    assert ns._taken(types.MappingProxyType(answer), takes, types.MappingProxyType(arguments)) == value


def test_fqn_search_asks_the_symbol_model_in_hit_order(ns, code_kinds):
    answer = {"symbols": [{"fqn": "a", "kind": "module", "file": 3}, {"fqn": "b", "kind": 1}, {"fqn": "c"}]}
    assert ns._taken(answer, "fqn", {}) == "b"
    assert code_kinds == [("module", None), (None, None)]


@pytest.mark.parametrize("takes", ["changed_files", "bogus"])
def test_taken_refuses_other_kinds(ns, takes):
    with pytest.raises(KeyError):
        ns._taken({"symbols": []}, takes, {})


def usual(tool, action, reason, **args):
    return {"tool": tool, "args": {"action": action, **args} if action else args, "reason": reason}


CALLERS = "Who calls the best hit"
REFERENCES = "Every use of it"
DETAIL = "Details of the best hit"
FILE_SYMBOLS = "Symbols of the first file"
TESTS = "Tests to run for these files"
HITS = {"symbols": [fqn_hit("pkg.f", file="pkg/f.py")], "files": ["pkg/f.py"]}


@pytest.mark.parametrize(
    "tool, action, answer, arguments, steps",
    [
        ("search", "code", HITS, {}, [usual("file", "symbols", FILE_SYMBOLS, path="pkg/f.py")]),
        ("search", "semantic", HITS, {},
         [usual("symbol", "detail", DETAIL, fqn="pkg.f"), usual("symbol", "callers", CALLERS, fqn="pkg.f")]),
        ("search", None, {"symbols": [fqn_hit("x")]}, {},
         [usual("symbol", "detail", DETAIL, fqn="x"), usual("symbol", "callers", CALLERS, fqn="x")]),
        ("quality", "circular_deps", HITS, {}, []),
        ("quality", "dead_code", {"dead_symbols": [fqn_hit("d")]}, {},
         [usual("symbol", "references", "Check it has no references", fqn="d")]),
        ("nope", None, HITS, {}, []),
        ("symbol", "detail", {"fqn": "a.b.f", "file": "a/b.py", "total_count": 1}, {},
         [usual("symbol", "callers", CALLERS, fqn="a.b.f"), usual("symbol", "references", REFERENCES, fqn="a.b.f"),
          usual("tests", "for_file", "Its file's tests", path="a/b.py")]),
        ("symbol", "detail", {"fqn": "a.b.f", "file": "a/b.py", "total_count": 0}, {"query": "q"}, []),
        ("symbol", "detail", {"total": 2}, types.MappingProxyType({"fqn": "req.f", "path": "req.py"}),
         [usual("symbol", "callers", CALLERS, fqn="req.f"), usual("symbol", "references", REFERENCES, fqn="req.f"),
          usual("tests", "for_file", "Its file's tests", path="req.py")]),
        ("git", "diff", {"files": ["a.py", "b.py", "c.py"]}, {},
         [usual("tests", "recommended", TESTS, changed_files=["a.py", "b.py", "c.py"]),
          usual("context", "delta", "Context for reviewing the changes")]),
        ("git", "diff", {"total_count": 0, "base_branch": "main"}, {},
         [usual("tests", "recommended", TESTS, base_branch="main"),
          usual("context", "delta", "Context for reviewing the changes")]),
        ("git", None, {}, {}, [usual("context", "delta", "Context for reviewing the changes")]),
        ("status", None, {"total_count": 0}, {}, [usual("architecture", "components", "The components of the code")]),
        ("architecture", "layers", {"symbols": [{"name": "S"}], "components": [{"name": "C"}]}, {},
         [usual("architecture", "dependencies", "What it depends on", component="S")]),
        ("file", None, {"file": "", "symbols": [fqn_hit("m", kind="module")]}, {},
         [usual("file", "imports", "What it imports", path="")]),
    ],
)
def test_usual_follow_ups(ns, code_kinds, tool, action, answer, arguments, steps):
    made = ns._usual(answer, tool, action, arguments)
    assert made == steps
    assert [list(one) for one in made] == [["tool", "args", "reason"]] * len(made)
    assert [list(one["args"]) for one in made] == [list(one["args"]) for one in steps]
    assert len({id(one["args"]) for one in made}) == len(made)


def test_symbol_model_is_read_at_call_time(ns, monkeypatch):
    answer = {"symbols": [fqn_hit("first"), fqn_hit("second")]}
    monkeypatch.setattr(ns, "is_code_symbol", lambda kind, file: True)
    assert ns._usual(answer, "search", None, {})[0]["args"]["fqn"] == "first"
    monkeypatch.setattr(ns, "is_code_symbol", lambda kind, file: False)
    assert ns._usual(answer, "search", None, {}) == []

    def broken(kind, file):
        raise LookupError("symbol model down")

    monkeypatch.setattr(ns, "is_code_symbol", broken)
    with pytest.raises(LookupError, match="symbol model down"):
        ns._usual(answer, "search", None, {})


def signal(tool, reason, **args):
    return [{"tool": tool, "args": args, "reason": reason}]


MEANING = "No hits: search by meaning"
UNTESTED = "No test covers it: tests for a change of it"


@pytest.mark.parametrize(
    "tool, action, answer, arguments, steps",
    [
        ("search", None, {"total_count": 0}, {"query": "q"}, []),
        ("symbol", "detail", {"total_count": 0}, {"query": "q"}, []),
        ("search", "code", {"total_count": 0}, {"query": "parse tokens"},
         signal("search", MEANING, action="semantic", query="parse tokens")),
        ("search", "symbols", {"symbols": [], "query": "Foo"}, {}, signal("search", MEANING, action="semantic", query="Foo")),
        ("search", "symbols", {"total_count": 0}, {"query": ""}, []),
        ("search", "definition", {"total_count": 1}, {"query": "x"}, []),
        ("search", "definition", {}, {"query": "x"}, []),
        ("search", "semantic", {"results": []}, {"query": "how are tokens refreshed"},
         signal("explore", "No close match: ask explore", query="how are tokens refreshed")),
        ("symbol", "callers", {"total_count": 8}, {"fqn": "pkg.mod.func"},
         signal("quality", "8 callers: check the blast radius", action="impact", fqn="pkg.mod.func")),
        ("symbol", "callers", {"total_count": 7}, {"fqn": "pkg.mod.func"}, []),
        ("symbol", "references", {"total": 30, "fqn": "a.b.C"}, {"fqn": ""},
         signal("quality", "30 references: check the blast radius", action="impact", fqn="a.b.C")),
        ("symbol", "callers", {"total_count": 20}, {}, []),
        ("tests", "for_file", {"tests": []}, {"path": "src/app/main.py"},
         signal("tests", UNTESTED, action="recommended", changed_files=["src/app/main.py"])),
        ("tests", "for_file", {"tests": []}, {"path": ""}, signal("tests", UNTESTED, action="recommended", changed_files=[""])),
        ("tests", "for_file", {"tests": [], "path": "a.py"}, {}, []),
        ("tests", "for_file", {"total_count": 0}, {"path": 5}, []),
        ("tests", "for_file", {"tests": ["t.py"]}, {"path": "a.py"}, []),
    ],
)
def test_signals(ns, tool, action, answer, arguments, steps):
    made = ns._signals(answer, tool, action, types.MappingProxyType(arguments))
    assert made == steps
    assert [list(one["args"]) for one in made] == [list(one["args"]) for one in steps]


class Untouchable(dict):
    def get(self, *args):
        raise AssertionError("read")

    def __getitem__(self, key):
        raise AssertionError("read")


def test_signals_read_nothing_without_a_row(ns):
    assert ns._signals(Untouchable(), "search", None, Untouchable()) == []
    assert ns._signals({}, "symbol", "detail", None) == []
    with pytest.raises(AttributeError):
        ns._signals({"total_count": 0}, "search", "code", None)
