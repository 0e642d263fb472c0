"""The module reads its collaborators from its own namespace at every call, so
a test swaps one by rebinding the name on the module; monkeypatch restores it."""

import importlib

import pytest

MODULE_NAME = "velquorn.tool_handlers.next_steps"


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

