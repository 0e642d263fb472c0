"""Null-field removal, the step record and the hint record."""

import dataclasses
import types
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


def test_leaves_are_shared_and_containers_new(ns):
    other, proxy, text, big = {1, 2}, types.MappingProxyType({"a": None}), "shared text", 10**40
    value = {"rows": [{"o": other, "m": proxy, "s": text, "n": big, "gone": None}], "t": (text,)}
    snapshot = repr(value)
    copied = ns.without_null_fields(value)
    row = copied["rows"][0]
    assert row["o"] is other and row["m"] is proxy and row["s"] is text and row["n"] is big
    copied["rows"].append("new")
    row["added"] = 1
    copied["t"].append(2)
    assert repr(value) == snapshot
    assert ns.without_null_fields(proxy) is proxy


def test_a_rebound_copy_is_called_for_every_value_inside(ns, monkeypatch):
    own, called = ns.without_null_fields, []
    monkeypatch.setattr(ns, "without_null_fields", lambda value: called.append(value) or own(value))
    ns.without_null_fields({"a": 1, "b": ["x", None]})
    assert called == [{"a": 1, "b": ["x", None]}, 1, ["x", None], "x", None]


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
    pairs = st.tuples(kids, kids).map(lambda pair: Pair(*pair))
    # Subclasses are read through their items(), and copied as plain containers.
    return st.one_of(items, items.map(tuple), items.map(Rows), pairs, entries, entries.map(Answer),
                     entries.map(Reversed))


values = st.recursive(leaves, containers, max_leaves=30)


@settings(max_examples=800, deadline=None)
@given(values)
def test_without_null_fields_matches_a_plain_walk(ns, value):
    snapshot = repr(value)
    assert_same_tree(ns.without_null_fields(value), reference(value))
    assert repr(value) == snapshot


def test_step_keeps_keys_and_arguments_in_order(ns):
    marker = object()
    made = ns.step("search", "why", action="semantic", query=marker, none=None)
    assert made == {"tool": "search", "args": {"action": "semantic", "query": marker, "none": None}, "reason": "why"}
    assert list(made) == ["tool", "args", "reason"] and list(made["args"]) == ["action", "query", "none"]
    assert made["args"]["query"] is marker
    first, second = ns.step("t", "r"), ns.step(tool="t", reason="r")
    assert first == second == {"tool": "t", "args": {}, "reason": "r"}
    assert first is not second and first["args"] is not second["args"]


def test_hint_is_a_frozen_record(ns):
    Hint = ns.Hint
    assert dataclasses.is_dataclass(Hint) and Hint.__module__ == ns.__name__
    assert [f.name for f in dataclasses.fields(Hint)] == ["tool", "reason", "action", "takes"]
    full, same = Hint("symbol", "why", "detail", "fqn"), Hint(tool="symbol", reason="why", action="detail", takes="fqn")
    assert full == same and hash(full) == hash(same) and (Hint("t", "r").action, Hint("t", "r").takes) == (None, None)
    with pytest.raises(dataclasses.FrozenInstanceError):
        full.tool = "file"
