"""Finishing answers, assembling their steps, and did-you-mean answers to misses."""

import copy
import logging
import types

import pytest

MODULE_NAME = "velquorn.tool_handlers.next_steps"


def a_step(tool, reason="r", **args):
    return {"tool": tool, "args": args, "reason": reason}


class Opaque:
    def __str__(self):
        return "opaque"


def test_finish_answer_copies_without_nulls(ns, freshness_calls, code_kinds):
    other = Opaque()
    answer = {"found": True, "note": None, "rows": [{"fqn": "a", "doc": None}], "pair": ("x", None), "o": other}
    snapshot = copy.deepcopy(answer, {id(other): other})
    finished = ns.finish_answer(answer, "nope")
    assert finished == {"found": True, "rows": [{"fqn": "a"}], "pair": ["x", None], "o": other}
    assert finished is not answer and answer == snapshot and finished["o"] is other
    assert freshness_calls == [(finished, None)]


def test_freshness_is_added_before_the_steps(ns, freshness_calls, code_kinds):
    block = {"stale": True, "since": None}
    answer = {"fqn": "a.b.f", "file": "a/b.py", "total_count": 1}
    finished = ns.finish_answer(answer, "symbol", action="detail", arguments={}, freshness=block)
    assert list(finished) == ["fqn", "file", "total_count", "freshness", "next_steps"]
    assert finished["freshness"] is block
    assert [one["args"]["action"] for one in finished["next_steps"]] == ["callers", "references", "for_file"]
    assert answer == {"fqn": "a.b.f", "file": "a/b.py", "total_count": 1}
    assert len(freshness_calls) == 1 and freshness_calls[0][1] is block


def test_search_without_hits_signals_a_search_by_meaning(ns, freshness_calls, code_kinds):
    finished = ns.finish_answer({"results": [], "total_count": 0}, "search", action="code",
                                arguments=types.MappingProxyType({"query": "parse tokens"}))
    assert finished["next_steps"] == [
        a_step("search", "No hits: search by meaning", action="semantic", query="parse tokens")]


def stale(answer, block):
    answer["freshness"] = {}
    raise OSError("freshness unavailable")


@pytest.mark.parametrize(
    "add_freshness, own_steps, name, error",
    [
        (stale, [a_step("x")], "n", OSError),
        (lambda answer, block: None, 5, "n", TypeError),
        (lambda answer, block: None, [a_step("x")], "\ud800", UnicodeEncodeError),
    ],
)
def test_failures_escape_and_leave_the_tools_answer(ns, monkeypatch, add_freshness, own_steps, name, error):
    monkeypatch.setattr(ns, "add_freshness", add_freshness)
    answer = {"next_steps": own_steps, "name": name, "drop": None}
    snapshot = copy.deepcopy(answer)
    with pytest.raises(error):
        ns.finish_answer(answer, "search", action="code")
    assert answer == snapshot


@pytest.mark.parametrize(
    "own, kept",
    [
        (None, None),
        ([], None),
        ([a_step("x"), a_step("y")], [a_step("x"), a_step("y")]),
        ((a_step("x"),), [a_step("x")]),
        ([a_step("x")] * 5, [a_step("x")] * 5),
        ([a_step("big", "r" * 400), a_step("x")], [a_step("big", "r" * 400)]),
        ([a_step("x", "r" * 150), a_step("y", "r" * 150), a_step("z")], [a_step("x", "r" * 150)]),
        ("ab", ["a", "b"]),
    ],
)
def test_own_steps_replace_assembled_ones(ns, monkeypatch, own, kept):
    asked = []
    monkeypatch.setattr(ns, "_signals", lambda *args: asked.append("signals") or [])
    monkeypatch.setattr(ns, "_usual", lambda *args: asked.append("usual") or [])
    answer = {"a": 1, "next_steps": own, "b": 2}
    assert ns._add_next_steps(answer, "search", action="code") is answer
    if kept is None:
        assert list(answer) == ["a", "b"] and asked == ["signals", "usual"]
    else:
        assert list(answer) == ["a", "b", "next_steps"] and answer["next_steps"] == kept
        assert asked == []
        assert answer["next_steps"] is not own


def sources(monkeypatch, ns, signals, usual):
    """Rebind the two step sources; returns the calls they receive."""
    calls = []

    def fake_signals(response, tool, action, given):
        calls.append(("signals", response, tool, action, given))
        return signals

    def fake_usual(response, tool, action, given):
        calls.append(("usual", response, tool, action, given))
        return usual

    monkeypatch.setattr(ns, "_signals", fake_signals)
    monkeypatch.setattr(ns, "_usual", fake_usual)
    return calls


def test_sources_get_the_arguments_or_an_empty_dict(ns, monkeypatch):
    calls = sources(monkeypatch, ns, [], [])
    answer = {}
    ns._add_next_steps(answer, "symbol", action="detail")
    empty = types.MappingProxyType({})
    ns._add_next_steps(answer, "symbol", arguments=empty)
    assert [call[0] for call in calls] == ["signals", "usual", "signals", "usual"]
    assert all(call[1] is answer for call in calls)
    assert calls[0][2:] == ("symbol", "detail", {}) and calls[1][4] is calls[0][4]
    assert calls[2][2:4] == ("symbol", None) and calls[2][4] is empty and calls[3][4] is empty
    assert answer == {}


@pytest.mark.parametrize(
    "signals, usual, expected, keep",
    [
        ([], [a_step("u1"), a_step("u2"), a_step("u3"), a_step("u4")],
         [a_step("u1"), a_step("u2"), a_step("u3")], 1),
        ([a_step("q", "signal", action="impact", fqn="f")], [a_step("q", "usual", fqn="f", action="impact"), a_step("u")],
         [a_step("q", "signal", action="impact", fqn="f"), a_step("u")], 1),
        ([a_step("s1"), a_step("s2")], [a_step("u")], [a_step("s1"), a_step("s2"), a_step("u")], 2),
        ([a_step("s")] * 5, [a_step("u")], [a_step("s"), a_step("u")], 3),
        ([], [], [], 1),
    ],
)
def test_assembly_puts_signals_first_without_repeats(ns, monkeypatch, signals, usual, expected, keep):
    sources(monkeypatch, ns, signals, usual)
    budget = []

    def within_share(response, steps, *, keep):
        budget.append((response is answer, dict(response), list(steps), keep))
        return steps

    monkeypatch.setattr(ns, "_within_share", within_share)
    answer = {"found": True, "next_steps": None}
    ns._add_next_steps(answer, "t")
    assert budget == [(True, {"found": True}, expected, keep)]
    assert answer.get("next_steps") == (expected or None)
    if signals:
        assert answer["next_steps"][0] is signals[0]


def test_budget_trims_assembled_steps_but_keeps_the_signal(ns, monkeypatch):
    big = [a_step("s", "r" * 300), a_step("u1"), a_step("u2")]
    sources(monkeypatch, ns, big[:1], big[1:])
    answer = ns._add_next_steps({"x": 1}, "t")
    assert answer == {"x": 1, "next_steps": big[:1]}


# Did-you-mean


class Symbol:
    def __init__(self, fqn):
        self.fqn = fqn

    def to_dict(self):
        return {"fqn": self.fqn, "kind": "function"}


@pytest.fixture
def lookups(ns, monkeypatch):
    """Rebind the name lookups; a test sets what they return or raise."""
    state = types.SimpleNamespace(symbols=[], paths=[], guess=None, calls=[])

    def answer(name, result, *args):
        state.calls.append((name, *args))
        if isinstance(result, BaseException):
            raise result
        return result

    monkeypatch.setattr(ns, "nearest_symbols", lambda repo, wanted: answer("symbols", state.symbols, repo, wanted))
    monkeypatch.setattr(ns, "nearest_paths", lambda repo, wanted: answer("paths", state.paths, repo, wanted))
    monkeypatch.setattr(ns, "guessed_name", lambda wanted: answer("guess", state.guess, wanted))
    return state


REPO = object()


NEAR = "The nearest indexed {} to {} is {}"


@pytest.mark.parametrize(
    "function, near, wanted, action, guess, step",
    [
        ("suggest_symbols", ["pkg.lexer.parse_token", "pkg.lexer.parse"], "parse_tokn", "detail", None,
         a_step("symbol", NEAR.format("symbol", "parse_tokn", "pkg.lexer.parse_token"), action="detail",
                fqn="pkg.lexer.parse_token")),
        ("suggest_symbols", [], "pkg.Foo.bar", "detail", "bar",
         a_step("search", "No indexed symbol is near pkg.Foo.bar: search the names", action="symbols", query="bar")),
        ("suggest_symbols", [], "pkg.Foo.bar", "detail", "",
         a_step("search", "No indexed symbol is near pkg.Foo.bar: search the names", action="symbols",
                query="pkg.Foo.bar")),
        ("suggest_paths", ["src/app/main.py", "src/app/mains.py"], "src/app/mian.py", "imports", None,
         a_step("file", NEAR.format("file", "src/app/mian.py", "src/app/main.py"), action="imports",
                path="src/app/main.py")),
        ("suggest_paths", [], "docs/none.md", "imports", None, a_step("files", "No indexed file is near docs/none.md")),
    ],
)
def test_did_you_mean(ns, lookups, function, near, wanted, action, guess, step):
    lookups.symbols, lookups.paths, lookups.guess = [Symbol(fqn) for fqn in near], near, guess
    answer = {"error": "not found", "found": True, "next_steps": [a_step("old")]}
    assert getattr(ns, function)(answer, REPO, wanted, action) is answer
    assert list(answer) == ["error", "found", "next_steps", "did_you_mean"]
    assert answer["found"] is False and answer["next_steps"] == [step]
    assert list(answer["next_steps"][0]["args"]) == list(step["args"])
    if function == "suggest_paths":
        assert answer["did_you_mean"] is near and lookups.calls[0] == ("paths", REPO, wanted)
    else:
        assert answer["did_you_mean"] == [{"fqn": fqn, "kind": "function"} for fqn in near]
        assert lookups.calls[0] == ("symbols", REPO, wanted)
        assert [call[0] for call in lookups.calls] == ["symbols"] + ["guess"] * (not near)


@pytest.mark.parametrize(
    "function, kind, fallback",
    [("suggest_symbols", "symbols", "search"), ("suggest_paths", "files", "files")],
)
def test_failed_lookup_is_logged_and_counts_as_nothing_near(ns, lookups, caplog, function, kind, fallback):
    lookups.symbols = lookups.paths = ValueError("index locked")
    with caplog.at_level(logging.WARNING, logger=MODULE_NAME):
        answer = getattr(ns, function)({}, REPO, "parse_tokn", "detail")
    assert answer["did_you_mean"] == [] and answer["next_steps"][0]["tool"] == fallback
    [record] = caplog.records
    assert record.name == MODULE_NAME and record.levelno == logging.WARNING
    assert record.getMessage() == f"Looking for {kind} near 'parse_tokn' failed"
    assert record.exc_info[0] is ValueError and str(record.exc_info[1]) == "index locked"


@pytest.mark.parametrize("function", ["suggest_symbols", "suggest_paths"])
def test_interrupts_are_not_caught(ns, lookups, function):
    lookups.symbols = lookups.paths = KeyboardInterrupt()
    answer = {"found": True}
    with pytest.raises(KeyboardInterrupt):
        getattr(ns, function)(answer, REPO, "x", "detail")
    assert answer == {"found": True}


def test_failures_after_the_lookup_escape(ns, lookups):
    lookups.guess = LookupError("no guess")
    answer = {"next_steps": "kept"}
    with pytest.raises(LookupError):
        ns.suggest_symbols(answer, REPO, "x", "detail")
    assert answer == {"next_steps": "kept", "found": False, "did_you_mean": []}

    class Broken(Symbol):
        def to_dict(self):
            raise RuntimeError("no dict")

    lookups.symbols = [Broken("a")]
    answer = {"found": True}
    with pytest.raises(RuntimeError):
        ns.suggest_symbols(answer, REPO, "x", "detail")
    assert answer == {"found": False}
