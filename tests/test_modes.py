"""The switch that turns the shortcuts off, read when a module object is
made, and the net that holds every function of the module, private ones
included, called directly on values of every hard kind."""

import importlib
import importlib.util
import inspect
import os
import types
import typing
from unittest import mock

import pytest
from conftest import MODULE_NAME, outcome, own_functions, same
from hypothesis import event, example, given, settings
from hypothesis import strategies as st
from reference import compact_size, dedupe, hint_size, hit_count, plain_copy, within_share
from strategies import (LONG_INT, SLOW, Aliased, Count, Name, Reordered, Shuffled, containers_in, hard_answers,
                        hard_ints, hard_keys, hard_texts, hard_values, lone_texts, planted, plants)
from velquorn.models.symbol import is_code_symbol
from velquorn.tool_handlers.freshness import add_freshness


SHORTCUTS = "VELQUORN_NEXT_STEPS_SHORTCUTS"
OWN = importlib.import_module(MODULE_NAME)


def fresh_module(shortcuts=None):
    """A new module object of the installed extension, made with this setting
    (None: unset), which each reads when it is made."""
    found = importlib.util.spec_from_file_location(MODULE_NAME, OWN.__file__)
    module = importlib.util.module_from_spec(found)
    with mock.patch.dict(os.environ):
        os.environ.pop(SHORTCUTS, None)
        os.environ.update({} if shortcuts is None else {SHORTCUTS: shortcuts})
        found.loader.exec_module(module)
    return module


# Any other value fails the import, naming the variable and its values.
@pytest.mark.parametrize("shortcuts, refused", [
    (None, None), ("on", None), ("off", None), ("check_walk,made_step_sizes", None), ("", None),
    ("none", "'on', 'off' or a comma-separated list of shortcuts to turn off (deferred_size, "),
    ("off,check_walk", "'on', 'off' or a comma-separated list"),
])
def test_a_module_object_is_made_with_any_setting_of_the_switch(shortcuts, refused):
    made = outcome(fresh_module, shortcuts)
    if refused:
        assert made[0] is ValueError and made[1].startswith(f"{SHORTCUTS} must be {refused}")
        return
    answer = {"query": "q", "total_count": 0, "results": [], "note": None}
    assert made[1].finish_answer(answer, "search", action="code")["next_steps"][0]["reason"] == "No hits: search by meaning"


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

    def lookup(name, found):
        return lambda *args: calls.append((name, *args)) or found(args[-1])

    symbol = lambda fqn: types.SimpleNamespace(fqn=fqn, to_dict=lambda: {"fqn": fqn})  # noqa: E731
    module.add_freshness, module.is_code_symbol = freshness, code_symbol
    module.nearest_paths = lookup("nearest_paths", lambda wanted: [wanted, "src/app/main.py"][len(str(wanted)) % 2:])
    module.nearest_symbols = lookup("nearest_symbols", lambda wanted: [symbol(wanted)][len(str(wanted)) % 2:])
    module.guessed_name = lookup("guessed_name", lambda wanted: wanted)
    return calls


TOOLS = ["search", "symbol", "file", "files", "git", "tests", "quality", "architecture", "explore", "unknown"]
ACTIONS = ["code", "symbols", "semantic", "callers", "detail", "references", "imports", "changes", "hotspots",
           "for_file", "impact", "duplicates", "dead_code", "diff", "layers", "x"]
# Names as their characters, a str subclass with its own __str__ too.
tools, actions = (st.sampled_from(names) | st.sampled_from(names).map(Name) for names in (TOOLS, ACTIONS))
# Steps take their texts from the request too, a lone surrogate among them.
request_texts = hard_texts | lone_texts
requests = st.fixed_dictionaries({}, optional={"query": request_texts, "fqn": request_texts, "path": request_texts})
arguments = st.none() | requests | requests.map(Aliased) | hard_values
blocks = st.none() | st.fixed_dictionaries({"current": st.just(False), "stale_files": st.lists(hard_texts, max_size=2)})
# Reasons long enough that a few steps outgrow their room.
a_step = st.fixed_dictionaries({"tool": tools | hard_values, "args": requests | hard_values,
                                "reason": hard_texts | st.integers(0, 400).map(lambda n: "r" * n)})
steps = st.lists(a_step | a_step.map(Reordered) | a_step.map(Aliased) | hard_values, max_size=4)
# What each parameter of the module's functions is given, by its name.
PARAMETERS = {
    "response": (hard_answers() | hard_values).flatmap(lambda answer: planted(answer, plants, hard_keys)),
    "value": hard_values.flatmap(lambda value: planted(value, plants, hard_keys)), "item": hard_values,
    "known": st.fixed_dictionaries({"hits": hard_ints | st.none()}, optional={"query": request_texts,
                                    "fqn": request_texts, "what": st.sampled_from(["callers", "references"]),
                                    "path": request_texts}).flatmap(lambda d: st.sampled_from([d, Aliased(d)])),
    "tool_name": tools, "tool": tools, "action": st.none() | actions, "arguments": arguments,
    "takes": st.sampled_from(typing.get_args(OWN.Takes)) | st.sampled_from(typing.get_args(OWN.Takes)).map(Name),
    "steps": steps | steps.map(Shuffled), "keep": st.integers(0, 4) | st.integers(0, 4).map(Count) | st.sampled_from([True, "1"]),
    "freshness": blocks, "repository": st.none(), "wanted": request_texts, "reason": hard_texts,
    "args": st.dictionaries(st.text(max_size=4), hard_values, max_size=3),
}
FUNCTIONS = {name: inspect.signature(f) for name, f in own_functions().items()}


@st.composite
def calls(draw):
    """A function of the module with arguments for each of its parameters."""
    # finish_answer half of the time: it runs every other function, with
    # the freshness collaborator's changes between them.
    name = draw(st.just("finish_answer") | st.sampled_from(sorted(FUNCTIONS)))
    positional, keywords = [], {}
    for parameter in FUNCTIONS[name].parameters.values():
        value = draw(PARAMETERS[parameter.name])
        if parameter.kind is parameter.VAR_KEYWORD:
            keywords.update(value)
        elif parameter.kind is parameter.KEYWORD_ONLY:
            keywords[parameter.name] = value
        else:
            positional.append(value)
    return name, positional, keywords


CHANGE_THEIR_ANSWER = {"_add_next_steps", "suggest_symbols", "suggest_paths"}
# What the same Python code gives, where the rule has a plain statement.
REFERENCES = {
    "without_null_fields": plain_copy, "_encoded_size": compact_size, "_hint_size": hint_size,
    "step": lambda tool, reason, **args: {"tool": tool, "args": args, "reason": reason},
    "_within_share": lambda response, steps, keep: within_share(response, steps, keep),
    "_deduplicated": dedupe, "_hit_count": hit_count,
}


# Twice the profile's examples, many more in CI (the "ci" profile, conftest.py).
@settings(max_examples=2 * settings().max_examples, **SLOW)
@given(calls(), edits)
# A lone surrogate in a text and in a two-byte key, and an int too long to
# write, where a walk could pass over them; and a lone surrogate in the
# request, which the steps are measured from.
@example(("finish_answer", [{"fqn": "a.b", "total_count": 40, "rows": [{"doc": "ab\udc00"}]}, "symbol"],
          {"action": "callers"}), [])
@example(("finish_answer", [{"fqn": "a.b", "x": {"\udc00": 1}}, "symbol"], {"action": "callers"}), [])
@example(("finish_answer", [{"fqn": "a.b", "total_count": 40, "rows": [{"n": LONG_INT}]}, "symbol"],
          {"action": "callers"}), [])
@example(("finish_answer", [{"total_count": 40}, "symbol"], {"action": "detail", "arguments": {"fqn": "a.\udc00"}}),
         [])
def test_both_modes_and_the_host_give_every_function_alike(modes, call, changes):
    """Both modes give the same results, errors and collaborator calls, and
    what the plain statement of the rule gives where there is one."""
    name, positional, keywords = call
    event(name)
    results = {}
    for mode, module in modes.items():
        calls_made = collaborators(module, changes)
        given = rebuilt([positional, keywords])
        results[mode] = (outcome(lambda: getattr(module, name)(*given[0], **given[1])), calls_made)
        assert name in CHANGE_THEIR_ANSWER or same(given, [positional, keywords]), "the arguments are left as given"
    assert same(results["shortcuts"], results["plain"])
    if reference := REFERENCES.get(name):
        given = rebuilt([positional, keywords])
        assert same(results["plain"][0], outcome(lambda: reference(*given[0], **given[1])))

