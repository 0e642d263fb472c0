"""Answer sizes and call keys must be exactly those of the host's JSON writer:
the budget counts the bytes the agent receives and repeated calls are told
apart by their sorted JSON text, so json.dumps is the arbiter, failures included.
"""

import enum
import functools
import json
import sys
from collections import namedtuple

import pytest
from hypothesis import HealthCheck, example, given, settings
from hypothesis import strategies as st
from reference import compact_size, dedupe


def outcome(function, *args):
    """What a call gives: its result, or the kind and text of its error."""
    try:
        return ("value", function(*args))
    except Exception as error:
        return (type(error), str(error))


class Text:  # known to the encodings only by its text form
    def __init__(self, text):
        self.text = text

    def __str__(self):
        return self.text


class NoText:
    def __str__(self):
        raise RuntimeError("no text form")


class WrongText:
    def __str__(self):
        return 42  # str() refuses it with TypeError


class Huge(int):
    """An int too long for str(); its repr stays printable in reports."""

    def __repr__(self):
        return "Huge(...)"


# Written as their own characters and value, whatever their str() or repr() says.
Name = type("Name", (str,), {"__str__": lambda self: "not this"})
Ratio = type("Ratio", (float,), {"__repr__": lambda self: "not this"})


Level = enum.IntEnum("Level", {"LOW": 1, "HUGE": 2**80})
Answer = type("Answer", (dict,), {})
Rows = type("Rows", (list,), {})
Pair = namedtuple("Pair", "first second")
HUGE_INT = Huge(10 ** (sys.get_int_max_str_digits() + 1))

SPECIAL_CHARS = list("\x00\x01\x08\t\n\x0b\x0c\r\x1f\"\\/\x7f\u2028\u2029é\u07ff\u0800\uffff😀\U0010ffff")
SPECIAL_FLOATS = [0.0, -0.0, 1.0, 0.1, 1e-4, 1e-05, 1.5e-05, 2.5e-07, 1e15, 1e16, 1e22, 123456789.0, 5e-324,
                  sys.float_info.max, -sys.float_info.max, float("nan"), float("inf"), float("-inf")]

plain_texts = st.text(st.one_of(st.characters(codec="utf-8"), st.sampled_from(SPECIAL_CHARS)), max_size=12)
# Strings are counted a vector at a time: long runs without escapes, in every
# storage width (the marker widens it), of every length around a vector's.
ESCAPES = "\x00\x08\t\n\x1f\"\\"
MARKERS = ["", "\x7f", "é", "\u07ff", "\u0800", "\uffff", "😀"]
runs = st.one_of(
    *(st.text(st.characters(min_codepoint=0x20, max_codepoint=top, exclude_characters="\"\\", codec="utf-8"), max_size=40)
      for top in (0x7F, 0xFF, 0xFFFF, 0x10FFFF))
)
spiced_runs = st.text(st.characters(min_codepoint=0x20, max_codepoint=0xFF) | st.sampled_from(ESCAPES), max_size=40)
long_texts = st.builds(lambda a, mark, b: a + mark + b, runs | spiced_runs, st.sampled_from(MARKERS), runs | spiced_runs)
texts = st.one_of(plain_texts, long_texts, plain_texts.map(Name))
# Wide ints are counted from their double, except next to a power of ten.
near_powers = st.builds(lambda k, d, sign: sign * (10**k + d), st.integers(18, 330), st.integers(-2, 2),
                        st.sampled_from([1, -1]))
ints = st.one_of(st.integers(), st.integers(-(10**400), 10**400), near_powers, st.sampled_from(list(Level)))
# Rounded values (scores, durations) are counted without the general digits algorithm.
rounded = st.builds(lambda n, k: n / 10**k, st.integers(-(10**17), 10**17), st.integers(0, 9))
floats = st.one_of(st.floats(), rounded, st.sampled_from(SPECIAL_FLOATS), st.floats(allow_nan=False).map(Ratio))
others = st.one_of(
    texts.map(Text),
    st.frozensets(st.integers(0, 9), max_size=3).map(set),
    st.binary(max_size=6),
    st.complex_numbers(allow_nan=False, max_magnitude=1e6),
)
keys = st.one_of(texts, st.integers(), st.floats(), st.booleans(), st.none(), st.sampled_from(list(Level)))
leaves = st.one_of(st.none(), st.booleans(), ints, floats, texts, others)


def records(names, rows):
    """Rows of one shape, sharing their key objects as a tool's hits do."""
    return [dict(zip(names, row)) for row in rows]


def containers(children):
    items = st.lists(children, max_size=4)
    entries = st.dictionaries(keys, children, max_size=4)
    pairs = st.tuples(children, children).map(lambda pair: Pair(*pair))
    rows = st.builds(records, st.lists(texts, max_size=3), st.lists(st.lists(children, min_size=3, max_size=3), max_size=3))
    return st.one_of(items, items.map(tuple), items.map(Rows), pairs, entries, entries.map(Answer), rows)


values = st.recursive(leaves, containers, max_leaves=25)

# Values that the writer refuses, placed among ordinary values.
poisons = st.sampled_from(
    ["\ud800", "a\udfffb", Text("\udc00"), NoText(), WrongText(), HUGE_INT, {HUGE_INT: 1}, {(1, 2): 3}]
) | st.builds(lambda a, lone, b: a + lone + b, long_texts, st.sampled_from(["\ud800", "\udfff"]), long_texts)
poisoned_values = st.recursive(st.one_of(leaves, poisons), containers, max_leaves=12)

SLOW = dict(deadline=None, suppress_health_check=[HealthCheck.too_slow])


@settings(max_examples=2300, **SLOW)
@given(values | poisoned_values)
def test_size_is_the_byte_count_of_the_compact_text_or_the_writer_s_failure(ns, value):
    # The writer makes the whole text before encoding it, so any other failure
    # wins over a lone surrogate, and the surrogate's position is in the text.
    assert outcome(ns._encoded_size, value) == outcome(compact_size, value)


class Masked(dict):
    def items(self):
        return [(key, value) for key, value in super().items() if not key.startswith("_")]


class KeySwap:
    """Frees the first row's key while the answer is written, and makes a key
    of the same length but a longer text where it will be met next: often at
    the freed key's very address, which must then not pass for the old key."""

    def __init__(self, answer):
        self.answer = answer
        self.same_place = False

    def __str__(self):
        first, _, last = self.answer
        freed = id(next(iter(first)))
        first.clear()
        made = "".join(["\n"] * 3)
        self.same_place = id(made) == freed
        last[made] = 1
        return "swapped"


def key_swap():
    answer = [{"".join(["ke", "y"]): 1}, None, {"".join(["ke", "y"]): 2}]
    answer[1] = KeySwap(answer)
    return answer


circle, circular_dict = ["x"], {"rows": []}
circle.append(circle)
deep_circle = functools.reduce(lambda inner, _: [inner], range(40), circle)
circular_dict["rows"].append({"up": circular_dict})
# Values the generated ones cannot be: circles, nesting past the bound, entries hidden by items().
ODD_VALUES = {
    "circular-list": circle,
    "circular-dict": circular_dict,
    "circular-deep-down": deep_circle,
    "same-list-twice-is-no-circle": [["x"]] * 2,
    "too-deep": functools.reduce(lambda inner, _: [inner], range(100_000), []),
    "dict-subclass-items": Masked({"a": 1, "_hidden": "x" * 50}),
}


@pytest.mark.parametrize("value", ODD_VALUES.values(), ids=ODD_VALUES.keys())
def test_odd_values_match_the_writer(ns, value):
    assert outcome(ns._encoded_size, value) == outcome(compact_size, value)


def test_a_key_freed_while_written_is_not_taken_for_the_next_at_its_place(ns):
    expected = compact_size(key_swap())
    for _ in range(20):  # the allocator decides where the new key goes
        answer = key_swap()
        assert ns._encoded_size(answer) == expected
        if answer[1].same_place:
            return
    pytest.skip("the allocator never put the new key at the freed one's place")


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


# Call keys: a small vocabulary so that repeated calls are frequent.
# A character above U+FFFF and its two surrogates as code points are written
# alike, and so are a list and a tuple of the same items.
ARG_VALUES = ["a", "é", 1, 1.0, True, None, ("a",), ["a"], Text("a"), {1: "x"}, {"1": "x"},
              {2: 0, 10: 0}, {"10": 0, "2": 0}, "\ud800", "😀", "\ud83d\ude00",
              [], ["a", "é"], ("a", "é"), ["é", "a"], ["😀"], ["\ud83d\ude00"], ["a", 1], [Text("a")]]
steps = st.builds(
    lambda tool, args, reason: {"tool": tool, "args": args, "reason": reason},
    st.sampled_from(["symbol", "file"]),
    st.dictionaries(st.sampled_from(["action", "fqn", "path"]), st.sampled_from(ARG_VALUES), max_size=3),
    st.sampled_from(["r1", "r2"]),
)


@settings(max_examples=600, **SLOW)
@given(st.lists(st.one_of(steps, steps.map(Answer)), max_size=8).flatmap(lambda s: st.sampled_from([s, Rows(s)])))
@example([_step("file", {"path": "😀"}), _step("file", {"path": "\ud83d\ude00"})])
@example([_step("file", {"path": ["😀"]}), _step("file", {"path": ["\ud83d\ude00"]})])
@example([_step("file", {"path": ["a"]}), _step("file", {"path": ("a",)})])
def test_deduplicated_keeps_the_first_of_each_call(ns, given_steps):
    kept = ns._deduplicated(given_steps)
    expected = dedupe(given_steps)
    assert kept == expected
    assert all(mine is theirs for mine, theirs in zip(kept, expected, strict=True))


BAD_STEPS = {
    "unsortable-keys": _step("t", {"a": 1, 1: 2}),
    "null-key-beside-text": _step("t", {"a": 1, None: 2}),
    "failing-str": _step("t", {"o": NoText()}),
    "no-tool": {"args": {}, "reason": "r"},
    "no-args": {"tool": "t", "reason": "r"},
}


@pytest.mark.parametrize("bad_step", BAD_STEPS.values(), ids=BAD_STEPS.keys())
def test_call_key_failures_escape(ns, bad_step):
    steps_list = [_step("t", {}), bad_step]
    expected = outcome(dedupe, steps_list)[0]
    assert expected != "value"
    assert outcome(ns._deduplicated, steps_list)[0] is expected
