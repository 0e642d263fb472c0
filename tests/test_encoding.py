"""Answer sizes and call keys (sorted JSON texts) are exactly those of the
host's JSON writer, its failures included: json.dumps is the arbiter."""

import functools
import json

import pytest
from conftest import examples, outcome
from hypothesis import example, given, settings
from hypothesis import strategies as st
from reference import compact_size, dedupe, hint_size, plain_copy
from strategies import SLOW, Answer, NoText, Pair, Rows, Text, Unpackable, Unpaired


Masked = type("Masked", (dict,), {"items": lambda self: [(k, v) for k, v in dict.items(self) if not k.startswith("_")]})
Named = type("Named", (dict,), {"items": lambda self: [Pair(k, v) for k, v in dict.items(self)]})
# Holds nothing itself: only its items(), which the host's writer does not ask, say what it holds.
Hollow = type("Hollow", (dict,), {"items": lambda self: [("tip", "x" * 50), ("a", None)]})


class Broken(dict):
    def items(self):
        raise RuntimeError("entries unreadable")


circle, circular_dict = ["x"], {"rows": []}
circle.append(circle)
deep_circle = functools.reduce(lambda inner, _: [inner], range(40), circle)
circular_dict["rows"].append({"up": circular_dict})
# Values not drawn: circles, nesting past the bound, entries hidden, unreadable or told by items() alone.
ODD_VALUES = {
    "circular-list": circle,
    "circular-dict": circular_dict,
    "circular-deep-down": deep_circle,
    "same-list-twice-is-no-circle": [["x"]] * 2,
    "too-deep": functools.reduce(lambda inner, _: {"a": [inner]}, range(100_000), []),
    "dict-subclass-items": Masked({"a": 1, "_hidden": "x" * 50, "tip": None}),
    "items-that-fail": {"rows": [Broken(a=1)]},
    "items-of-no-storage": {"rows": [Hollow()]},
    "items-not-pairs": {"rows": [Unpaired(a=1)]},
    "items-of-one": {"rows": [Unpackable(a=1)]},
    "items-as-named-pairs": {"rows": [Named(a=1, tip="t")]},
}


def walked(function, value):
    """A walk's outcome; of a recursion error only its kind: from 3.14 its text
    gives a stack measure, which the C walks and Python code reach apart."""
    kind, result = outcome(function, value)
    return (kind, None) if kind is RecursionError else (kind, result)


class DepthProbe:
    """Its text is as long as the deepest list the host's writer still takes
    from where the probe is written."""

    def __str__(self):
        fits, fails = 0, 100_000
        while fails - fits > 1:
            depth = (fits + fails) // 2
            try:
                json.dumps(functools.reduce(lambda inner, _: [inner], range(depth), []))
                fits = depth
            except RecursionError:
                fails = depth
        return "x" * fits


def test_host_code_runs_at_the_depth_of_the_value_that_runs_it(ns):
    # Written after a deep sibling, the probe must see the host's count of
    # nested calls as it stands at the probe, not at the sibling's depth.
    deep = functools.reduce(lambda inner, _: [inner], range(300), [])
    alone = ns._encoded_size([DepthProbe()])
    assert ns._encoded_size([deep, DepthProbe()]) == alone + ns._encoded_size(deep) + 1


def _step(tool, args, reason="r"):
    return {"tool": tool, "args": args, "reason": reason}


# A small vocabulary, so that calls repeat: a character above U+FFFF is
# written as its two surrogates are, and a list as a tuple of the same items.
ARG_VALUES = ["a", "é", 1, 1.0, True, None, ("a",), ["a"], Text("a"), {1: "x"}, {"1": "x"},
              {2: 0, 10: 0}, {"10": 0, "2": 0}, "\ud800", "😀", "\ud83d\ude00",
              [], ["a", "é"], ("a", "é"), ["é", "a"], ["😀"], ["\ud83d\ude00"], ["a", 1], [Text("a")]]
steps = st.builds(
    lambda tool, args, reason: {"tool": tool, "args": args, "reason": reason},
    st.sampled_from(["symbol", "file"]),
    st.dictionaries(st.sampled_from(["action", "fqn", "path"]), st.sampled_from(ARG_VALUES), max_size=3),
    st.sampled_from(["r1", "r2"]),
)


@settings(max_examples=examples(600), **SLOW)
@given(st.lists(st.one_of(steps, steps.map(Answer)), max_size=8).flatmap(lambda s: st.sampled_from([s, Rows(s)])))
@example([_step("file", {"path": "😀"}), _step("file", {"path": "\ud83d\ude00"})])
@example([_step("file", {"path": ["😀"]}), _step("file", {"path": ["\ud83d\ude00"]})])
@example([_step("file", {"path": ["a"]}), _step("file", {"path": ("a",)})])
@example([_step(1, {}), _step(True, {})])  # equal, but written apart
@example([_step("t", {1: "a"}), _step("t", {"1": "a"})])  # written alike, but not equal
@example([_step("file", ["a"]), _step("file", ("a",))])  # arguments that are not a dict
def test_deduplicated_keeps_the_first_of_each_call(ns, given_steps):
    kept = ns._deduplicated(given_steps)
    expected = dedupe(given_steps)
    assert kept == expected
    assert all(mine is theirs for mine, theirs in zip(kept, expected, strict=True))


Unhashed = type("Unhashed", (str,), {"__hash__": lambda self: 0})  # a key no lookup of its text finds


class Meddling(list):
    """Steps whose iteration changes the arguments of the first call once it was met."""

    def __iter__(self):
        first, second = list.__iter__(self)
        yield first
        first["args"].clear()
        yield second


# Steps the host's call keys fail on, and steps that change while they are met.
ODD_STEPS = {
    "tool-key-found-by-no-lookup": lambda: [_step("t", {}), {Unhashed("tool"): "t", "args": {}, "reason": "r"}],
    "unsortable-keys": lambda: [_step("t", {}), _step("t", {"a": 1, 1: 2})],
    "null-key-beside-text": lambda: [_step("t", {}), _step("t", {"a": 1, None: 2})],
    "failing-str": lambda: [_step("t", {}), _step("t", {"o": NoText()})],
    "no-tool": lambda: [_step("t", {}), {"args": {}, "reason": "r"}],
    "no-args": lambda: [_step("t", {}), {"tool": "t", "reason": "r"}],
    "args-of-no-storage": lambda: [_step("t", {}), _step("t", Hollow())],
    "args-not-pairs": lambda: [_step("t", {}), _step("t", Unpaired(a=1))],
    "told-apart-as-when-met": lambda: Meddling([_step("t", {"fqn": "a"}), _step("t", {"fqn": "a"})]),
}


PLAIN = {"_encoded_size": compact_size, "_hint_size": hint_size, "without_null_fields": plain_copy}
ODD = {**{f"{walk}-{name}": (walk, lambda value=value: value) for name, value in ODD_VALUES.items() for walk in PLAIN},
       **{f"_deduplicated-{name}": ("_deduplicated", made) for name, made in ODD_STEPS.items()}}


@pytest.mark.parametrize("function, made", ODD.values(), ids=ODD.keys())
def test_odd_values_are_taken_as_the_plain_rule_takes_them(ns, function, made):
    plain = PLAIN.get(function, dedupe)
    assert walked(getattr(ns, function), made()) == walked(plain, made())
