"""Finishing answers, assembling their steps, did-you-mean answers to misses, and the step and hint records."""

import copy
import dataclasses
import logging
import types

import pytest
from conftest import MODULE_NAME, outcome
from reference import HINT_FLOOR_BYTES, MAX_STEPS, assembled
from reference import within_share as reference_within_share


def a_step(tool, reason="r", **args):
    return {"tool": tool, "args": args, "reason": reason}


def test_the_copy_shares_the_leaves_and_makes_the_containers_anew(ns, monkeypatch, code_kinds):
    freshness_calls, other, proxy, text, big = [], {1, 2}, types.MappingProxyType({"a": None}), "shared text", 10**40
    monkeypatch.setattr(ns, "add_freshness", lambda answer, block: freshness_calls.append((answer, block)))
    answer = {"found": True, "note": None, "rows": [{"o": other, "m": proxy, "s": text, "n": big, "doc": None}],
              "pair": (text, None)}
    snapshot = repr(answer)
    finished = ns.finish_answer(answer, "nope")
    assert finished == {"found": True, "rows": [{"o": other, "m": proxy, "s": text, "n": big}], "pair": [text, None]}
    row = finished["rows"][0]
    assert row["o"] is other and row["m"] is proxy and row["s"] is text and row["n"] is big
    assert freshness_calls == [(finished, None)] and ns.without_null_fields(proxy) is proxy
    finished["rows"].append("new")
    row["added"] = 1
    finished["pair"].append(2)
    assert repr(answer) == snapshot
    # A rebound copy is called, for the answer and for every value inside it.
    own, called = ns.without_null_fields, []
    monkeypatch.setattr(ns, "without_null_fields", lambda value: called.append(value) or own(value))
    ns.finish_answer({"a": 1, "b": ["x", None]}, "nope")
    assert called == [{"a": 1, "b": ["x", None]}, 1, ["x", None], "x", None]


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


def sources(monkeypatch, ns, signals, usual, rebound=("signals", "usual")):
    """Rebind the step sources named; returns the calls they receive."""
    calls = []
    for name, made in [(name, made) for name, made in (("signals", signals), ("usual", usual)) if name in rebound]:
        monkeypatch.setattr(ns, f"_{name}", lambda *args, name=name, made=made: calls.append((name, *args)) or made)
    return calls


# The tool's own steps (when truthy) are kept as a new list, the first kept
# whatever its size; else the signals (kept whatever their size) lead, and
# repeats and steps past the cap go.  Either source may be the module's own,
# which offers nothing here; a rebound one's lists stay as they are.
BIG = a_step("big", "r" * HINT_FLOOR_BYTES)


@pytest.mark.parametrize(
    "own, signals, usual",
    [(None, [], [a_step(f"u{n}") for n in range(MAX_STEPS + 1)]), ([], [a_step("s1"), a_step("s2")], [a_step("u")]),
     ((a_step("x"),), [a_step("s")], []), ([a_step("x")] * 5, [], []), ([BIG, a_step("x")], [], []),
     (None, [a_step("q", "signal", action="impact", fqn="f")], [a_step("q", "usual", fqn="f", action="impact"),
                                                                a_step("u")]),
     (None, [a_step("s")] * 5, [a_step("u")]), (None, [BIG], [a_step("u")]), (None, [], [])],
)
@pytest.mark.parametrize("rebound", [("signals", "usual"), ("signals",), ("usual",)])
def test_steps_are_the_tool_s_own_or_assembled_within_the_budget(ns, monkeypatch, own, signals, usual, rebound):
    calls, budget, own_budget = sources(monkeypatch, ns, signals, usual, rebound), [], ns._within_share
    signals, usual = (made if name in rebound else [] for name, made in (("signals", signals), ("usual", usual)))
    handed = [list(signals), list(usual)]

    def within_share(response, steps, *, keep):
        budget.append((response is answer, dict(response), list(steps), keep))
        return own_budget(response, steps, keep=keep)

    monkeypatch.setattr(ns, "_within_share", within_share)
    answer = {"a": 1, "next_steps": own, "b": 2}
    assert ns._add_next_steps(answer, "search", action="code") is answer
    steps, keep = (list(own), 1) if own else assembled(signals, usual)
    assert budget == [(True, {"a": 1, "b": 2}, steps, keep)] and [signals, usual] == handed
    assert [call[0] for call in calls] == ([] if own else list(rebound))
    kept = reference_within_share({"a": 1, "b": 2}, steps, keep)
    assert answer.get("next_steps") == (kept or None) and list(answer)[:2] == ["a", "b"]
    assert answer["next_steps"] is not own if own else not signals or answer["next_steps"][0] is signals[0]


class Popped(dict):
    """An answer that hands over steps of its own when they are taken out, and files what it is given its own way."""

    def pop(self, key, default=None):
        return [a_step("own")] if key == "next_steps" else default

    def __setitem__(self, key, value):
        super().__setitem__(f"own {key}", value)


@pytest.mark.parametrize("answer, steps", [(Popped(a=1), [a_step("own")]), (["next_steps"], TypeError)])
def test_the_tool_s_steps_are_taken_out_and_put_back_by_the_answer_s_own_methods(ns, answer, steps):
    made = outcome(lambda: ns._add_next_steps(answer, "search").get("own next_steps"))
    assert made[0] is steps if isinstance(steps, type) else made == ("value", steps)


def symbol(fqn):
    return types.SimpleNamespace(fqn=fqn, to_dict=lambda: {"fqn": fqn, "kind": "function"})


@pytest.fixture
def lookups(ns, monkeypatch):
    """Rebind the name lookups; a test sets what they return or raise."""
    state = types.SimpleNamespace(symbols=[], paths=[], guess=None, calls=[])

    def lookup(name, *args):
        state.calls.append((name, *args))
        if isinstance(result := getattr(state, name), BaseException):
            raise result
        return result

    for name, function in (("symbols", "nearest_symbols"), ("paths", "nearest_paths"), ("guess", "guessed_name")):
        monkeypatch.setattr(ns, function, lambda *args, name=name: lookup(name, *args))
    return state


REPO = object()
NEAR = "The nearest indexed {} to {} is {}"


@pytest.mark.parametrize(
    "function, near, wanted, action, guess, step",
    [
        ("suggest_symbols", ["pkg.lexer.parse_token", "pkg.lexer.parse"], "parse_tokn", "detail", None,
         a_step("symbol", NEAR.format("symbol", "parse_tokn", "pkg.lexer.parse_token"), action="detail",
                fqn="pkg.lexer.parse_token")),
        ("suggest_symbols", [], "pkg.Foo.bar", "detail", "",
         a_step("search", "No indexed symbol is near pkg.Foo.bar: search the names", action="symbols",
                query="pkg.Foo.bar")),
        ("suggest_symbols", [], "pkg::Foo::bar()", "detail", "bar",
         a_step("search", "No indexed symbol is near pkg::Foo::bar(): search the names", action="symbols", query="bar")),
        ("suggest_paths", ["src/app/main.py", "src/app/mains.py"], "src/app/mian.py", "imports", None,
         a_step("file", NEAR.format("file", "src/app/mian.py", "src/app/main.py"), action="imports",
                path="src/app/main.py")),
        ("suggest_paths", [], "docs/none.md", "imports", None, a_step("files", "No indexed file is near docs/none.md")),
        # A reason joins texts stored at three widths, and an empty one narrower than the rest.
        ("suggest_paths", ["docs/ŋ.md"], "", "imports", None,
         a_step("file", NEAR.format("file", "", "docs/ŋ.md"), action="imports", path="docs/ŋ.md")),
        ("suggest_paths", ["docs/grüße-ŋ.md"], "docs/grüße\U0001f4e6.md", "imports", None,
         a_step("file", NEAR.format("file", "docs/grüße\U0001f4e6.md", "docs/grüße-ŋ.md"), action="imports",
                path="docs/grüße-ŋ.md")),
    ],
)
def test_did_you_mean(ns, lookups, function, near, wanted, action, guess, step):
    lookups.symbols, lookups.paths, lookups.guess = [symbol(fqn) for fqn in near], near, guess
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
    # Only errors count as nothing near: an interrupt goes through, the answer untouched.
    lookups.symbols = lookups.paths = KeyboardInterrupt()
    answer = {"found": True}
    with pytest.raises(KeyboardInterrupt):
        getattr(ns, function)(answer, REPO, "x", "detail")
    assert answer == {"found": True}


def test_steps_are_new_records_and_hints_frozen_ones(ns):
    first, second = ns.step("t", "r"), ns.step(tool="t", reason="r")
    assert first == second == {"tool": "t", "args": {}, "reason": "r"}
    assert first is not second and first["args"] is not second["args"]
    Hint = ns.Hint
    assert dataclasses.is_dataclass(Hint) and Hint.__module__ == ns.__name__
    assert [f.name for f in dataclasses.fields(Hint)] == ["tool", "reason", "action", "takes"]
    full, same = Hint("symbol", "why", "detail", "fqn"), Hint(tool="symbol", reason="why", action="detail", takes="fqn")
    assert full == same and hash(full) == hash(same) and (Hint("t", "r").action, Hint("t", "r").takes) == (None, None)
    with pytest.raises(dataclasses.FrozenInstanceError):
        full.tool = "file"
