"""The module's wheel for this Python, and the one pip builds from the source
distribution, installed as users install them: alone, with the stand-ins, and
beside a minimal server written here, where it owns only its own files."""

import base64
import hashlib
import json
import subprocess
import sysconfig
import zipfile

import pytest
from environments import (Environment, module_sdist, module_wheel, sdist_files, standins_wheel, wheel_built_from,
                          wheel_files)

pytestmark = pytest.mark.wheels

OWN_FILES = {
    "velquorn/tool_handlers/next_steps" + sysconfig.get_config_var("EXT_SUFFIX"),
    "velquorn/tool_handlers/next_steps.pyi",
    *(f"velquorn_next_steps/{name}" for name in ("__init__.py", "__main__.py", "cli.py")),
    *(f"velquorn_next_steps/examples/{name}.json" for name in ("examples", "repository")),
}

# A user's file that calls finish_answer wrongly, and what mypy --strict says
# of it once it finds the module's stub.
MISUSE = """
from velquorn.tool_handlers.next_steps import finish_answer

sent = finish_answer({"query": "q"}, "search", action=3)
"""
MISUSE_ERRORS = [
    '4: error: Argument "action" to "finish_answer" has incompatible type "int"; expected "str | None"  [arg-type]'
]

# The siblings, each recognisably the server's own, and one more module of its own.
SIBLINGS = {
    "velquorn/tool_handlers/freshness.py": """
def freshness_block(**facts): return facts
def add_freshness(answer, block): answer["freshness"] = {"by": "the server", "block": block}
""",
    "velquorn/models/symbol.py": """
class Repository: pass
class Symbol:
    def __init__(self, fqn): self.fqn = fqn
    def to_dict(self): return {"fqn": self.fqn, "from": "the server"}
def is_code_symbol(kind, file): return True
""",
    "velquorn/workers/name_lookup.py": """
from velquorn.models.symbol import Symbol
def nearest_symbols(repository, wanted): return [Symbol("server." + wanted)]
def nearest_paths(repository, wanted): return ["server/" + wanted]
def guessed_name(wanted): return wanted
""",
    "velquorn/tool_handlers/search.py": '"""A tool handler of the server, beside next_steps."""\n',
}

# A server of regular packages marks its top package typed; one of namespace
# packages marks each of its subpackages.
LAYOUTS = {
    "regular": {
        "velquorn/__init__.py": '"""The velquorn tool server."""\n\nNAME = "the server"\n',
        "velquorn/py.typed": "",
        **{f"velquorn/{package}/__init__.py": f'"""The server\'s {package}."""\n'
           for package in ("tool_handlers", "models", "workers")},
    },
    "namespace": {f"velquorn/{package}/py.typed": "" for package in ("tool_handlers", "models", "workers")},
}

USE = """
import json
from velquorn.tool_handlers import next_steps

finished = next_steps.finish_answer({"query": "q", "total_count": 0}, "search", freshness={"current": False})
missed = next_steps.suggest_symbols({}, None, "parse_tokn", "detail")
print(json.dumps([finished["freshness"], missed["did_you_mean"]]))
"""


# What a build needs beside the sources, and no more: the bench's training
# and corpus and the stand-ins it runs beside, for the profile.
SDIST_TOP = {"CMakeLists.txt", "PKG-INFO", "README.md", "pyproject.toml", "bench", "cmake", "python", "src", "standins"}
SDIST_BUILD_FILES = {"bench/corpus.py", "bench/train.py", "cmake/profile.cmake", "cmake/train.cmake"}


@pytest.fixture(scope="session")
def sdist_build(tmp_path_factory):
    """The wheel pip builds from the source distribution alone, and its log."""
    return wheel_built_from(module_sdist(), tmp_path_factory.mktemp("sdist"))


@pytest.fixture(params=["wheel", "sdist"])
def built(request):
    """The module's shipped wheel, or the one its source distribution builds."""
    return module_wheel() if request.param == "wheel" else request.getfixturevalue("sdist_build")[0]


def test_sdist_holds_what_a_build_needs_and_builds_the_profiled_module(sdist_build):
    log = sdist_build[1]
    assert "Profiling the module" in log and "without the profile" not in log
    files = sdist_files(module_sdist())
    assert {name.split("/")[0] for name in files} == SDIST_TOP
    assert {name for name in files if name.startswith(("bench/", "cmake/"))} == SDIST_BUILD_FILES
    assert {name for name in files if name.startswith("standins/")} == {
        f"standins/{name}" for name in wheel_files(standins_wheel())
    }
    assert not any("__pycache__" in name for name in files)


def test_wheel_holds_only_its_own_files_and_with_the_standins_runs_the_examples(tmp_path, built):
    assert set(wheel_files(built)) == OWN_FILES
    env = Environment(tmp_path / "env")
    env.install(built)
    failed = env.failure("import velquorn.tool_handlers.next_steps")
    assert failed == "ModuleNotFoundError: No module named 'velquorn.models'"

    env.install(standins_wheel())
    command = [str(env.python.parent / "velquorn-next-steps"), "--examples"]
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
    titles = [line for line in done.stdout.splitlines() if line.startswith("# ")]
    assert done.returncode == 0 and done.stderr == "" and len(titles) == 8 and titles[-1].startswith("# 8. ")
    assert env.pip("check").strip() == "No broken requirements found."
    assert env.mypy_errors(MISUSE) == MISUSE_ERRORS


def server_wheel(folder, files):
    """The server's wheel, installing ``files`` (path below site-packages: text)."""
    info = "velquorn_server-1.0.dist-info"
    entries = {name: text.encode() for name, text in files.items()}
    entries[f"{info}/METADATA"] = b"Metadata-Version: 2.1\nName: velquorn-server\nVersion: 1.0\n"
    entries[f"{info}/WHEEL"] = b"Wheel-Version: 1.0\nGenerator: tests\nRoot-Is-Purelib: true\nTag: py3-none-any\n"
    record = "".join(
        f"{name},sha256={base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b'=').decode()},{len(data)}\n"
        for name, data in entries.items()
    )
    entries[f"{info}/RECORD"] = (record + f"{info}/RECORD,,\n").encode()
    wheel = folder / "velquorn_server-1.0-py3-none-any.whl"
    with zipfile.ZipFile(wheel, "w") as archive:
        for name, data in entries.items():
            archive.writestr(name, data)
    return wheel


# The sdist's wheel holds the shipped one's files (above): one wheel does here.
@pytest.mark.parametrize("server_first", [True, False], ids=["server-first", "module-first"])
@pytest.mark.parametrize("layout", ["regular", "namespace"])
def test_beside_the_server(tmp_path, layout, server_first):
    built = module_wheel()
    files = {**LAYOUTS[layout], **SIBLINGS}
    server = {name: text.encode() for name, text in files.items()}
    ours = wheel_files(built)
    env = Environment(tmp_path / "env")
    for wheel in [server_wheel(tmp_path, files), built][:: 1 if server_first else -1]:
        env.install(wheel)

    assert env.files() == server | ours and not server.keys() & ours.keys()
    freshness, candidates = json.loads(env.run(USE))
    assert freshness == {"by": "the server", "block": {"current": False}}
    assert candidates == [{"fqn": "server.parse_tokn", "from": "the server"}]
    assert env.pip("check").strip() == "No broken requirements found."
    assert env.mypy_errors(MISUSE) == MISUSE_ERRORS

    env.pip("uninstall", "--yes", "velquorn-next-steps")
    assert env.files() == server
    env.run("import velquorn.tool_handlers.freshness, velquorn.workers.name_lookup, velquorn.tool_handlers.search")
