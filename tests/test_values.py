"""Null-field removal, the step record and the fixed tables."""

import dataclasses
import types
import typing
from collections import namedtuple

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st


def reference(value):
    if isinstance(value, dict):
        return {key: reference(item) for key, item in value.items() if item is not None}
    if isinstance(value, (list, tuple)):
        return [reference(item) for item in value]
    return value


def assert_same_tree(mine, theirs):
    """Exact container types, key order, and the very same leaves."""
    assert type(mine) is type(theirs)
    if type(mine) is dict:
        assert list(mine) == list(theirs)
        for key in mine:
            assert_same_tree(mine[key], theirs[key])
    elif type(mine) is list:
        assert len(mine) == len(theirs)
        for one, other in zip(mine, theirs):
            assert_same_tree(one, other)
    else:
        assert mine is theirs


Answer = type("Answer", (dict,), {})
Rows = type("Rows", (list,), {})
Pair = namedtuple("Pair", "first second")


class Reversed(dict):
    def items(self):
        return reversed(list(super().items()))


class Broken(dict):
    def items(self):
        raise RuntimeError("entries unreadable")


@pytest.mark.parametrize(
    "value, expected",
    [
        ({"a": None, "b": 1}, {"b": 1}),
        ({"a": {"b": None}, "l": [None]}, {"a": {}, "l": [None]}),
        ([None, 1, {"x": None}], [None, 1, {}]),
        ({"t": ("x", None), "p": Pair(1, None)}, {"t": ["x", None], "p": [1, None]}),
        (None, None),
        ({"b": 1, "a": None, "c": 2, 1: None, 2: ""}, {"b": 1, "c": 2, 2: ""}),
        (Answer(a=None, b=Rows([Answer(c=None)])), {"b": [{}]}),
        (Reversed(a=1, b=None, c=3), {"c": 3, "a": 1}),
    ],
)
def test_without_null_fields(ns, value, expected):
    assert_same_tree(ns.without_null_fields(value), reference(expected))


def test_leaves_are_shared_and_containers_new(ns):
    other, proxy, text, big = {1, 2}, types.MappingProxyType({"a": None}), "shared text", 10**40
    value = {"rows": [{"o": other, "m": proxy, "s": text, "n": big, "gone": None}], "t": (text,)}
    snapshot = repr(value)
    copied = ns.without_null_fields(value)
    row = copied["rows"][0]
    assert row["o"] is other and row["m"] is proxy and row["s"] is text and row["n"] is big
    assert copied["rows"] is not value["rows"] and row is not value["rows"][0]
    copied["rows"].append("new")
    row["added"] = 1
    copied["t"].append(2)
    assert repr(value) == snapshot
    assert ns.without_null_fields(proxy) is proxy


def test_failures_escape(ns):
    with pytest.raises(RuntimeError, match="entries unreadable"):
        ns.without_null_fields({"rows": [Broken(a=1)]})
    value = None
    for _ in range(100_000):
        value = {"a": [value]}
    with pytest.raises(RecursionError):
        ns.without_null_fields(value)


leaves = st.one_of(st.none(), st.booleans(), st.integers(), st.floats(), st.text(max_size=5),
                   st.frozensets(st.integers(0, 3), max_size=2))
keys = st.one_of(st.text(max_size=3), st.integers(-3, 3))


def containers(kids):
    items, entries = st.lists(kids, max_size=4), st.dictionaries(keys, kids, max_size=4)
    return st.one_of(items, items.map(tuple), items.map(Rows), entries, entries.map(Answer))


values = st.recursive(leaves, containers, max_leaves=30)


@settings(max_examples=800, deadline=None)
@given(values)
def test_without_null_fields_matches_a_plain_walk(ns, value):
    snapshot = repr(value)
    assert_same_tree(ns.without_null_fields(value), reference(value))
    assert repr(value) == snapshot


def test_step_keeps_keys_and_arguments_in_order(ns):
    marker = object()
    made = ns.step("search", "No hits: search by meaning", action="semantic", query=marker, none=None)
    assert made == {"tool": "search", "args": {"action": "semantic", "query": marker, "none": None},
                    "reason": "No hits: search by meaning"}
    assert list(made) == ["tool", "args", "reason"] and list(made["args"]) == ["action", "query", "none"]
    assert made["args"]["query"] is marker and list(ns.step("t", "r", z=1, a=2)["args"]) == ["z", "a"]
    first, second = ns.step("t", "r"), ns.step(tool="t", reason="r")
    assert first == second == {"tool": "t", "args": {}, "reason": "r"}
    assert first is not second and first["args"] is not second["args"]


@pytest.mark.parametrize("args, kwargs", [(("a", "b"), {"tool": 1}), (("a", "b"), {"reason": 1}), (("a", "b", "c"), {})])
def test_step_refuses_bad_calls(ns, args, kwargs):
    with pytest.raises(TypeError):
        ns.step(*args, **kwargs)


# Tables

D, C, R, F, T = "_DETAIL", "_CALLERS", "_REFERENCES", "_FILE_SYMBOLS", "_CHANGED_TESTS"
SHARED = {
    D: ("symbol", "detail", "fqn", "Details of the best hit"),
    C: ("symbol", "callers", "fqn", "Who calls the best hit"),
    R: ("symbol", "references", "fqn", "Every use of it"),
    F: ("file", "symbols", "path", "Symbols of the first file"),
    T: ("tests", "recommended", "changed_files", "Tests to run for these files"),
}
ROWS = [
    ("status", [("architecture", "components", None, "The components of the code")]),
    ("search", [D, C]),
    ("search:code", [F]),
    ("symbol", [R, C]),
    ("symbol:detail", [C, R, ("tests", "for_file", "path", "Its file's tests")]),
    ("symbol:callers", [R]),
    ("symbol:references", [C]),
    ("file", [D, ("file", "imports", "path", "What it imports")]),
    ("file:imports", [F]),
    ("file:related", [F]),
    ("files", [F]),
    ("architecture", [("architecture", "dependencies", "component", "What it depends on")]),
    ("git", [T, ("context", "delta", None, "Context for reviewing the changes")]),
    ("git:hotspots", [F]),
    ("quality", [("symbol", "references", "fqn", "Check it has no references")]),
    ("quality:impact", [T]),
    ("quality:circular_deps", []),
    ("quality:duplicates", [D]),
    ("context", [T]),
    ("tests", [F]),
]


def test_next_steps_rows(ns):
    assert type(ns.NEXT_STEPS) is dict and list(ns.NEXT_STEPS) == [key for key, _ in ROWS]
    for key, hints in ROWS:
        row = ns.NEXT_STEPS[key]
        assert type(row) is tuple and all(type(hint) is ns.Hint for hint in row), key
        expected = [SHARED[hint] if isinstance(hint, str) else hint for hint in hints]
        assert [(hint.tool, hint.action, hint.takes, hint.reason) for hint in row] == expected, key
        # A shared hint is one record, held by every row that names it.
        assert all(made is getattr(ns, hint) for made, hint in zip(row, hints) if isinstance(hint, str)), key


def test_signal_rows_hold_the_modules_functions(ns):
    meaning, explore, radius = ns._search_by_meaning, ns._ask_explore, ns._blast_radius
    assert type(ns._SIGNALS) is dict
    assert list(ns._SIGNALS.items()) == [
        ("search:symbols", meaning), ("search:code", meaning), ("search:definition", meaning),
        ("search:semantic", explore), ("symbol:callers", radius), ("symbol:references", radius),
        ("tests:for_file", ns._untested),
    ]
    assert all(function is getattr(ns, function.__name__) for function in ns._SIGNALS.values())


def test_limits_and_field_names(ns):
    assert ns._HIT_LISTS == ("symbols", "results", "matches", "definitions", "callers", "references",
                             "dead_symbols", "files", "tests", "components")
    assert ns.HINT_KEYS == frozenset({"tip", "tips", "hint", "hints", "note", "notes", "next_steps"})
    assert type(ns.HINT_KEYS) is frozenset and type(ns._HIT_LISTS) is tuple
    limits = {"HINT_SHARE": 0.15, "HINT_FLOOR_BYTES": 320, "_STEPS_KEY_BYTES": 14, "MAX_STEPS": 3,
              "FAN_IN_FOR_IMPACT": 8, "MAX_STEP_FILES": 10}
    assert {name: getattr(ns, name) for name in limits} == limits
    assert type(ns.HINT_SHARE) is float
    assert all(type(getattr(ns, name)) is int for name in limits if name != "HINT_SHARE")


def test_hint_is_a_frozen_record(ns):
    Hint = ns.Hint
    assert dataclasses.is_dataclass(Hint) and Hint.__qualname__ == "Hint"
    assert Hint.__module__ == ns.__name__
    assert Hint.__doc__.startswith("A usual follow-up of a tool's answer.")
    assert [f.name for f in dataclasses.fields(Hint)] == ["tool", "reason", "action", "takes"]
    assert Hint.__annotations__ == {"tool": "str", "reason": "str", "action": "str | None",
                                    "takes": "Takes | None"}
    short = Hint("symbol", "why")
    assert (short.action, short.takes) == (None, None)
    full, same = Hint("symbol", "why", "detail", "fqn"), Hint(tool="symbol", reason="why", action="detail", takes="fqn")
    assert full == same and hash(full) == hash(same) and len({full, same, short}) == 2
    assert full != Hint("symbol", "why", "detail", "path")
    assert ns._DETAIL == Hint("symbol", "Details of the best hit", "detail", "fqn")
    with pytest.raises(dataclasses.FrozenInstanceError):
        full.tool = "file"


def test_takes_is_the_literal_of_five_kinds(ns):
    assert typing.get_origin(ns.Takes) is typing.Literal
    assert typing.get_args(ns.Takes) == ("fqn", "path", "query", "component", "changed_files")
