"""The module as the host sees it: names, signatures, loading, and references."""

import gc
import inspect
import logging
import subprocess
import sys
import textwrap

import pytest

MODULE_NAME = "velquorn.tool_handlers.next_steps"

NAMESPACE_ORDER = """
    annotations json logging dataclass TYPE_CHECKING Any Literal
    is_code_symbol add_freshness freshness_block guessed_name nearest_paths nearest_symbols logger
    HINT_SHARE HINT_FLOOR_BYTES HINT_KEYS _STEPS_KEY_BYTES MAX_STEPS FAN_IN_FOR_IMPACT MAX_STEP_FILES
    Takes Hint _DETAIL _CALLERS _REFERENCES _FILE_SYMBOLS _CHANGED_TESTS NEXT_STEPS _HIT_LISTS
    step finish_answer without_null_fields _add_next_steps _signals _search_by_meaning _ask_explore _blast_radius
    _untested _SIGNALS _usual _hit_count _taken _tests_scope _answer_files _is_code_hit _deduplicated
    _within_share _hint_size _encoded_size suggest_symbols suggest_paths
""".split()


def test_names_stand_in_loading_order(ns):
    defined = list(vars(ns))
    assert [name for name in defined if name in NAMESPACE_ORDER] == NAMESPACE_ORDER
    assert "__all__" not in defined


def test_collaborators_are_the_sibling_modules_own_functions(ns):
    from velquorn.models import symbol
    from velquorn.workers import name_lookup

    assert ns.is_code_symbol is symbol.is_code_symbol and ns.nearest_paths is name_lookup.nearest_paths
    assert ns.logger is logging.getLogger(MODULE_NAME) and ns.TYPE_CHECKING is False


SIGNATURES = {
    "step": "(tool, reason, **args)",
    "finish_answer": "(response, tool_name, *, action=None, arguments=None, freshness=None)",
    "_add_next_steps": "(response, tool_name, *, action=None, arguments=None)",
    "_within_share": "(response, steps, *, keep)",
    **dict.fromkeys(["without_null_fields", "_hint_size", "_encoded_size"], "(value)"),
    **dict.fromkeys(["_search_by_meaning", "_ask_explore", "_blast_radius", "_untested"], "(known)"),
    **dict.fromkeys(["_signals", "_usual"], "(response, tool, action, arguments)"),
    **dict.fromkeys(["_tests_scope", "_answer_files"], "(response, arguments)"),
    **dict.fromkeys(["suggest_symbols", "suggest_paths"], "(response, repository, wanted, action)"),
    "_hit_count": "(response)", "_taken": "(response, takes, arguments)", "_is_code_hit": "(item)",
    "_deduplicated": "(steps)",
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


WRONG_CALLS = [
    'finish_answer({}, "search", "code")', 'finish_answer({}, "t", colour="red")', '_add_next_steps({}, "t", None)',
    "_within_share({}, [])", "_within_share({}, [], 1)", '_within_share({}, [], keep="1")', "_encoded_size(1, 2)",
    "_hint_size(1, value=1)", 'suggest_paths({}, None, "x")', 'step("a", "b", "c")', 'step("a", "b", tool=1)',
]


@pytest.mark.parametrize("call", WRONG_CALLS)
def test_wrong_calls_are_refused(ns, call):
    with pytest.raises(TypeError):
        eval(f"ns.{call}", {"ns": ns})


def test_missing_sibling_fails_the_import_and_leaves_nothing(ns):
    code = textwrap.dedent(
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
    result = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=60)
    assert result.stdout.split() == ["refused", "False", MODULE_NAME, "9"], result.stderr


# References: every call must drop what it takes, on success and on failure.


CIRCLE = []
CIRCLE.append(CIRCLE)
LEAF = "".join(["a leaf that only this test holds", "!"])
ANSWER = {"fqn": "pkg.f", "file": "pkg/f.py", "total_count": 9, "note": None, "leaf": LEAF,
          "rows": [{"name": LEAF, "kinds": {1, 2}, "pair": (1.5, None)}], "tip": "é" * 10}
CALLS = {
    "finish_answer": lambda ns: ns.finish_answer(ANSWER, "symbol", action="callers", arguments={"fqn": LEAF}),
    "suggest_paths": lambda ns: ns.suggest_paths({}, None, LEAF, "symbols"),
    "deduplicated": lambda ns: ns._deduplicated([{"tool": "t", "args": {LEAF: 1}, "reason": "r"}] * 2),
    "surrogate": lambda ns: ns._encoded_size([ANSWER, "\ud800"]),
    "circular": lambda ns: ns._encoded_size({"rows": CIRCLE}),
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
