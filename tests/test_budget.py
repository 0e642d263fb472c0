"""The hint budget: hint fields at any depth, and trimming steps to their room."""

import json

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

HINT_KEYS = {"tip", "tips", "hint", "hints", "note", "notes", "next_steps"}


def size(value):
    return len(json.dumps(value, separators=(",", ":"), ensure_ascii=False).encode())


def hint_size(value):
    if isinstance(value, dict):
        return sum(size(inner) if key in HINT_KEYS else hint_size(inner) for key, inner in value.items())
    if isinstance(value, list):
        return sum(hint_size(item) for item in value)
    return 0


def within_share(answer, steps, keep):
    answer_size, hints = size(answer), hint_size(answer)
    while len(steps) > keep:
        added = size(steps) + 14
        if hints + added <= max(0.15 * (answer_size + added), 320):
            break
        steps = steps[:-1]
    return steps


class Tip(str):
    pass


class Answer(dict):
    pass


class Rows(list):
    pass


@pytest.mark.parametrize(
    "value, expected",
    [
        ({"results": [{"name": "x", "note": "stale"}], "tip": "Use search"}, 19),
        ({"tip": {"tip": "ab", "x": 1}}, len('{"tip":"ab","x":1}')),
        ({"rows": ({"note": "x"},)}, 0),
        (({"note": "x"},), 0),
        ([{"hint": 1}, {"hints": [1, 2]}], 1 + 5),
        ({1: {"tip": "x"}, None: {"note": ""}}, 3 + 2),
        ({"a": {"next_steps": []}}, 2),
        ({"tips": None, "notes": "é"}, 4 + 4),
        (Rows([Answer(note="x")]), 3),
        ({Tip("tip"): "xy"}, 4),
        ({"Tip": "x", "tipx": "y", "s": "tip"}, 0),
    ],
)
def test_hint_size(ns, value, expected):
    assert ns._hint_size(value) == expected


def test_hint_values_must_encode(ns):
    with pytest.raises(UnicodeEncodeError):
        ns._hint_size({"rows": [{"note": "\ud800"}]})


def answer_of(total, hints):
    """An answer of exactly ``total`` bytes whose hint fields take ``hints``."""
    answer = {"tip": "t" * (hints - 2)} if hints else {}
    answer["pad"] = ""
    answer["pad"] = "x" * (total - size(answer))
    assert size(answer) == total and hint_size(answer) == hints
    return answer


def steps_of(total):
    """Two steps whose list text takes exactly ``total`` bytes."""
    first = {"tool": "symbol", "args": {"fqn": "a"}, "reason": "first"}
    last = {"tool": "file", "args": {}, "reason": ""}
    last["reason"] = "r" * (total - size([first, last]))
    assert size([first, last]) == total
    return [first, last]


@pytest.mark.parametrize(
    "total, hints, largest",
    [
        (400, 0, 306),
        (1814, 0, 306),
        (1814, 100, 206),
        (2000, 0, 338),
        (2000, 100, 221),
        (4000, 0, 691),
        (4000, 100, 574),
        (10000, 0, 1750),
        (20000, 0, 3515),
    ],
)
def test_largest_step_list_that_fits(ns, total, hints, largest):
    answer = answer_of(total, hints)
    fitting, too_big = steps_of(largest), steps_of(largest + 1)
    assert ns._within_share(answer, fitting, keep=1) is fitting
    trimmed = ns._within_share(answer, too_big, keep=1)
    assert trimmed == too_big[:1] and trimmed[0] is too_big[0]
    assert len(too_big) == 2, "the given list is not changed"


@pytest.mark.parametrize("keep", [1, 3, 50])
def test_lists_not_longer_than_keep_come_back_as_given(ns, keep):
    steps = [{"tool": "t", "args": {"x": "y" * 10_000}, "reason": "r"}] * min(keep, 3)
    assert ns._within_share({}, steps, keep=keep) is steps
    # The answer is measured first, so one that cannot be sent fails all the same.
    with pytest.raises(UnicodeEncodeError):
        ns._within_share({"name": "\udc00"}, steps, keep=keep)


@pytest.mark.parametrize("call", [lambda ns: ns._within_share({}, []), lambda ns: ns._within_share({}, [], 1),
                                  lambda ns: ns._within_share({}, [], keep="1")])
def test_keep_is_required_keyword_only_and_an_integer(ns, call):
    with pytest.raises(TypeError):
        call(ns)


padding = st.integers(0, 3000)
generated_steps = st.lists(
    st.builds(lambda n, tool: {"tool": tool, "args": {"q": "é" * n}, "reason": "r"},
              st.integers(0, 200), st.sampled_from(["search", "symbol"])),
    max_size=5,
)


@settings(max_examples=500, deadline=None)
@given(padding, st.integers(0, 400), generated_steps, st.integers(0, 4))
def test_within_share_matches_a_plain_loop(ns, pad, note, steps, keep):
    # Notes up to 400 bytes make the hints alone exceed the room for small answers.
    answer = {"rows": [{"text": "x" * pad, "note": "n" * note}]}
    kept = ns._within_share(answer, steps, keep=keep)
    expected = within_share(answer, steps, keep)
    assert kept == expected and all(a is b for a, b in zip(kept, expected))
    assert (kept is steps) == (len(kept) == len(steps))
