"""Finish a tool's answer from the command line, as the server would send it.

``velquorn-next-steps --tool search --action code answer.json`` reads a tool's
answer (a JSON object), runs it through
:func:`velquorn.tool_handlers.next_steps.finish_answer` and prints the answer
that the server would send: compact JSON, or indented with ``--indent``.
``--explain`` also shows how the hint budget treated the steps. With
``--examples`` (or from a terminal, without an answer) it finishes a bundled
set of example answers instead, one for each source of steps. Also
``python -m velquorn_next_steps``.

The command lives in a package of its own, not in the server's
``velquorn.tool_handlers``, so that installing it beside the server adds no
module to the server's packages.
"""

from __future__ import annotations

import argparse
import json
import os
import sys
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass, field
from importlib import import_module, resources
from types import ModuleType
from typing import IO, Any, NoReturn

__all__ = ["main"]

PROG = "velquorn-next-steps"

_EPILOG = """\
where the answer comes from:
  ANSWER names a file holding the answer (a JSON object); "-", or no ANSWER,
  reads it from standard input; either way --tool is needed. The bundled
  example answers are finished instead with --examples, or when there is no
  ANSWER, none of --tool, --action, --arguments, --freshness, and standard
  input is a terminal. Standard input that is not a terminal (a pipe, a
  file, /dev/null) is always read as the answer, however slowly it comes.

output:
  The finished answer goes to standard output, as compact JSON (the bytes
  the server sends) or indented with --indent. --explain writes the budget
  figures to standard error, so that standard output stays one JSON answer:
  the answer's size without next_steps, the bytes of its other hint fields,
  the room for the steps (the larger of HINT_SHARE of the answer with its
  steps and HINT_FLOOR_BYTES), and each step that was kept or dropped, and
  why.

exit status:
  0 when the answer was finished, 2 for bad input or bad options (one line
  on standard error), 1 when the reader of standard output went away.

examples:
  velquorn-next-steps --examples --explain
  velquorn-next-steps --tool search --action code --arguments '{"query": "parse"}' answer.json
  cat answer.json | velquorn-next-steps --tool symbol --action detail --indent
"""


class UsageError(Exception):
    """Input or options that cannot be used: reported on one line, exit status 2."""


class _Parser(argparse.ArgumentParser):
    # argparse prints the whole usage before its error; one line is easier to
    # read in a log and to match in a script.
    def error(self, message: str) -> NoReturn:
        self.exit(2, f"{self.prog}: error: {_one_line(message)} (see --help)\n")


def _one_line(text: object) -> str:
    return " ".join(str(text).split())


def _json_kind(value: Any) -> str:
    if value is None:
        return "null"
    if isinstance(value, bool):
        return "a boolean"
    if isinstance(value, (int, float)):
        return "a number"
    if isinstance(value, str):
        return "a string"
    if isinstance(value, list):
        return "an array"
    return "an object"


def _loads(data: str | bytes, source: str) -> Any:
    try:
        return json.loads(data)
    except RecursionError:
        raise UsageError(f"{source} is nested too deeply") from None
    except ValueError as error:  # JSONDecodeError and UnicodeDecodeError both are
        raise UsageError(f"{source} is not JSON: {_one_line(error)}") from None


def _object_or_null(text: str) -> dict[str, Any] | None:
    # argparse puts the option's name in front of these messages.
    try:
        value = json.loads(text)
    except RecursionError:
        raise argparse.ArgumentTypeError("nested too deeply") from None
    except ValueError as error:
        raise argparse.ArgumentTypeError(f"not JSON: {_one_line(error)}") from None
    if value is not None and not isinstance(value, dict):
        raise argparse.ArgumentTypeError(f"must be a JSON object or null, not {_json_kind(value)}")
    return value


def _parser() -> argparse.ArgumentParser:
    parser = _Parser(
        prog=PROG,
        description=(
            "Finish a tool's answer as the server would send it: without null "
            "fields, with the freshness block and the next steps, within the hint budget."
        ),
        epilog=_EPILOG,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument(
        "answer", nargs="?", metavar="ANSWER", help='file holding the answer, or "-" for standard input'
    )
    parser.add_argument("--tool", help="the tool that answered (search, symbol, file, git, ...)")
    parser.add_argument("--action", help="the action it ran, for a tool with actions")
    parser.add_argument(
        "--arguments",
        metavar="JSON",
        type=_object_or_null,
        help="the request's arguments, a JSON object",
    )
    parser.add_argument(
        "--freshness",
        metavar="JSON",
        type=_object_or_null,
        help="the index's freshness block, a JSON object (null or absent while the index is current)",
    )
    parser.add_argument("--indent", action="store_true", help="indent the JSON (2 spaces)")
    parser.add_argument(
        "--explain", action="store_true", help="write the budget figures and the fate of each step to standard error"
    )
    parser.add_argument(
        "--examples", action="store_true", help="finish the bundled example answers (no ANSWER, no --tool)"
    )
    return parser


def _next_steps() -> ModuleType:
    # Imported on first use, so that --help and option errors work even where
    # the extension is not built.
    return import_module("velquorn.tool_handlers.next_steps")


def _write(stream: IO[str], text: str) -> None:
    """Write one line as UTF-8, as the server sends it, whatever the stream's own encoding."""
    buffer = getattr(stream, "buffer", None)
    if buffer is None:
        stream.write(text + "\n")
        return
    stream.flush()
    # A lone surrogate cannot be sent; show it escaped rather than fail here.
    buffer.write((text + "\n").encode("utf-8", "backslashreplace"))
    buffer.flush()


def _dump(value: Any, indent: bool) -> str:
    if indent:
        return json.dumps(value, indent=2, ensure_ascii=False, default=str)
    return json.dumps(value, separators=(",", ":"), ensure_ascii=False, default=str)


def _stdin_is_terminal() -> bool:
    # Whether input is waiting on a pipe depends on how fast its writer is;
    # whether standard input is a terminal does not, so only that decides.
    stream = sys.stdin
    try:
        return stream is not None and stream.isatty()
    except ValueError:  # closed
        return False


def _read_answer(source: str) -> dict[str, Any]:
    if source == "-":
        name = "standard input"
        stream = sys.stdin
        if stream is None:
            raise UsageError("standard input is closed")
        buffer = getattr(stream, "buffer", None)
        data: str | bytes = buffer.read() if buffer is not None else stream.read()
    else:
        name = source
        try:
            with open(source, "rb") as file:
                data = file.read()
        except OSError as error:
            raise UsageError(f"cannot read {source}: {error.strerror or error}") from None
    if not data.strip():
        raise UsageError(f"{name} holds no answer")
    value = _loads(data, name)
    if not isinstance(value, dict):
        raise UsageError(f"the answer in {name} must be a JSON object, not {_json_kind(value)}")
    return value


@dataclass(frozen=True)
class _Request:
    """One answer to finish, with what the server would pass along with it."""

    response: dict[str, Any]
    tool: str
    action: str | None = None
    arguments: dict[str, Any] | None = None
    freshness: dict[str, Any] | None = None

    def finish(self, ns: ModuleType) -> dict[str, Any]:
        try:
            finished: dict[str, Any] = ns.finish_answer(
                self.response, self.tool, action=self.action, arguments=self.arguments, freshness=self.freshness
            )
        except RecursionError:
            raise UsageError("the answer is nested too deeply") from None
        except (KeyError, TypeError, ValueError) as error:
            # What JSON can still get wrong for the module: a lone surrogate
            # (no UTF-8 form), or own next_steps that are not a list of steps.
            raise UsageError(f"cannot finish the answer: {type(error).__name__}: {_one_line(error)}") from None
        return finished


def _step_text(step: Any) -> str:
    if isinstance(step, dict):
        args = json.dumps(step.get("args"), separators=(",", ":"), ensure_ascii=False, default=str)
        return f"{step.get('tool')} {args}  {step.get('reason')}"
    return repr(step)


@dataclass
class _Account:
    """What the module did with the steps of one answer, as it did it."""

    offered: list[tuple[str, Any]] = field(default_factory=list)  # (source, step) in the order offered
    considered: list[Any] = field(default_factory=list)  # the steps handed to the budget
    keep: int = 0  # how many of them the budget keeps whatever their size
    kept: list[Any] = field(default_factory=list)


@contextmanager
def _watching(ns: ModuleType) -> Iterator[_Account]:
    """Watch the step sources and the budget of the module for one call.

    The module calls them through its namespace, so the watchers bound there
    see what it hands them; each gives back what the module's own function
    does, so the answer is the one the module gives unwatched.
    """
    account = _Account()
    own = {name: getattr(ns, name) for name in ("_signals", "_usual", "_within_share")}

    def source(name: str, label: str) -> Any:
        def offered(*args: Any) -> Any:
            steps = own[name](*args)
            account.offered.extend((label, step) for step in steps)
            return steps

        return offered

    def within_share(response: dict[str, Any], steps: list[Any], *, keep: int) -> Any:
        kept = own["_within_share"](response, steps, keep=keep)
        account.considered, account.keep, account.kept = list(steps), keep, list(kept)
        return kept

    watchers = {"_signals": source("_signals", "signal"), "_usual": source("_usual", "usual")}
    watchers["_within_share"] = within_share
    try:
        for name, watcher in watchers.items():
            setattr(ns, name, watcher)
        yield account
    finally:
        for name, function in own.items():
            setattr(ns, name, function)


def _explanation(ns: ModuleType, account: _Account, finished: dict[str, Any]) -> list[str]:
    """The budget figures of a finished answer, and why each step stayed or went.

    The steps are the ones the module's sources offered and its budget was
    handed and kept in the call that finished the answer; the figures show
    how the budget weighed them.
    """
    answer = {key: value for key, value in finished.items() if key != "next_steps"}
    size = ns._encoded_size(answer)
    hints = ns._hint_size(answer)
    share, floor, key_bytes, cap = ns.HINT_SHARE, ns.HINT_FLOOR_BYTES, ns._STEPS_KEY_BYTES, ns.MAX_STEPS

    source_of = {id(step): source for source, step in account.offered}
    fates: list[tuple[str, Any, str]] = []  # (source, step, why it went) in the order considered
    if account.offered:  # assembled, not the tool's own steps
        unique = {id(step) for step in ns._deduplicated([step for _, step in account.offered])}
        considered = {id(step) for step in account.considered}
        for source, step in account.offered:
            if id(step) not in unique:
                fates.append((source, step, "repeats an earlier call"))
            elif id(step) not in considered:
                fates.append((source, step, f"past the cap of {cap} steps"))

    def source(step: Any) -> str:
        return source_of.get(id(step), "own")

    def room_for(steps: list[Any]) -> tuple[int, float]:
        added = ns._encoded_size(steps) + key_bytes
        return added, max(share * (size + added), floor)

    kept, considered = account.kept, account.considered
    for n in range(len(considered), len(kept), -1):
        added, room = room_for(considered[:n])
        why = f"over the hint budget: {hints} + {added} > {room:g} with {n} steps"
        fates.append((source(considered[n - 1]), considered[n - 1], why))

    lines = ["budget (bytes of the compact UTF-8 text):"]
    lines.append(f"  answer  {size:>7}  without next_steps")
    lines.append(f"  hints   {hints:>7}  its other hint fields")
    if kept:
        added, room = room_for(kept)
        lines.append(f"  steps   {added:>7}  next_steps with {len(kept)} step(s), {key_bytes} of them for the key")
        lines.append(f"  room    {room:>7g}  max({share} x ({size} + {added}), {floor})")
        verdict = "fits" if hints + added <= room else f"over, but the first {account.keep} step(s) always stay"
        lines.append(f"  total   {hints + added:>7}  {verdict}")
    else:
        lines.append("  steps         0  no step to take")
    lines.append("steps:")
    for s in kept:
        lines.append(f"  kept     {source(s):<6}  {_step_text(s)}")
    for origin, s, why in fates:
        lines.append(f"  dropped  {origin:<6}  {_step_text(s)}")
        lines.append(f"           {'':<6}  ({why})")
    return lines


def _finished(ns: ModuleType, request: _Request, explain: bool) -> tuple[dict[str, Any], list[str]]:
    """The finished answer, and with ``explain`` the account of its steps."""
    if not explain:
        return request.finish(ns), []
    with _watching(ns) as account:
        finished = request.finish(ns)
    return finished, _explanation(ns, account, finished)


def _bundled(name: str) -> Any:
    # Through importlib.resources, so that the data is found in an installed wheel too.
    text = resources.files("velquorn_next_steps").joinpath("examples", name).read_text("utf-8")
    return json.loads(text)


def _run_examples(ns: ModuleType, indent: bool, explain: bool) -> int:
    from velquorn.models.symbol import Repository
    from velquorn.tool_handlers.freshness import freshness_block

    repository = Repository.from_dict(_bundled("repository.json"))
    for number, example in enumerate(_bundled("examples.json"), 1):
        freshness = freshness_block(**example["freshness"]) if "freshness" in example else None
        request = _Request(example["answer"], example["tool"], example.get("action"), example.get("arguments"), freshness)
        miss = example.get("miss")
        if miss is not None:
            # A handler answers its own miss first; the step it writes is then
            # the tool's own step for finish_answer.
            suggest = ns.suggest_symbols if miss["kind"] == "symbols" else ns.suggest_paths
            suggest(request.response, repository, miss["wanted"], request.action)
        finished, lines = _finished(ns, request, explain)
        # A title may name a constant of the module, as {HINT_FLOOR_BYTES}: it shows the module's value.
        title = example["title"].format_map(vars(ns))
        if number > 1:
            _write(sys.stdout, "")
        _write(sys.stdout, f"# {number}. {title}")
        _write(sys.stdout, _dump(finished, indent))
        if explain:
            _write(sys.stderr, "\n".join([f"# {number}. {title}", *lines, ""]))
    return 0


def _run(options: argparse.Namespace) -> int:
    finishing = options.answer is not None or any(
        value is not None for value in (options.tool, options.action, options.arguments, options.freshness)
    )
    if options.examples and finishing:
        raise UsageError("--examples takes no ANSWER, --tool, --action, --arguments or --freshness")
    if options.examples or (not finishing and _stdin_is_terminal()):
        return _run_examples(_next_steps(), options.indent, options.explain)
    if options.tool is None:
        where = "the answer on standard input" if options.answer in (None, "-") else "an answer"
        raise UsageError(f"--tool is required to finish {where}")
    request = _Request(
        _read_answer(options.answer or "-"), options.tool, options.action, options.arguments, options.freshness
    )
    finished, lines = _finished(_next_steps(), request, options.explain)
    _write(sys.stdout, _dump(finished, options.indent))
    if options.explain:
        _write(sys.stderr, "\n".join(lines))
    return 0


def main(argv: list[str] | None = None) -> int:
    """Run the command with ``argv`` (default: ``sys.argv[1:]``); return the exit status."""
    try:
        options = _parser().parse_args(argv)
    except SystemExit as stop:  # --help, or an option error already reported
        return stop.code if isinstance(stop.code, int) else 0 if stop.code is None else 2
    try:
        return _run(options)
    except UsageError as error:
        print(f"{PROG}: error: {error}", file=sys.stderr)
        return 2
    except BrokenPipeError:
        # The reader went away (`| head`): not an error of ours. Point stdout
        # at nothing so that the flush at exit does not complain again.
        devnull = os.open(os.devnull, os.O_WRONLY)
        os.dup2(devnull, sys.stdout.fileno())
        return 1

