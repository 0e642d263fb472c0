"""The hint budget: hint fields at any depth, and trimming steps to their room."""

import math

import pytest
from conftest import examples, outcome
from hypothesis import assume, example, given, settings
from hypothesis import strategies as st
from reference import compact_size as size
from reference import HINT_FLOOR_BYTES, HINT_SHARE, STEPS_KEY_BYTES, assembled, fits, hint_size, within_share
from strategies import HUGE_INT, SLOW, Answer, Shuffled, hard_values, plain_hard_values


def answer_of(total, hints):
    answer = {"tip": "t" * (hints - 2)} if hints else {}
    answer["pad"] = ""
    answer["pad"] = "x" * (total - size(answer))
    assert size(answer) == total and hint_size(answer) == hints
    return answer


def largest_added(answer_size, hints):
    """The most bytes that steps may add to an answer of this size and hint bytes."""
    added = max(HINT_FLOOR_BYTES - hints, int((HINT_SHARE * answer_size - hints) / (1 - HINT_SHARE)))
    while fits(answer_size, hints, added + 1):
        added += 1
    while not fits(answer_size, hints, added):
        added -= 1
    return added


# Below this size of answer the floor decides, above it the share: answers at the edge and past it.
SHARE_FROM = math.ceil(HINT_FLOOR_BYTES / HINT_SHARE) - HINT_FLOOR_BYTES
EDGES = [(SHARE_FROM, 0), (SHARE_FROM, 100), (SHARE_FROM + 186, 0), (SHARE_FROM + 186, 100), (5 * SHARE_FROM, 0)]
padded = st.builds(lambda hints, pad: {"tip": "t" * hints, "pad": "x" * pad}, st.integers(0, 200), st.integers(0, 20000))


def at_the_edges(test):
    for total, hints in EDGES:
        for led in (False, True):
            test = example(answer_of(total, hints), led)(test)
    return test


@settings(max_examples=examples(2000), **SLOW)
@given(hard_values | padded, st.booleans())
@at_the_edges
@example({"tip": "\x7f\x80\u07ff\u0800\uffff\U00010000"}, False)  # each UTF-8 width's first and last
def test_sizes_and_room_are_the_writer_s(ns, answer, led):
    # The writer makes the whole text before encoding it, so any other failure
    # wins over a lone surrogate, and the surrogate's position is in the text.
    assert outcome(ns._encoded_size, answer) == outcome(size, answer)
    assert outcome(ns._hint_size, answer) == outcome(hint_size, answer)
    measured = outcome(lambda: (size(answer), hint_size(answer)))
    if measured[0] != "value":
        assert outcome(lambda: ns._within_share(answer, [], keep=0)) == measured
        return
    # Steps (led by a kept one or not) whose last text takes the largest room
    # left fit; one byte more do not, and a longer step after them goes.
    first = [{"tool": "symbol", "args": {"fqn": "a"}, "reason": "first"}][:led]
    last = lambda n: {"tool": "file", "args": {}, "reason": "r" * n}  # noqa: E731
    room = largest_added(*measured[1]) - STEPS_KEY_BYTES - size([*first, last(0)])
    assume(room >= 0)
    fitting, too_big, extra = [*first, last(room)], [*first, last(room + 1)], last(4000)
    assert ns._within_share(answer, fitting, keep=int(led)) is fitting
    assert ns._within_share(answer, [*fitting, extra], keep=int(led)) == fitting
    for steps in (too_big, [*too_big, extra]):
        trimmed = ns._within_share(answer, steps, keep=int(led))
        assert trimmed == first and all(a is b for a, b in zip(trimmed, first))
    assert len(too_big) == 1 + led, "the given list is not changed"


class Counted:
    """An other value whose text grows with every str() of it, which also runs `then`."""

    def __init__(self, then=lambda: None):
        self.calls, self.then = 0, then

    def __str__(self):
        self.calls += 1
        self.then()
        return "x" * self.calls


class Keep(int):
    """A keep whose comparisons run host code: the second lengthens the first step."""

    def __new__(cls, steps):
        keep = super().__new__(cls, 0)
        keep.steps, keep.calls = steps, 0
        return keep

    def __lt__(self, n):
        self.calls += 1
        if self.calls == 2:
            self.steps[0]["reason"] = "r" * (3 * HINT_FLOOR_BYTES)
        return 0 < n


class Measured(Shuffled):
    """Steps whose length and cut are host code, and not their storage's."""

    calls = 0

    def __len__(self):
        self.calls += 1
        return super().__len__()


def counted(place):
    def made():
        value = Counted()
        return place(value), [[value], "x" * HINT_FLOOR_BYTES], 0, value

    return made


def growing_answer():
    # Its text, taken while the steps are measured, lengthens the answer.
    answer = {}
    value = Counted(lambda: answer.update(pad="x" * (20 * HINT_FLOOR_BYTES)))
    return answer, [value, "s" * HINT_FLOOR_BYTES], 0, value


def steps_of_their_own_length():
    steps = Measured([{"tool": "t", "args": {}, "reason": "r"}, "s" * HINT_FLOOR_BYTES, "t"])
    return {}, steps, 0, steps


def lengthening_keep():
    steps = [{"tool": "t", "args": {}, "reason": "r"}, "s" * HINT_FLOOR_BYTES]
    keep = Keep(steps)
    return {}, steps, keep, keep


# Host code that the loop runs (a step's str(), keep's comparison) may change
# what it measures next; the answer's text forms are taken as often as the
# writer takes them: once for the answer, again for each hint field's value.
PLACES = [lambda o: {"o": o, "rows": ({"tip": o},)}, lambda o: [{"o": o}], lambda o: {"rows": [{"note": [o]}]},
          lambda o: Answer(tip=o), lambda o: {}]


@pytest.mark.parametrize("made", [*map(counted, PLACES), growing_answer, steps_of_their_own_length, lengthening_keep])
def test_host_code_run_by_the_loop_is_run_where_the_loop_runs_it(ns, made):
    def run(within):
        answer, steps, keep, counted = made()
        return len(within(answer, steps, keep)), counted.calls

    assert run(lambda answer, steps, keep: ns._within_share(answer, steps, keep=keep)) == run(within_share)


@pytest.mark.parametrize("place", PLACES[:4])
def test_text_forms_are_taken_as_often_when_the_steps_are_the_module_s(ns, place):
    # Steps the module made fit without the answer's size: it is still written.
    value = Counted()
    ns._add_next_steps({"fqn": "a.b", "x": place(value)}, "symbol", action="callers")
    measured = Counted()
    within_share(place(measured), [], 0)
    assert value.calls == measured.calls


def test_a_file_list_that_host_code_holds_is_measured_when_the_loop_measures_it(ns, monkeypatch):
    # The answer's str() lengthens the tests step's file list, which the test
    # holds too: the step so made no longer fits beside the second one.
    files = ["a.py"]
    lengthening = type("Lengthening", (), {"__str__": lambda self: files.append("f" * HINT_FLOOR_BYTES) or "x"})()
    monkeypatch.setattr(ns, "_tests_scope", lambda response, arguments: {"changed_files": files})
    steps = ns._add_next_steps({"o": lengthening}, "git", action="changes")["next_steps"]
    assert [step["tool"] for step in steps] == ["tests"]


ROWS, LONG_STEPS = {"rows": ["x"]}, ["s" * HINT_FLOOR_BYTES, "t"]
HINTS = [("_hint_size", ROWS), ("_hint_size", ["x"]), ("_hint_size", "x")]


@pytest.mark.parametrize(
    "rebound, steps, keep, calls",
    [
        (["_encoded_size", "_hint_size"], LONG_STEPS, 0,
         [("_encoded_size", ROWS), *HINTS, ("_encoded_size", LONG_STEPS), ("_encoded_size", LONG_STEPS[:1])]),
        (["_encoded_size"], LONG_STEPS, 0,
         [("_encoded_size", ROWS), ("_encoded_size", LONG_STEPS), ("_encoded_size", LONG_STEPS[:1])]),
        (["_hint_size"], LONG_STEPS, 0, HINTS),
        # Steps no longer than keep are not measured, but the answer is.
        (["_encoded_size"], ["s"], 1, [("_encoded_size", ROWS)]),
        (["_hint_size"], ["s"], 1, HINTS),
    ],
)
def test_rebound_sizes_are_asked_as_the_loop_asks_them(ns, monkeypatch, rebound, steps, keep, calls):
    asked = []
    for name in rebound:
        own = getattr(ns, name)
        monkeypatch.setattr(ns, name, lambda value, own=own, name=name: asked.append((name, value)) or own(value))
    ns._within_share(ROWS, steps, keep=keep)
    assert asked == calls


# Steps the module makes of texts of every kind, from the request or the
# answer, beside values of every kind: the notes take the hints with the
# steps to the floor, a byte past it, or below it.  Made steps that fit the
# floor need no answer size, but the answer still fails where its text would.
@settings(max_examples=examples(1000), **SLOW)
@given(st.text(max_size=30), st.booleans(), st.lists(plain_hard_values | hard_values, min_size=2, max_size=2),
       st.integers(0, 3000), st.integers(0, 40), st.sampled_from([0, 1]) | st.integers(-HINT_FLOOR_BYTES, 80))
@example("a.b", False, [None, None], 0, 40, 1)  # hint bytes of a one-byte text a byte past the floor
@example("a\udc00", True, [None, None], 0, 40, 0)  # a lone surrogate in the steps only, measured from their texts
@example("a.b", False, [[HUGE_INT], None], 0, 0, 0)  # an int the walk may not pass over as short
@example("a.b", False, [["a\udfffb"], None], 0, 0, 0)  # a lone surrogate in a two-byte text
@example("a.b", False, [{"\udc00": 1}, None], 0, 0, 0)  # and in a two-byte key
def test_steps_the_module_makes_fit_by_the_answer_s_size_and_hint_bytes(ns, fqn, asked, values, pad, count, past):
    rows, tip = values
    answer = {"total_count": count, "rows": rows, "tip": tip, "pad": "x" * pad, "notes": ""}
    answer |= {} if asked else {"fqn": fqn}
    arguments = {"fqn": fqn} if asked else {}
    signals, usual = (source(answer, "symbol", "callers", arguments) for source in (ns._signals, ns._usual))
    steps, keep = assembled(signals, usual)
    taken = outcome(lambda: hint_size(answer) + size(steps) + STEPS_KEY_BYTES)
    if taken[0] == "value":
        answer["notes"] = "n" * max(0, HINT_FLOOR_BYTES + past - taken[1])
    finish = lambda: ns._add_next_steps(dict(answer), "symbol", action="callers", arguments=arguments)  # noqa: E731
    assert outcome(lambda: finish().get("next_steps", [])) == outcome(within_share, answer, steps, keep)
