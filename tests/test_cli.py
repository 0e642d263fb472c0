"""The velquorn-next-steps command, run as a user runs it: in its own process."""

import json
import subprocess
import sys
import tempfile

import pytest

from velquorn.tool_handlers.finish_cli import main

PROG = "velquorn-next-steps"


def run(*args, stdin=""):
    """Run the command; ``stdin`` None gives it /dev/null, as CI runners often do.

    Standard input comes from a file rather than a pipe, so that the command
    finds it all there at once, however slowly the test writes.
    """
    command = [sys.executable, "-m", "velquorn.tool_handlers.finish_cli", *args]
    if stdin is None:
        return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, timeout=60)
    with tempfile.TemporaryFile() as file:
        file.write(stdin.encode())
        file.seek(0)
        return subprocess.run(command, stdin=file, capture_output=True, timeout=60)


def compact(value):
    return json.dumps(value, separators=(",", ":"), ensure_ascii=False)


def examples(stdout):
    """The (title, answer) pairs that the examples print."""
    lines = [line for line in stdout.decode().splitlines() if line]
    return [(title, json.loads(answer)) for title, answer in zip(lines[::2], lines[1::2], strict=True)]


@pytest.mark.parametrize("args", [["--examples"], []], ids=["flag", "no-input"])
def test_examples_cover_each_source_of_steps(ns, args):
    done = run(*args, stdin=None)
    assert done.returncode == 0, done.stderr
    shown = examples(done.stdout)
    assert all(title.startswith("# ") for title, _ in shown)
    first_steps = [(a["next_steps"][0]["tool"], a["next_steps"][0]["args"].get("action")) for _, a in shown]
    assert first_steps == [
        ("symbol", "detail"),  # usual follow-up of a search with hits
        ("search", "semantic"),  # no hits
        ("quality", "impact"),  # many callers
        ("tests", "recommended"),  # untested file
        ("tests", "recommended"),  # change set
        ("symbol", "callers"),  # budget example
        ("symbol", "detail"),  # did-you-mean, symbol
        ("file", "symbols"),  # did-you-mean, path
    ]
    assert shown[4][1]["next_steps"][0]["args"] == {"action": "recommended", "base_branch": "main"}
    assert "freshness" in shown[4][1]
    assert len(shown[5][1]["next_steps"]) < 3
    for _, answer in shown[-2:]:
        assert answer["found"] is False and answer["did_you_mean"]


ANSWER = {"query": "tökens", "total_count": 0, "results": [], "note": None}
FINISHED = (
    '{"query":"tökens","total_count":0,"results":[],"freshness":{"current":false},'
    '"next_steps":[{"tool":"search","args":{"action":"semantic","query":"tökens"},'
    '"reason":"No hits: search by meaning"}]}\n'
)


@pytest.mark.parametrize("source", ["stdin", "-", "file"])
def test_finishes_an_answer_as_the_server_sends_it(ns, tmp_path, source):
    options = ["--tool", "search", "--action", "code", "--freshness", '{"current": false}']
    if source == "file":
        path = tmp_path / "answer.json"
        path.write_text(json.dumps(ANSWER), "utf-8")
        done = run(*options, str(path), stdin=None)
    else:
        done = run(*options, *([source] if source == "-" else []), stdin=json.dumps(ANSWER))
    assert done.returncode == 0, done.stderr
    assert done.stdout.decode("utf-8") == FINISHED
    assert done.stderr == b""


def test_indent_changes_only_the_layout(ns):
    done = run("--tool", "search", "--action", "code", "--indent", stdin=json.dumps(ANSWER))
    answer = json.loads(done.stdout)
    assert done.stdout.decode() == json.dumps(answer, indent=2, ensure_ascii=False) + "\n"


def test_explain_accounts_for_every_step_on_stderr(ns):
    # A long tip leaves room for one step of the three usual ones.
    answer = {"fqn": "app.lexer.Lexer", "file": "src/app/lexer.py", "tip": "t" * 200}
    done = run("--tool", "symbol", "--action", "detail", "--explain", stdin=json.dumps(answer))
    assert done.returncode == 0, done.stderr
    finished = json.loads(done.stdout)  # stdout stays one JSON answer
    assert len(finished["next_steps"]) == 1
    without_steps = {k: v for k, v in finished.items() if k != "next_steps"}
    report = done.stderr.decode()
    figures = {line.split()[0]: line.split()[1] for line in report.splitlines()[1:5]}
    assert figures["answer"] == str(len(compact(without_steps).encode()))
    assert figures["hints"] == str(len(compact("t" * 200).encode()))
    assert report.count("kept ") == 1
    assert report.count("dropped ") == 2
    assert report.count("over the hint budget") == 2
    assert "note:" not in report  # the account agrees with what the module kept


@pytest.mark.parametrize(
    ("args", "stdin"),
    [
        (["--tool", "search"], "not json"),
        (["--tool", "search"], "[1, 2]"),
        (["--tool", "search"], ""),
        (["--tool", "search"], "[" * 100_000 + "]" * 100_000),
        (["--tool", "search"], '{"next_steps": 5}'),
        (["--tool", "search", "missing.json"], None),
        (["--bogus"], None),
        (["--tool", "search", "--arguments", "{bad"], "{}"),
        (["--tool", "search", "--arguments", "[1]"], "{}"),
        (["--action", "code"], "{}"),
        ([], "{}"),  # an answer without --tool
        (["--examples", "--tool", "search"], None),
    ],
    ids=[
        "not-json", "not-object", "empty", "too-deep", "own-steps-not-a-list", "no-file", "unknown-option",
        "arguments-not-json", "arguments-not-object", "no-tool", "stdin-without-tool", "examples-and-tool",
    ],
)
def test_bad_input_is_one_line_and_status_2(args, stdin):
    done = run(*args, stdin=stdin)
    assert done.returncode == 2
    assert done.stdout == b""
    lines = done.stderr.decode().splitlines()
    assert len(lines) == 1 and lines[0].startswith(f"{PROG}: error: "), lines


def test_main_returns_the_status_instead_of_exiting(capsys):
    assert main(["--help"]) == 0
    assert main(["--bogus"]) == 2
    assert "--bogus" in capsys.readouterr().err
