"""The module reads its collaborators from its own namespace at every call, so
a test swaps one by rebinding the name on the module; monkeypatch restores it."""

import importlib
import os
import types

import pytest
from hypothesis import settings

# Examples per property: a few hundred here, many more in CI (profile "ci"),
# a quarter for the mutants and the builds run for their compiler ("quick").
settings.register_profile("dev", max_examples=200)
settings.register_profile("ci", max_examples=3000)
settings.register_profile("quick", max_examples=50)
settings.load_profile(os.environ.get("HYPOTHESIS_PROFILE", "dev"))


def examples(count):
    """The examples of a property that sets its own number, as the profile scales it."""
    return count // 4 if os.environ.get("HYPOTHESIS_PROFILE") == "quick" else count

MODULE_NAME = "velquorn.tool_handlers.next_steps"


def outcome(function, *args, **keywords):
    """What a call gives: its result, or the kind and text of its error."""
    try:
        return ("value", function(*args, **keywords))
    except Exception as error:  # the host's errors, each call's own
        return (type(error), str(error))


def own_functions():
    """The module's own functions, private ones included, by name, as its namespace lists them."""
    return {name: f for name, f in vars(importlib.import_module(MODULE_NAME)).items()
            if isinstance(f, types.BuiltinFunctionType) and f.__module__ == MODULE_NAME}


def same(a, b):
    """Equal in types and in order throughout, leaves equal or the same object."""
    if type(a) is not type(b):
        return False
    if isinstance(a, dict):
        a, b = list(dict.items(a)), list(dict.items(b))
    if isinstance(a, (list, tuple)):
        return len(a) == len(b) and all(same(x, y) for x, y in zip(a, b))
    return a is b or a == b or (a != a and b != b)


@pytest.fixture(scope="session")
def ns():
    return importlib.import_module(MODULE_NAME)


@pytest.fixture
def code_kinds(ns, monkeypatch):
    """A recording ``is_code_symbol``: every kind is code but "module" and "doc"."""
    calls = []

    def is_code_symbol(kind, file):
        calls.append((kind, file))
        return kind not in ("module", "doc")

    monkeypatch.setattr(ns, "is_code_symbol", is_code_symbol)
    return calls

