"""The module's wheel for this Python holds only this project's files, and works as shipped."""

import subprocess
import sysconfig

import pytest
from environments import MISUSE, MISUSE_ERRORS, Environment, module_wheel, standins_wheel, wheel_files

pytestmark = pytest.mark.wheels

OWN_FILES = {
    "velquorn/tool_handlers/next_steps" + sysconfig.get_config_var("EXT_SUFFIX"),
    "velquorn/tool_handlers/next_steps.pyi",
    *(f"velquorn_next_steps/{name}" for name in ("__init__.py", "__main__.py", "cli.py")),
    *(f"velquorn_next_steps/examples/{name}.json" for name in ("examples", "repository")),
}


def test_wheel_holds_only_the_module_s_own_files():
    assert set(wheel_files(module_wheel())) == OWN_FILES


def test_wheel_with_the_standins_runs_the_examples(tmp_path):
    env = Environment(tmp_path / "env")
    env.install(module_wheel())
    failed = env.failure("import velquorn.tool_handlers.next_steps")
    assert failed == "ModuleNotFoundError: No module named 'velquorn.models'"

    env.install(standins_wheel())
    command = [str(env.python.parent / "velquorn-next-steps"), "--examples"]
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
    titles = [line for line in done.stdout.splitlines() if line.startswith("# ")]
    assert done.returncode == 0 and done.stderr == "" and len(titles) == 8 and titles[-1].startswith("# 8. ")
    assert env.pip("check").strip() == "No broken requirements found."
    assert env.mypy_errors(MISUSE) == MISUSE_ERRORS
