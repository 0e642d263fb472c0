"""The velquorn-next-steps command, run as a user runs it: in its own process."""

import json
import os
import subprocess
import sys
import tempfile
import time
from importlib import resources

import pytest
from reference import HINT_FLOOR_BYTES, HINT_SHARE, STEPS_KEY_BYTES, compact_size

TERMINAL = "a terminal"
SLOW_WRITER = "a pipe written to half a second late"
ANSWER = {"query": "tökens", "total_count": 0, "results": [], "note": None}
EXAMPLES = json.loads(resources.files("velquorn_next_steps").joinpath("examples", "examples.json").read_text())


def run(*args, stdin=""):
    """Run the command with ``stdin`` in a file, /dev/null for None (as CI runners often give), or one of above."""
    command = [sys.executable, "-m", "velquorn_next_steps", *args]
    if stdin is None:
        return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, timeout=60)
    if stdin is TERMINAL:
        primary, secondary = os.openpty()
        try:
            return subprocess.run(command, stdin=secondary, capture_output=True, timeout=60)
        finally:
            os.close(primary)
            os.close(secondary)
    if stdin is SLOW_WRITER:
        with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
            time.sleep(0.5)
            stdout, stderr = process.communicate(json.dumps(ANSWER).encode(), timeout=60)
        return subprocess.CompletedProcess(command, process.returncode, stdout, stderr)
    with tempfile.TemporaryFile() as file:
        file.write(stdin.encode())
        file.seek(0)
        return subprocess.run(command, stdin=file, capture_output=True, timeout=60)


def test_examples_cover_each_source_of_steps(ns):
    done = run("--examples", stdin=None)
    assert done.returncode == 0, done.stderr
    lines = [line for line in done.stdout.decode().splitlines() if line]
    shown = [json.loads(answer) for title, answer in zip(lines[::2], lines[1::2], strict=True)]
    # Which source each example shows is in its title; every one shows steps.
    assert len(shown) == len(EXAMPLES) and all(a["next_steps"] for a in shown)
    assert all(a["found"] is False and a["did_you_mean"] for a in shown[-2:])
    # The budget's example is a small answer, whose room is the floor: its
    # hints and the steps offered are over it, without the last step they are not.
    [(at, example)] = [(n, e) for n, e in enumerate(EXAMPLES) if "{HINT_FLOOR_BYTES}" in e["title"]]
    assert f"its floor of {HINT_FLOOR_BYTES} bytes" in lines[2 * at]
    answer, request = example["answer"], (example["tool"], example["action"], example["arguments"])
    kept, offered = shown[at]["next_steps"], ns._usual(answer, *request)
    assert kept == offered[:-1]
    hints, added = ns._hint_size(answer), compact_size(offered) + STEPS_KEY_BYTES
    assert HINT_SHARE * (compact_size(answer) + added) < HINT_FLOOR_BYTES < hints + added
    assert hints + compact_size(kept) + STEPS_KEY_BYTES <= HINT_FLOOR_BYTES


# What the command shows for its arguments and standard input: the
# examples, a finished answer, or one line of error with status 2.
@pytest.mark.parametrize(
    ("args", "stdin", "shows"),
    [
        ([], TERMINAL, "examples"),  # nothing to finish
        ([], SLOW_WRITER, "error: --tool is required"),  # an answer, however late, is never taken for no input
        (["--tool", "search"], SLOW_WRITER, "finished"),
        # As the server sends it: compact, as UTF-8.
        (["--tool", "search", "--action", "code", "--freshness", '{"current": false}'], json.dumps(ANSWER),
         '{"query":"tökens","total_count":0,"results":[],"freshness":{"current":false},"next_steps":[{"tool":"search",'
         '"args":{"action":"semantic","query":"tökens"},"reason":"No hits: search by meaning"}]}\n'),
        *((args, stdin, "error") for args, stdin in [
            (["--tool", "search"], "[1, 2]"), (["--tool", "search"], "[" * 100_000 + "]" * 100_000),
            (["--tool", "search"], '{"next_steps": 5}'), (["--tool", "search", "missing.json"], None),
            ([], "{}"), ([], None), (["--examples", "--tool", "search"], None)]),
    ],
)
def test_what_the_command_shows(ns, args, stdin, shows):
    if shows == "finished":
        shows = json.dumps(ns.finish_answer(ANSWER, "search"), separators=(",", ":"), ensure_ascii=False) + "\n"
    done = run(*args, stdin=stdin)
    if shows == "examples":
        assert done.returncode == 0 and done.stdout.decode().startswith("# 1. ")
    elif shows.startswith("error"):
        lines = done.stderr.decode().splitlines()
        assert done.returncode == 2 and done.stdout == b"" and len(lines) == 1, lines
        assert lines[0].startswith("velquorn-next-steps: error: ") and shows[len("error: "):] in lines[0], lines
    else:
        assert done.returncode == 0 and done.stderr == b"" and done.stdout.decode("utf-8") == shows


def test_explain_accounts_for_every_step_on_stderr(ns):
    # A long tip leaves room for one step of the row's usual ones.
    answer = {"fqn": "app.lexer.Lexer", "file": "src/app/lexer.py", "tip": "t" * 200}
    done = run("--tool", "symbol", "--action", "detail", "--explain", stdin=json.dumps(answer))
    assert done.returncode == 0, done.stderr
    finished = json.loads(done.stdout)  # stdout stays one JSON answer
    assert len(finished["next_steps"]) == 1
    report = done.stderr.decode()
    figures = {line.split()[0]: line.split()[1] for line in report.splitlines()[1:5]}
    without_steps = {k: v for k, v in finished.items() if k != "next_steps"}
    assert (figures["answer"], figures["hints"]) == (str(compact_size(without_steps)), "202")
    usual = len(ns.NEXT_STEPS["symbol:detail"])
    counts = (report.count("kept "), report.count("dropped "), report.count("over the hint budget"))
    assert counts == (1, usual - 1, min(usual, ns.MAX_STEPS) - 1)
    assert "note:" not in report  # the account agrees with what the module kept


def test_explain_tells_repeats_and_steps_past_the_cap_and_leaves_the_module_as_it_was(ns, monkeypatch):
    from velquorn_next_steps import cli

    step = {"tool": "quality", "args": {"fqn": "f"}, "reason": "r"}
    monkeypatch.setattr(ns, "_signals", lambda *args: [dict(step)])
    usual = [dict(step, reason="again")] + [dict(step, args={"fqn": str(n)}) for n in range(ns.MAX_STEPS)]
    monkeypatch.setattr(ns, "_usual", lambda *args: usual)
    sources = ns._signals, ns._usual, ns._within_share
    request = cli._Request({"a": 1}, "symbol")
    finished, lines = cli._finished(ns, request, explain=True)
    assert finished == request.finish(ns) and (ns._signals, ns._usual, ns._within_share) == sources
    why = [line.strip() for line in lines if line.strip().startswith("(")]
    assert why == ["(repeats an earlier call)", f"(past the cap of {ns.MAX_STEPS} steps)"]
