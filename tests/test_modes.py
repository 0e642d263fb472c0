"""The switch that turns the shortcuts off, read when a module object is made,
and the two modes agreeing: a module object with every shortcut and one with
none, in one process, give the same results, the same errors and the same
calls to their collaborators on answers that hold every value a shortcut's
guard exists for."""

import pytest
from hypothesis import event, example, given, settings
from hypothesis import strategies as st
from modes import SHORTCUTS, fresh_module
from strategies import LONG_INT, SLOW, containers_in, hard_answers, hard_kinds, hard_texts, hard_values, lone_texts
from velquorn.models.symbol import is_code_symbol
from velquorn.tool_handlers.freshness import add_freshness


@pytest.mark.parametrize("shortcuts", [None, "on", "off", "check_walk,made_step_sizes", ""])
def test_a_module_object_is_made_with_any_setting(shortcuts):
    module = fresh_module(shortcuts)
    answer = {"query": "q", "total_count": 0, "results": [], "note": None}
    assert module.finish_answer(answer, "search", action="code")["next_steps"][0]["reason"] == "No hits: search by meaning"


@pytest.mark.parametrize(
    "shortcuts, values",
    [
        ("none", "'on', 'off' or a comma-separated list of shortcuts to turn off (deferred_size, "),
        ("off,check_walk", "'on', 'off' or a comma-separated list"),
    ],
)
def test_any_other_value_fails_the_import_naming_the_variable_and_its_values(shortcuts, values):
    with pytest.raises(ValueError) as failed:
        fresh_module(shortcuts)
    assert str(failed.value).startswith(f"{SHORTCUTS} must be {values}")


@pytest.fixture(scope="module")
def modes():
    return {"shortcuts": fresh_module("on"), "plain": fresh_module("off")}


def rebuilt(value):
    """A copy of every dict, list and tuple, of the same types, sharing every
    other value: each mode gets its own containers and the same leaves."""
    if isinstance(value, dict):
        copy = type(value)()
        for key, item in dict.items(value):
            dict.__setitem__(copy, key, rebuilt(item))
        return copy
    if isinstance(value, list):
        return type(value)(rebuilt(item) for item in list.__iter__(value))
    if isinstance(value, tuple):
        items = [rebuilt(item) for item in tuple.__iter__(value)]
        return type(value)(*items) if hasattr(type(value), "_fields") else type(value)(items)
    return value


def same(a, b):
    """Equal in types and in order throughout, leaves equal or the same object."""
    if type(a) is not type(b):
        return False
    if isinstance(a, dict):
        a, b = list(dict.items(a)), list(dict.items(b))
    if isinstance(a, (list, tuple)):
        return len(a) == len(b) and all(same(x, y) for x, y in zip(a, b))
    return a is b or a == b or (a != a and b != b)


def outcome(call):
    try:
        return ("value", call())
    except Exception as error:  # the host's errors, each mode's own
        return (type(error), str(error))


# What a freshness collaborator may do to the copy it is handed: the edit,
# which container it picks (by its place among them), and a value to put.
EDITS = ["set", "delete", "replace", "clear", "move under a hint key", "append", "finish again"]
edits = st.lists(st.tuples(st.sampled_from(EDITS), st.integers(0, 40), hard_values), max_size=3)


def edit(copy, how, at, value, finish_again):
    value = rebuilt(value)  # each mode's own containers, which a later edit may change
    targets = containers_in(copy)
    target = targets[at % len(targets)]
    keys = list(target) if isinstance(target, dict) else range(len(target))
    if how == "set" or (how == "replace" and keys):
        target[keys[at % len(keys)] if how == "replace" else ("added" if isinstance(target, dict) else 0)] = value
    elif how == "delete" and keys:
        del target[keys[at % len(keys)]]
    elif how == "clear":
        target.clear()
    elif how == "move under a hint key" and isinstance(target, dict) and keys:
        target["tip"] = target.pop(keys[at % len(keys)])
    elif how == "append":
        lists = [t for t in targets if isinstance(t, list)]
        lists[at % len(lists)].append(value) if lists else copy.setdefault("appended", [value])
    elif how == "finish again":
        finish_again(copy)


def collaborators(module, edits):
    """Records the calls the module makes to its collaborators, the copy as it
    is handed over; the freshness collaborator then makes the edits."""
    calls, nested = [], []

    def freshness(answer, block):
        calls.append(("add_freshness", rebuilt(answer), block))
        if nested:  # a finish from inside a finish only records
            return add_freshness(answer, block)
        nested.append(True)
        for how, at, value in edits:
            edit(answer, how, at, value,
                 lambda copy: calls.append(("finish again", outcome(lambda: module.finish_answer(copy, "symbol", action="callers")))))
        return add_freshness(answer, block)

    def code_symbol(kind, file):
        calls.append(("is_code_symbol", kind, file))
        return is_code_symbol(kind, file)

    module.add_freshness, module.is_code_symbol = freshness, code_symbol
    return calls


tools = st.sampled_from(["search:code", "search:symbols", "search:semantic", "symbol:callers", "symbol:detail",
                         "symbol:references", "file:imports", "git:changes", "git:hotspots", "tests:for_file",
                         "quality:impact", "quality:duplicates", "unknown:x"]).map(lambda t: t.split(":"))
# Steps take their texts from the request too, a lone surrogate among them.
request_texts = hard_texts | lone_texts
arguments = st.none() | st.fixed_dictionaries({}, optional={"query": request_texts, "fqn": request_texts,
                                                            "path": request_texts})
blocks = st.none() | st.fixed_dictionaries({"current": st.just(False), "stale_files": st.lists(hard_texts, max_size=2)})


def count(answer, changes):
    for kind in sorted(hard_kinds(answer)):
        event(kind)
    for how, _, _ in changes:
        event(f"the freshness collaborator: {how}")


# CI runs this with many more examples (the "ci" profile, conftest.py).
@settings(**SLOW)
@given(hard_answers(), tools, arguments, blocks, edits)
# A lone surrogate in a text and in a two-byte key, and an int too long to
# write, where a walk could pass over them; and a lone surrogate in the
# request, which the steps are measured from.
@example({"fqn": "a.b", "total_count": 40, "rows": [{"doc": "ab\udc00"}]}, ["symbol", "callers"], None, None, [])
@example({"fqn": "a.b", "x": {"\udc00": 1}}, ["symbol", "callers"], None, None, [])
@example({"fqn": "a.b", "total_count": 40, "rows": [{"n": LONG_INT}]}, ["symbol", "callers"], None, None, [])
@example({"total_count": 40}, ["symbol", "detail"], {"fqn": "a.\udc00"}, None, [])
def test_both_modes_finish_an_answer_alike(modes, answer, tool, arguments, block, changes):
    count(answer, changes)
    results = {}
    for name, module in modes.items():
        calls = collaborators(module, changes)
        given = rebuilt(answer)
        got = outcome(lambda: module.finish_answer(given, tool[0], action=tool[1], arguments=rebuilt(arguments),
                                                   freshness=block))
        results[name] = (got, calls)
    assert same(results["shortcuts"], results["plain"])


FUNCTIONS = ["_add_next_steps", "_encoded_size", "_hint_size", "without_null_fields"]


@settings(**SLOW)
@given(hard_answers() | hard_values, tools, arguments, st.sampled_from(FUNCTIONS))
def test_both_modes_give_each_part_alike(modes, answer, tool, arguments, function):
    count(answer, [])
    results = {}
    for name, module in modes.items():
        calls = collaborators(module, [])
        given = rebuilt(answer)
        if function == "_add_next_steps":
            call = lambda: module._add_next_steps(given, tool[0], action=tool[1], arguments=rebuilt(arguments))  # noqa: E731
        else:
            call = lambda: getattr(module, function)(given)  # noqa: E731
        results[name] = (outcome(call), calls)
    assert same(results["shortcuts"], results["plain"])


def test_the_strategies_draw_every_hard_value():
    """Counted over a fixed run, so that a change of the strategies that
    stops drawing one is seen."""
    seen = set()

    @settings(max_examples=300, derandomize=True, database=None, **SLOW)
    @given(hard_answers(), edits)
    def draw(answer, changes):
        seen.update(hard_kinds(answer))
        seen.update(how for how, _, _ in changes)

    draw()
    wanted = {"lone surrogate in a text", "lone surrogate in a key", "int past the digit limit",
              "int past a double's range", "str subclass", "int subclass", "dict subclass", "value whose str() fails",
              "tuple", "hint field below the top", *EDITS}
    assert wanted <= seen, wanted - seen
