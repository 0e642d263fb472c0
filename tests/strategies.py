"""Hypothesis strategies that the tests share: values of every kind the walks
meet or the host's JSON writer refuses, and answers that carry them."""

import enum
import sys
from collections import namedtuple

from hypothesis import HealthCheck
from hypothesis import strategies as st

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


Huge = type("Huge", (int,), {"__repr__": lambda self: "Huge(...)"})  # too long for str(), printable in reports
# Written as their own characters and value, whatever their str() or repr() says.
Name = type("Name", (str,), {"__str__": lambda self: "not this"})
Ratio = type("Ratio", (float,), {"__repr__": lambda self: "not this"})
Level = enum.IntEnum("Level", {"LOW": 1, "HUGE": 2**80})
Count = type("Count", (int,), {"__str__": lambda self: "not this", "__repr__": lambda self: "not this"})
Answer = type("Answer", (dict,), {})
Rows = type("Rows", (list,), {})


# Containers that answer for themselves: a walk or a lookup that reads their
# storage instead of asking them gives another answer than the host's.
Reordered = type("Reordered", (dict,), {"items": lambda self: list(dict.items(self))[::-1]})


# Entries as two-item lists, then a two-character text: unpacked as pairs by a loop.
Unpaired = type("Unpaired", (dict,), {"items": lambda self: [[k, v] for k, v in dict.items(self)] + ["ky"]})
# Entries as one-item tuples, which a loop cannot unpack as pairs.
Unpackable = type("Unpackable", (dict,), {"items": lambda self: [(key,) for key in dict.keys(self)]})


class Aliased(dict):
    """Its lookups, not its storage, say what it holds."""

    ALIASES = {"total_count": "total", "total": "total_count", "fqn": "path", "path": "fqn", "query": "fqn"}

    def get(self, key, default=None):
        return dict.get(self, self.ALIASES.get(key, key), default)

    def __getitem__(self, key):
        return dict.__getitem__(self, self.ALIASES.get(key, key))


class Shuffled(list):
    """Items, length and slices of its own."""

    def __iter__(self):
        return iter(list(list.__iter__(self))[::-1])

    def __len__(self):
        return max(0, list.__len__(self) - 1)

    def __getitem__(self, at):
        return list.__getitem__(self, at) if not isinstance(at, slice) else list(list.__iter__(self))[at][::-1]


OWN_CONTAINERS = [Reordered, Unpaired, Unpackable, Aliased, Shuffled]
Pair = namedtuple("Pair", "first second")
# Ints past the host's digit limit for str() (an exact one is built by the
# strategies, which a failing example then shows), and past a double's range.
LONG_INT = 10 ** ((sys.get_int_max_str_digits() or 4300) + 1)
HUGE_INT = Huge(LONG_INT)
WIDE_INT = 10**400
long_ints = st.builds(lambda sign: sign * LONG_INT, st.sampled_from([1, -1]))

SPECIAL_CHARS = list("\x00\x01\x08\t\n\x0b\x0c\r\x1f\"\\/\x7f\x80\xff\u2028\u2029é\u07ff\u0800\uffff😀\U0010ffff")
SPECIAL_FLOATS = [0.0, -0.0, 1.0, 0.1, 1e-4, 1e-05, 1.5e-05, 2.5e-07, 1e15, 1e16, 1e22, 123456789.0, 5e-324,
                  sys.float_info.max, -sys.float_info.max, float("nan"), float("inf"), float("-inf")]

plain_texts = st.text(st.one_of(st.characters(codec="utf-8"), st.sampled_from(SPECIAL_CHARS)), max_size=12)
# Long runs without escapes, in every storage width (the marker widens it),
# with escapes and wide code points at any place.
ESCAPES = "\x00\x08\t\n\x1f\"\\"
MARKERS = ["", "\x7f", "é", "\u07ff", "\u0800", "\uffff", "😀"]
runs = st.one_of(
    *(st.text(st.characters(min_codepoint=0x20, max_codepoint=top, exclude_characters="\"\\", codec="utf-8"), max_size=40)
      for top in (0x7F, 0xFF, 0xFFFF, 0x10FFFF))
)
spiced_runs = st.text(st.characters(min_codepoint=0x20, max_codepoint=0xFF) | st.sampled_from(ESCAPES), max_size=40)
long_texts = st.builds(lambda a, mark, b: a + mark + b, runs | spiced_runs, st.sampled_from(MARKERS), runs | spiced_runs)
texts = st.one_of(plain_texts, long_texts, plain_texts.map(Name))
# Ints next to the bounds of their digit count: one storage digit, a machine integer, each power of ten.
near_bounds = st.builds(lambda base, d, sign: sign * (base + d),
                        st.sampled_from([2**30, 2**63]) | st.integers(1, 330).map(lambda k: 10**k), st.integers(-2, 2),
                        st.sampled_from([1, -1]))
ints = st.one_of(st.integers(), st.integers(-(10**400), 10**400), near_bounds, st.sampled_from(list(Level)),
                 st.integers().map(Count))
# Rounded values (scores, durations).
rounded = st.builds(lambda n, k: n / 10**k, st.integers(-(10**17), 10**17), st.integers(0, 9))
floats = st.one_of(st.floats(), rounded, st.sampled_from(SPECIAL_FLOATS), st.floats(allow_nan=False).map(Ratio))
others = st.one_of(
    texts.map(Text),
    st.frozensets(st.integers(0, 9), max_size=3).map(set),
    st.binary(max_size=6),
    st.complex_numbers(allow_nan=False, max_magnitude=1e6),
)
keys = st.one_of(texts, st.integers(), st.floats(), st.booleans(), st.none(), st.sampled_from(list(Level)))
# Values that the writer refuses; containers made anew at each draw, since a
# test that plants a value into one must not change what a later example draws.
refused_keys = st.builds(lambda: {HUGE_INT: 1}) | st.builds(lambda: {(1, 2): 3})
poisons = st.one_of(
    st.sampled_from(["\ud800", "a\udfffb", Text("\udc00"), NoText(), WrongText(), HUGE_INT]), refused_keys,
    st.builds(lambda a, lone, b: a + lone + b, long_texts, st.sampled_from(["\ud800", "\udfff"]), long_texts),
)

SLOW = dict(deadline=None, suppress_health_check=[HealthCheck.too_slow])

# --- answers that carry every value a shortcut's guard exists for

LONE = ["\ud800", "\udbff", "\udc00", "\udfff"]
# A lone surrogate inside text of every storage width, a subclass's too.
lone_texts = st.builds(lambda a, lone, b: a + lone + b, plain_texts, st.sampled_from(LONE), plain_texts)
hard_texts = st.one_of(texts, lone_texts, lone_texts.map(Name))
hard_ints = st.one_of(ints, long_ints, st.sampled_from([HUGE_INT, WIDE_INT, -WIDE_INT, 2**1024, True]))
hard_leaves = st.one_of(st.none(), hard_ints, floats, hard_texts, others, poisons,
                        st.sampled_from([NoText(), WrongText()]))
HINT_FIELDS = ["tip", "note", "notes", "hints", "next_steps", "Tip", type("Tip", (str,), {})("tip")]
hard_keys = st.one_of(keys, lone_texts, st.sampled_from(HINT_FIELDS))


def hard_containers(children):
    entries = st.dictionaries(hard_keys, children, max_size=4)
    items = st.lists(children, max_size=4)
    return st.one_of(entries, entries.map(Answer), items, items.map(tuple), items.map(Rows),
                     st.tuples(children, children).map(lambda pair: Pair(*pair)),
                     entries.map(Reordered), entries.map(Aliased), items.map(Shuffled))


hard_values = st.recursive(hard_leaves, hard_containers, max_leaves=16)

# Exact containers of plain leaves, which the check walk may pass over unless a hard value is planted inside.
quiet_leaves = st.one_of(st.none(), st.booleans(), st.integers(-(10**6), 10**6), st.floats(allow_nan=False),
                         st.text("abcxyz_./ ", max_size=8))
quiet_values = st.recursive(
    quiet_leaves,
    lambda children: st.dictionaries(st.text("abkxyz", min_size=1, max_size=3), children, max_size=4)
    | st.lists(children, max_size=4),
    max_leaves=12,
)


def containers_in(value):
    """The dicts and lists of a value, outermost first, each once."""
    found, stack = [], [value]
    while stack:
        v = stack.pop()
        if isinstance(v, (dict, list)) and all(v is not f for f in found):
            found.append(v)
            stack.extend(reversed(list(v.values() if isinstance(v, dict) else v)))
    return found


@st.composite
def planted(draw, answer, hard, keys):
    """The answer with a hard value put into one of its exact dicts or lists
    (beside it, when it has none)."""
    value = draw(hard)
    targets = [c for c in containers_in(answer) if type(c) in (dict, list)]
    if not targets:
        return [answer, value]
    target = draw(st.sampled_from(targets))
    if isinstance(target, dict):
        target[draw(keys)] = value
    else:
        target.insert(draw(st.integers(0, len(target))), value)
    return answer


quiet_fields = st.dictionaries(st.text("abkxyz", min_size=1, max_size=3), quiet_values, min_size=1, max_size=3)

# Hard values that run no host code, for answers plain throughout.
PATHS = ["src/app/lexer.py", "src/app/main.py", "tests/test_lexer.py", "pkg.lexer.parse"]
plain_hard_texts = st.one_of(st.sampled_from(PATHS), st.text(max_size=8), lone_texts)
plain_hard_ints = st.one_of(st.integers(0, 60), long_ints, st.sampled_from([WIDE_INT, -WIDE_INT, 2**1024]))
plain_hard_keys = st.one_of(st.text("abkxyz", min_size=1, max_size=3), lone_texts,
                            st.sampled_from([key for key in HINT_FIELDS if type(key) is str]))
plain_hard_leaves = st.one_of(lone_texts, long_ints, st.sampled_from([WIDE_INT, -WIDE_INT, 2**1024]))
plain_hard_values = st.recursive(
    st.one_of(quiet_leaves, plain_hard_texts, plain_hard_ints, st.floats(), st.builds(lambda: {(1, 2): 3}),
              long_ints.map(lambda n: {n: 1})),
    lambda children: st.dictionaries(plain_hard_keys, children, max_size=3) | st.lists(children, max_size=3)
    | st.lists(children, max_size=3).map(tuple),
    max_leaves=8,
)


def step_fields(texts, ints, values, keys, own):
    """The fields steps are made of, holding these texts, ints and values;
    `own` makes a hit, a step or a list of them of their plain container."""
    paths = texts | st.sampled_from(PATHS)
    hit = st.fixed_dictionaries({}, optional={"fqn": texts | values, "path": paths, "file": paths, "name": texts,
                                              "kind": st.sampled_from(["function", "module", "doc"]) | texts})
    hits = st.lists(hit.flatmap(own) | paths, max_size=5).flatmap(own)
    step = st.fixed_dictionaries({"tool": texts | values, "args": values | st.dictionaries(keys, texts), "reason": texts})
    return {
        "fqn": texts, "file": paths, "query": texts, "path": paths, "base_branch": texts,
        "total_count": ints, "total": ints, "files_omitted": st.booleans() | ints,
        "files": st.lists(paths | st.builds(dict, path=paths), max_size=15).flatmap(own),
        "affected_files": st.lists(paths, max_size=4).flatmap(own),
        "results": hits, "symbols": hits, "callers": hits, "references": hits, "tests": hits, "definitions": hits,
        "next_steps": st.lists(step.flatmap(own), max_size=4).flatmap(own), "tip": values, "note": texts,
    }


def own_kinds(container):
    """The container, or one of its kind that answers for itself."""
    kinds = [Answer, Aliased, Reordered] if isinstance(container, dict) else [Shuffled]
    return st.sampled_from([container, *(kind(container) for kind in kinds)])


HARD_FIELDS = step_fields(hard_texts, hard_ints, hard_values, hard_keys, own_kinds)
PLAIN_HARD_FIELDS = step_fields(plain_hard_texts, plain_hard_ints, plain_hard_values, plain_hard_keys, st.just)


@st.composite
def hard_answers(draw):
    """An answer of fields that steps are made of and quiet fields with or
    without a hard value planted deep inside.  In half of them every value
    is plain (no subclass, no other value): a hard value must then be
    caught by the walks that pass over what they can."""
    plain = draw(st.booleans())
    fields, values, keys = ((PLAIN_HARD_FIELDS, plain_hard_values, plain_hard_keys) if plain
                            else (HARD_FIELDS, hard_values, hard_keys))
    answer = {}
    for field in draw(st.lists(st.sampled_from(sorted(fields)), unique=True, max_size=4)):
        answer[field] = draw(fields[field])
    for name in draw(st.lists(st.sampled_from(["rows", "stats", "more"]), unique=True, min_size=plain, max_size=3)):
        quiet = draw(quiet_fields)
        answer[name] = draw(planted(quiet, plain_hard_leaves | values, keys) if plain
                            else st.one_of(st.just(quiet), planted(quiet, values, keys), values))
    return Answer(answer) if not plain and draw(st.integers(0, 9)) == 0 else answer


# One value of each hard kind, planted into every answer the mode comparison draws.
PLANTS = {
    "lone surrogate in a text": lone_texts,
    "lone surrogate in a key": lone_texts.map(lambda text: {text: 1}),
    "int past the digit limit": long_ints,
    "int past a double's range": st.sampled_from([WIDE_INT, -(2**1024) - 1]),
    "int next to a bound of the count of its digits": near_bounds,
    "str subclass": texts.map(Name),
    "int subclass": st.integers().map(Count),
    "dict subclass": st.dictionaries(hard_keys, hard_leaves, max_size=3).map(Answer),
    # Of two items at least, which their own order tells apart from the storage's.
    **{f"{kind.__name__} container": st.lists(hard_leaves, min_size=2, max_size=3).filter(
        lambda items: any(a is not b for a, b in zip(items, items[::-1]))).map(
        lambda items, kind=kind: kind(enumerate(items)) if issubclass(kind, dict) else kind(items))
       for kind in OWN_CONTAINERS},
    "value whose str() fails": st.sampled_from([NoText(), WrongText()]),
    "tuple": st.tuples(hard_leaves),
    "hint field below the top": hard_values.map(lambda value: [{"tip": value}]),
}
plants = st.sampled_from(sorted(PLANTS)).flatmap(lambda kind: PLANTS[kind])
