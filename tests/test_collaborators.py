"""The package's stand-in sibling modules keep the contracts that next_steps relies on.

These run without the built extension: the stand-ins are plain Python.
"""

import json
from importlib import resources

import pytest

from velquorn.models.symbol import Repository, Symbol, is_code_symbol
from velquorn.tool_handlers.freshness import add_freshness, freshness_block
from velquorn.workers.name_lookup import guessed_name, nearest_paths, nearest_symbols


@pytest.fixture(scope="module")
def repository():
    # The bundled index, read as the command-line examples read it, so that
    # this also checks that the data ships with the package.
    text = resources.files("velquorn.tool_handlers").joinpath("examples", "repository.json").read_text("utf-8")
    return Repository.from_dict(json.loads(text))


@pytest.mark.parametrize(
    ("block", "expected"),
    [
        (None, {"a": 1, "next_steps": []}),
        ({"current": False}, {"a": 1, "next_steps": [], "freshness": {"current": False}}),
    ],
)
def test_add_freshness_stores_a_block_in_place_and_ignores_none(block, expected):
    answer = {"a": 1, "next_steps": []}
    assert add_freshness(answer, block) is None
    assert answer == expected
    assert list(answer) == list(expected)
    if block is not None:
        assert answer["freshness"] is block


def test_freshness_block_is_none_while_the_index_is_current():
    assert freshness_block(indexed_at="2024-05-02T09:14:00Z") is None


def test_freshness_block_names_a_few_paths_once_and_counts_them_all():
    files = [f"src/m{i}.py" for i in range(8)]
    block = freshness_block(stale_files=files + files[:2], wiki_stale=["wiki/a.md"])
    # The block goes into answers after their nulls were removed: it must hold none.
    assert None not in block.values()
    assert block["stale_files"] == files[:5]
    assert block["stale_file_count"] == 8
    assert block["wiki_stale"] == ["wiki/a.md"]
    assert "indexed_at" not in block


@pytest.mark.parametrize(
    ("kind", "file", "expected"),
    [
        ("function", "src/app/main.py", True),
        ("Method", "web/App.TSX", True),
        ("class", None, True),
        ("class", "docs/guide.md", False),
        ("heading", "docs/index.md", False),
        (None, "src/app/main.py", False),
        (None, None, False),
    ],
)
def test_is_code_symbol(kind, file, expected):
    assert is_code_symbol(kind, file) is expected


def test_symbol_record_round_trips_through_its_dict():
    symbol = Symbol("app.cli.run", "run", "function", "src/app/cli.py", 31)
    assert symbol.to_dict() == {
        "fqn": "app.cli.run", "name": "run", "kind": "function", "file": "src/app/cli.py", "line": 31,
    }
    assert Symbol.from_dict(symbol.to_dict()) == symbol


def test_repository_without_paths_takes_its_symbols_files():
    repo = Repository.from_dict(
        {"symbols": [{"fqn": "a.f", "kind": "function", "file": "a.py"}, {"fqn": "a.g", "file": "a.py"},
                     {"fqn": "b.h", "file": "b.py"}]}
    )
    assert repo.paths == ("a.py", "b.py")
    assert repo.symbols[0].name == "f"


@pytest.mark.parametrize(
    ("wanted", "expected"),
    [
        ("app.lexer.parse_tokn", ["app.lexer.parse_token"]),
        ("parse_tokn", ["app.lexer.parse_token"]),
        # Equally near names: the nearer fqn first.
        ("app.parser.parse", ["app.parser.parse", "app.parser.Parser"]),
        ("Sesion.refresh", ["app.auth.session.Session.refresh", "app.auth.tokens.refresh_token"]),
        ("pkg.Foo.bar", []),
    ],
)
def test_nearest_symbols_best_first(repository, wanted, expected):
    assert [s.fqn for s in nearest_symbols(repository, wanted)] == expected


@pytest.mark.parametrize(
    ("wanted", "expected"),
    [
        ("src/app/mian.py", ["src/app/main.py"]),
        # The file name decides wherever it lives; between namesakes, the
        # nearer directory first.
        ("tests/parser.py", ["src/app/parser.py", "tests/test_parser.py"]),
        ("src/app/auth/tokns.py", ["src/app/auth/tokens.py", "src/app/tokens.py"]),
        ("src/app/tokns.py", ["src/app/tokens.py", "src/app/auth/tokens.py"]),
        ("readme.md", ["README.md"]),
        ("docs/none.md", []),
    ],
)
def test_nearest_paths_best_first(repository, wanted, expected):
    assert nearest_paths(repository, wanted) == expected


def test_nearest_lookups_honour_their_limit(repository):
    assert nearest_paths(repository, "src/app/parsr.py", limit=1) == ["src/app/parser.py"]
    assert len(nearest_symbols(repository, "token", cutoff=0.3, limit=3)) == 3


@pytest.mark.parametrize(
    ("wanted", "expected"),
    [
        ("pkg.Foo.bar", "bar"),
        ("pkg::Foo::bar()", "bar"),
        ("src/app/cli.py:run", "run"),
        ("bar", "bar"),
        ("", ""),
        ("...", ""),
        (None, ""),
    ],
)
def test_guessed_name(wanted, expected):
    assert guessed_name(wanted) == expected
