"""Null-field removal, the step record and the hint record.  The copy is
compared with a plain walk on every kind of value by test_modes.py."""

import dataclasses
import types

import pytest


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


def test_steps_are_new_records(ns):
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
