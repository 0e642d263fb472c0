"""Module objects made with chosen settings, beside the one that tests import:
each reads the environment when it is made, so that one process can hold a
module with every shortcut and one with none."""

import importlib
import importlib.util
import os
from contextlib import contextmanager

from conftest import MODULE_NAME

SHORTCUTS = "VELQUORN_NEXT_STEPS_SHORTCUTS"


@contextmanager
def environment(**values):
    """The variables set (or, for None, unset) while the block runs."""
    before = {name: os.environ.get(name) for name in values}

    def put(settings):
        for name, value in settings.items():
            if value is None:
                os.environ.pop(name, None)
            else:
                os.environ[name] = value

    put(values)
    try:
        yield
    finally:
        put(before)


def fresh_module(shortcuts=None):
    """A new module object of the installed extension, made with this setting."""
    path = importlib.import_module(MODULE_NAME).__file__
    found = importlib.util.spec_from_file_location(MODULE_NAME, path)
    module = importlib.util.module_from_spec(found)
    with environment(**{SHORTCUTS: shortcuts}):
        found.loader.exec_module(module)
    return module
