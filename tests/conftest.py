"""Fixtures shared by the tests of the built module.

The module reads its collaborators from its own namespace at every call, so a
test swaps one by rebinding the name with ``monkeypatch.setattr(ns, ...)``;
monkeypatch puts the module's own binding back when the test ends.
"""

import importlib

import pytest

MODULE_NAME = "velquorn.tool_handlers.next_steps"


@pytest.fixture(scope="session")
def ns():
    return importlib.import_module(MODULE_NAME)


@pytest.fixture
def freshness_calls(ns, monkeypatch):
    """Replace ``add_freshness`` by a recorder that stores a given block under
    ``freshness`` and leaves the answer alone for None."""
    calls = []

    def add_freshness(answer, block):
        calls.append((answer, block))
        if block is not None:
            answer["freshness"] = block
        return "ignored"

    monkeypatch.setattr(ns, "add_freshness", add_freshness)
    return calls


@pytest.fixture
def code_kinds(ns, monkeypatch):
    """Replace ``is_code_symbol`` by a double: every kind is code except
    "module" and "doc". Returns the list of calls made."""
    calls = []

    def is_code_symbol(kind, file):
        calls.append((kind, file))
        return kind not in ("module", "doc")

    monkeypatch.setattr(ns, "is_code_symbol", is_code_symbol)
    return calls
