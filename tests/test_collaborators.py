"""The stand-in sibling modules (plain Python) keep the contracts that next_steps relies on."""

import json
from importlib import resources

from velquorn.models.symbol import Repository, is_code_symbol
from velquorn.tool_handlers.freshness import add_freshness, freshness_block
from velquorn.workers.name_lookup import guessed_name, nearest_paths, nearest_symbols


def test_freshness_block_is_added_in_place_and_holds_no_null():
    assert freshness_block(indexed_at="2024-05-02T09:14:00Z") is None
    files = [f"src/m{i}.py" for i in range(8)]
    block = freshness_block(stale_files=files + files[:2], wiki_stale=["wiki/a.md"])
    # The block goes into answers after their nulls were removed.
    assert (block["stale_files"], block["stale_file_count"], None in block.values()) == (files[:5], 8, False)
    answer = {"a": 1}
    assert add_freshness(answer, None) is None and answer == {"a": 1}
    add_freshness(answer, block)
    assert answer["freshness"] is block


def test_symbol_kinds_and_nearest_names():
    assert [is_code_symbol(*a) for a in [("Method", "web/App.TSX"), ("class", None), ("class", "docs/a.md"),
                                         (None, "a.py")]] == [True, True, False, False]
    # The bundled index, read as the command-line examples read it, so that
    # this also checks that the data ships with the package.
    text = resources.files("velquorn_next_steps").joinpath("examples", "repository.json").read_text("utf-8")
    repo = Repository.from_dict(json.loads(text))
    assert [s.fqn for s in nearest_symbols(repo, "parse_tokn")] == ["app.lexer.parse_token"]
    assert nearest_symbols(repo, "pkg.Foo.bar") == []
    assert nearest_paths(repo, "tests/parser.py") == ["src/app/parser.py", "tests/test_parser.py"]
    assert nearest_paths(repo, "docs/none.md") == []
    assert [guessed_name(w) for w in ("pkg::Foo::bar()", "src/app/cli.py:run", "...", None)] == ["bar", "run", "", ""]
