"""The module as the host sees it: names, signatures, loading, and references."""

import ast
import builtins
import gc
import importlib.util
import inspect
import logging
import subprocess
import sys
import textwrap
import typing
from pathlib import Path

import pytest
from conftest import MODULE_NAME, outcome, own_functions
from hypothesis import example, given
from hypothesis import strategies as st
from reference import MAX_STEPS
from velquorn.models import symbol
from velquorn.workers import name_lookup

# What the loader imports, in the order a module written in Python would.
IMPORTED = """
    annotations json logging dataclass TYPE_CHECKING Any Literal
    is_code_symbol add_freshness freshness_block guessed_name nearest_paths nearest_symbols
""".split()
STUB = Path(importlib.util.find_spec(MODULE_NAME).origin).with_name("next_steps.pyi")


def stub_definitions():
    """The names the stub defines (its imports left out), in its order, each with its node."""
    for node in ast.parse(STUB.read_text("utf-8")).body:
        if isinstance(node, ast.AnnAssign):
            yield node.target.id, node
        elif isinstance(node, (ast.FunctionDef, ast.ClassDef)):
            yield node.name, node


def test_the_stub_agrees_with_the_module(tmp_path):
    # Signatures, kinds and types of every name; run apart, where its cache may go.
    allowlist = Path(__file__).with_name("stubtest_allowlist.txt")
    command = [sys.executable, "-m", "mypy.stubtest", MODULE_NAME, "--allowlist", str(allowlist)]
    done = subprocess.run(command, cwd=tmp_path, capture_output=True, text=True, timeout=300)
    assert done.returncode == 0, done.stdout + done.stderr


def test_the_stub_says_what_stubtest_cannot(ns):
    """The order of the namespace, the first paragraph of each docstring, the
    values of Takes (which the allow-list keeps from stubtest), and what the
    names a module written in Python imports or is given are bound to."""
    stub = dict(stub_definitions())
    order = IMPORTED + [name for name in stub if name not in IMPORTED]
    assert [name for name in vars(ns) if name in order] == order
    assert "__all__" not in vars(ns)
    for name, node in stub.items():
        doc = None if isinstance(node, ast.AnnAssign) else ast.get_docstring(node)
        if doc:
            assert getattr(ns, name).__doc__.split("\n\n")[0] == doc, name
    assert typing.get_args(ns.Takes) == tuple(ast.literal_eval(stub["Takes"].value.slice))
    assert ns.is_code_symbol is symbol.is_code_symbol and ns.nearest_paths is name_lookup.nearest_paths
    assert ns.logger is logging.getLogger(MODULE_NAME) and ns.TYPE_CHECKING is False
    assert ns.__builtins__ is vars(builtins) and ns.__cached__ is None  # as a module written in Python has them


FUNCTIONS = sorted(own_functions())
PARAMETERS = sorted({p for f in own_functions().values() for p in inspect.signature(f).parameters} | {"colour"})


def twin(function):
    """A Python function of the same signature: its refusals are the host's own."""
    defined = {}
    exec(f"def {function.__name__}{inspect.signature(function)}: pass", defined)
    return defined[function.__name__]


@given(st.sampled_from(FUNCTIONS), st.integers(0, 5), st.lists(st.sampled_from(PARAMETERS), unique=True, max_size=4))
@example("finish_answer", 3, ["action"])  # too many positional ones beside one keyword-only
def test_calls_are_refused_as_a_python_function_of_the_same_signature_refuses_them(ns, name, count, keywords):
    function, arguments = getattr(ns, name), {keyword: [] for keyword in keywords}
    expected = outcome(twin(function), *[[]] * count, **arguments)
    got = outcome(function, *[[]] * count, **arguments)
    if expected[0] == "value":  # the call was taken: whatever fails then is the function's own
        assert got[0] == "value" or not str(got[1]).startswith(f"{name}()")
    else:
        assert got == expected


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


# The module keeps what each name held until its namespace changes: a change
# between two calls, or by host code amid one, is what the next read finds.


CALLERS = {"fqn": "pkg.f", "file": "pkg/f.py", "total_count": 12}  # a signal and a usual step
DELETED = object()
CHANGES = [  # name, what it is bound to, what the finished answer then is
    ("_encoded_size", lambda value: 10**6, lambda answer: [s["tool"] for s in answer["next_steps"]] == ["quality"]),
    ("_encoded_size", DELETED, NameError),
    ("_encoded_size", lambda value: "many", TypeError),  # a size that is no int
    ("step", lambda tool, reason, **args: {"tool": tool, "args": args, "reason": "mine"},
     lambda answer: [s["reason"] for s in answer["next_steps"]] == ["mine", "Every use of it"]),
    # The budget measures the steps it is handed, lengthened in place by a rebound de-duplication.
    ("_deduplicated", lambda steps: [steps[0], steps[1].update(reason="r" * 1000) or steps[1]],
     lambda answer: [s["tool"] for s in answer["next_steps"]] == ["quality"]),
    # Steps of their own are cut as steps[:MAX_STEPS] cuts them.
    ("_deduplicated", lambda steps: type("Cut", (list,), {"__getitem__": lambda self, at: [{"tool": repr(at)}]})(),
     lambda answer: answer["next_steps"] == [{"tool": repr(slice(None, MAX_STEPS))}]),
    # and a list that the function still holds is left whole.
    ("_deduplicated", lambda steps: HELD, lambda answer: answer["next_steps"] == HELD[:MAX_STEPS] != HELD),
]
HELD = [{"tool": f"t{n}", "args": {}, "reason": "r"} for n in range(MAX_STEPS + 1)]


@pytest.mark.parametrize("where", ["between calls", "in items()", "in a collaborator"])
@pytest.mark.parametrize("name, value, finished", CHANGES)
def test_a_changed_name_is_read_anew(ns, monkeypatch, where, name, value, finished):
    armed = False

    def change():
        if armed:
            vars(ns).pop(name, None) if value is DELETED else setattr(ns, name, value)

    class Changing(dict):
        def items(self):
            change()
            return super().items()

    monkeypatch.setattr(ns, "add_freshness", lambda answer, block: change() if where == "in a collaborator" else None)
    answer = Changing(CALLERS) if where == "in items()" else dict(CALLERS)
    own = ns.finish_answer(answer, "symbol", action="callers")  # every name it reads is now kept
    held, armed = getattr(ns, name), True
    try:
        if where == "between calls":
            change()
        if isinstance(finished, type):
            with pytest.raises(finished, match=f"^name '{name}' is not defined$" if finished is NameError else None):
                ns.finish_answer(answer, "symbol", action="callers")
        else:
            assert finished(ns.finish_answer(answer, "symbol", action="callers"))
    finally:
        armed = False
        setattr(ns, name, held)
    assert ns.finish_answer(answer, "symbol", action="callers") == own


def test_module_objects_keep_their_own_names_and_give_their_watchers_back():
    """Each module object watches its namespace with one of the interpreter's
    few watcher slots: one made when none is free looks its names up instead,
    and one freed gives its slot back.  The slots are taken in a child."""
    pytest.importorskip("_testcapi")
    code = textwrap.dedent(
        f"""
        import gc, importlib, importlib.util, _testcapi
        lowest = _testcapi.add_dict_watcher(0)  # kept from the first module, for the next one to take
        first = importlib.import_module("{MODULE_NAME}")  # the one that the dataclass reads
        _testcapi.clear_dict_watcher(lowest)

        def instance():
            module = importlib.util.module_from_spec(first.__spec__)
            first.__loader__.exec_module(module)
            return module

        def take_slots():
            slots = []
            while True:
                try:
                    slots.append(_testcapi.add_dict_watcher(0))
                except RuntimeError:
                    return slots

        def free_slots():
            slots = take_slots()
            for slot in slots:
                _testcapi.clear_dict_watcher(slot)
            return len(slots)

        free = free_slots()
        for _ in range(free + 2):
            instance()._hint_size({{"next_steps": [1]}})
        gc.collect()
        watched = instance()
        taken = take_slots()
        unwatched = instance()
        for module, size in ((watched, 7), (unwatched, 9)):
            module._hint_size({{"next_steps": [1]}})
            module._encoded_size = lambda value, size=size: size
        sizes = [m._hint_size({{"next_steps": [1]}}) for m in (watched, unwatched)]
        del unwatched._encoded_size
        try:
            unwatched._hint_size({{"next_steps": [1]}})
        except NameError as e:
            sizes.append(str(e))
        for slot in taken:
            _testcapi.clear_dict_watcher(slot)
        del watched, unwatched
        gc.collect()
        print(free, len(taken), free_slots(), *sizes, sep=";")
        """
    )
    result = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=60)
    assert result.returncode == 0, result.stderr
    free, taken, free_after, *sizes = result.stdout.strip().split(";")
    # The one that lives holds a slot of its own.
    assert int(free) > 0 and int(taken) == int(free) - 1 and free_after == free, result.stderr
    assert sizes == ["7", "9", "name '_encoded_size' is not defined"], result.stderr


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
    "rebound": lambda ns: ns._hint_size(Rebinding({"next_steps": [LEAF], "rows": [{"tip": LEAF}]})),
}
# Binds a new function to _encoded_size whenever it is walked.
Rebinding = type("Rebinding", (dict,), {"items": lambda self: setattr(
    sys.modules[MODULE_NAME], "_encoded_size", lambda value: len(value)) or dict.items(self)})


@pytest.mark.parametrize("name", CALLS)
def test_calls_leak_no_references(ns, monkeypatch, name):
    monkeypatch.setattr(ns, "add_freshness", lambda answer, block: None)
    monkeypatch.setattr(ns, "is_code_symbol", lambda kind, file: True)
    monkeypatch.setattr(ns, "nearest_paths", lambda repo, wanted: [LEAF])
    monkeypatch.setattr(ns, "_encoded_size", ns._encoded_size)  # put back after a call that rebinds it
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
