"""The module as the host sees it: names, signatures, loading, and references."""

import gc
import inspect
import logging
import subprocess
import sys
import textwrap

import pytest

MODULE_NAME = "velquorn.tool_handlers.next_steps"

NAMESPACE_ORDER = [
    "annotations", "json", "logging", "dataclass", "TYPE_CHECKING", "Any", "Literal",
    "is_code_symbol", "add_freshness", "freshness_block", "guessed_name", "nearest_paths", "nearest_symbols",
    "logger",
    "HINT_SHARE", "HINT_FLOOR_BYTES", "HINT_KEYS", "_STEPS_KEY_BYTES", "MAX_STEPS", "FAN_IN_FOR_IMPACT",
    "MAX_STEP_FILES",
    "Takes", "Hint", "_DETAIL", "_CALLERS", "_REFERENCES", "_FILE_SYMBOLS", "_CHANGED_TESTS", "NEXT_STEPS",
    "_HIT_LISTS",
    "step", "finish_answer", "without_null_fields", "_add_next_steps", "_signals", "_search_by_meaning",
    "_ask_explore", "_blast_radius", "_untested",
    "_SIGNALS",
    "_usual", "_hit_count", "_taken", "_tests_scope", "_answer_files", "_is_code_hit", "_deduplicated",
    "_within_share", "_hint_size", "_encoded_size", "suggest_symbols", "suggest_paths",
]


def test_names_stand_in_loading_order(ns):
    defined = list(vars(ns))
    assert [name for name in defined if name in NAMESPACE_ORDER] == NAMESPACE_ORDER
    assert "__all__" not in defined


def test_imported_names_are_the_siblings_and_standard_ones(ns):
    import dataclasses
    import json
    import typing

    from velquorn.models import symbol
    from velquorn.tool_handlers import freshness
    from velquorn.workers import name_lookup

    assert (ns.json, ns.logging, ns.dataclass, ns.Any, ns.Literal) == (
        json, logging, dataclasses.dataclass, typing.Any, typing.Literal)
    assert ns.TYPE_CHECKING is False and ns.is_code_symbol is symbol.is_code_symbol
    assert (ns.add_freshness, ns.freshness_block) == (freshness.add_freshness, freshness.freshness_block)
    for name in ("guessed_name", "nearest_paths", "nearest_symbols"):
        assert getattr(ns, name) is getattr(name_lookup, name)
    assert ns.logger is logging.getLogger(MODULE_NAME) and ns.__package__ == "velquorn.tool_handlers"


def test_declared_types_stay_text(ns):
    assert ns.__annotations__ == {
        "NEXT_STEPS": "dict[str, tuple[Hint, ...]]",
        "_SIGNALS": "dict[str, Callable[[Mapping[str, Any]], dict[str, Any] | None]]",
    }
    assert not any(hasattr(ns, name) for name in ("Mapping", "Callable", "Repository"))


SIGNATURES = {
    "step": "(tool, reason, **args)",
    "finish_answer": "(response, tool_name, *, action=None, arguments=None, freshness=None)",
    "without_null_fields": "(value)",
    "_add_next_steps": "(response, tool_name, *, action=None, arguments=None)",
    "_signals": "(response, tool, action, arguments)",
    "_search_by_meaning": "(known)",
    "_ask_explore": "(known)",
    "_blast_radius": "(known)",
    "_untested": "(known)",
    "_usual": "(response, tool, action, arguments)",
    "_hit_count": "(response)",
    "_taken": "(response, takes, arguments)",
    "_is_code_hit": "(item)",
    "_tests_scope": "(response, arguments)",
    "_answer_files": "(response, arguments)",
    "_deduplicated": "(steps)",
    "_within_share": "(response, steps, *, keep)",
    "_hint_size": "(value)",
    "_encoded_size": "(value)",
    "suggest_symbols": "(response, repository, wanted, action)",
    "suggest_paths": "(response, repository, wanted, action)",
}


@pytest.mark.parametrize("name", SIGNATURES)
def test_signatures(ns, name):
    signature = inspect.signature(getattr(ns, name))
    bare = [p.replace(annotation=p.empty) for p in signature.parameters.values()]
    assert str(signature.replace(parameters=bare, return_annotation=signature.empty)) == SIGNATURES[name]


def test_positional_parameters_may_be_named(ns):
    assert ns._encoded_size(value=[]) == 2
    assert ns._tests_scope(arguments={"path": "p"}, response={}) == {"changed_files": ["p"]}
    assert ns._within_share(keep=1, steps=[], response={}) == []


@pytest.mark.parametrize(
    "call",
    [
        lambda ns: ns.finish_answer({}, "search", "code"),
        lambda ns: ns.finish_answer({}, "t", colour="red"),
        lambda ns: ns._add_next_steps({}, "t", None),
        lambda ns: ns._within_share({}, []),
        lambda ns: ns._encoded_size(1, 2),
        lambda ns: ns._hint_size(1, value=1),
        lambda ns: ns.suggest_paths({}, None, "x"),
    ],
)
def test_wrong_calls_are_refused(ns, call):
    with pytest.raises(TypeError):
        call(ns)


def test_documentation(ns):
    assert "freshness_block" in ns.__doc__
    assert ns.step.__doc__.startswith("One next step: the tool to call, the arguments to call it with, and why.")
    assert ns.finish_answer.__doc__.startswith("The answer as every tool sends it (see the module's docstring).")
    assert ns.without_null_fields.__doc__.startswith(
        "A copy of a JSON-like value without the dict fields that are None, at any depth.")
    assert ns.suggest_symbols.__doc__.startswith(
        "Answer a name or fqn the index does not hold with the nearest symbols that it does.")
    assert ns.suggest_paths.__doc__.startswith("Answer a path the index does not hold with the nearest indexed paths.")


def run_python(code):
    return subprocess.run([sys.executable, "-c", textwrap.dedent(code)], capture_output=True, text=True, timeout=60)


def test_missing_sibling_fails_the_import_and_leaves_nothing(ns):
    result = run_python(
        f"""
        import sys
        sys.modules["velquorn.workers.name_lookup"] = None
        try:
            import {MODULE_NAME}
        except ModuleNotFoundError:
            print("refused", "{MODULE_NAME}" in sys.modules)
        del sys.modules["velquorn.workers.name_lookup"]
        import {MODULE_NAME} as ns
        print(ns.logger.name, ns._encoded_size({{"a": [1]}}))
        """
    )
    assert result.stdout.split() == ["refused", "False", MODULE_NAME, "9"], result.stderr


def test_loads_under_another_package_name(ns):
    result = run_python(
        f"""
        import importlib.util, sys
        where = importlib.util.spec_from_file_location("elsewhere.next_steps", {ns.__file__!r})
        module = sys.modules[where.name] = importlib.util.module_from_spec(where)
        where.loader.exec_module(module)
        print(module.logger.name)
        """
    )
    assert result.stdout.split() == ["elsewhere.next_steps"], result.stderr


# References: every call must drop what it takes, on success and on failure.


def _circular():
    rows = []
    rows.append(rows)
    return {"rows": rows}


LEAF = "".join(["a leaf that only this test holds", "!"])
ANSWER = {"fqn": "pkg.f", "file": "pkg/f.py", "total_count": 9, "note": None, "leaf": LEAF,
          "rows": [{"name": LEAF, "kinds": {1, 2}, "pair": (1.5, None)}], "tip": "é" * 10}
CALLS = {
    "without_null_fields": lambda ns: ns.without_null_fields(ANSWER),
    "encoded_size": lambda ns: ns._encoded_size(ANSWER),
    "finish_answer": lambda ns: ns.finish_answer(ANSWER, "symbol", action="callers", arguments={"fqn": LEAF}),
    "suggest_paths": lambda ns: ns.suggest_paths({}, None, LEAF, "symbols"),
    "deduplicated": lambda ns: ns._deduplicated([{"tool": "t", "args": {LEAF: 1}, "reason": "r"}] * 2),
    "surrogate": lambda ns: ns._encoded_size([ANSWER, "\ud800"]),
    "circular": lambda ns: ns._encoded_size(_circular()),
    "bad-key": lambda ns: ns._deduplicated([{"tool": "t", "args": {LEAF: 1, 2: 3}, "reason": "r"}]),
}


@pytest.mark.parametrize("name", CALLS)
def test_calls_leak_no_references(ns, monkeypatch, name):
    monkeypatch.setattr(ns, "add_freshness", lambda answer, block: None)
    monkeypatch.setattr(ns, "is_code_symbol", lambda kind, file: True)
    monkeypatch.setattr(ns, "nearest_paths", lambda repo, wanted: [LEAF])
    call = CALLS[name]

    def run(times):
        for _ in range(times):
            try:
                call(ns)
            except (ValueError, TypeError):
                pass

    run(200)
    gc.collect()
    references, blocks = sys.getrefcount(LEAF), sys.getallocatedblocks()
    run(5000)
    gc.collect()
    assert sys.getrefcount(LEAF) == references
    assert sys.getallocatedblocks() - blocks < 500
