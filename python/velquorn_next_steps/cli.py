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
from dataclasses import dataclass
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


def _explanation(ns: ModuleType, request: _Request, finished: dict[str, Any]) -> list[str]:
    """The budget figures of a finished answer, and why each step stayed or went.

    Step assembly is run again step by step on a copy in the state that
    ``finish_answer`` hands it (no nulls, the freshness block, no own steps),
    without the budget, so that every step that was considered can be shown.
    """
    answer = {key: value for key, value in finished.items() if key != "next_steps"}
    kept = finished.get("next_steps", [])
    size = ns._encoded_size(answer)
    hints = ns._hint_size(answer)
    share, floor, key_bytes, cap = ns.HINT_SHARE, ns.HINT_FLOOR_BYTES, ns._STEPS_KEY_BYTES, ns.MAX_STEPS

    tool, action, arguments = request.tool, request.action, request.arguments
    copy = ns.without_null_fields(request.response)
    ns.add_freshness(copy, request.freshness)
    own = copy.pop("next_steps", None)
    fates: list[tuple[str, Any, str]] = []  # (source, step, why it went) in the order considered
    if own:
        candidates = [("own", s) for s in own]
        keep = 1
    else:
        given = arguments if arguments is not None else {}
        signals = list(ns._signals(copy, tool, action, given))
        usual = list(ns._usual(copy, tool, action, given))
        keep = max(1, min(len(signals), cap))
        offered = [("signal", s) for s in signals] + [("usual", s) for s in usual]
        unique = list(ns._deduplicated([s for _, s in offered]))
        candidates = []
        for source, s in offered:
            # _deduplicated hands back the first occurrence of each call itself.
            if len(candidates) < len(unique) and unique[len(candidates)] is s:
                candidates.append((source, s))
            else:
                fates.append((source, s, "repeats an earlier call"))
        for source, s in candidates[cap:]:
            fates.append((source, s, f"past the cap of {cap} steps"))
        candidates = candidates[:cap]

    def room_for(steps: list[Any]) -> tuple[int, float]:
        added = ns._encoded_size(steps) + key_bytes
        return added, max(share * (size + added), floor)

    trimmed = candidates
    while len(trimmed) > keep:
        added, room = room_for([s for _, s in trimmed])
        if hints + added <= room:
            break
        source, s = trimmed[-1]
        fates.append(
            (source, s, f"over the hint budget: {hints} + {added} > {room:g} with {len(trimmed)} steps")
        )
        trimmed = trimmed[:-1]

    lines = ["budget (bytes of the compact UTF-8 text):"]
    lines.append(f"  answer  {size:>7}  without next_steps")
    lines.append(f"  hints   {hints:>7}  its other hint fields")
    if kept:
        added, room = room_for(kept)
        lines.append(f"  steps   {added:>7}  next_steps with {len(kept)} step(s), {key_bytes} of them for the key")
        lines.append(f"  room    {room:>7g}  max({share} x ({size} + {added}), {floor})")
        verdict = "fits" if hints + added <= room else f"over, but the first {keep} step(s) always stay"
        lines.append(f"  total   {hints + added:>7}  {verdict}")
    else:
        lines.append("  steps         0  no step to take")
    lines.append("steps:")
    for source, s in trimmed:
        lines.append(f"  kept     {source:<6}  {_step_text(s)}")
    for source, s, why in fates:
        lines.append(f"  dropped  {source:<6}  {_step_text(s)}")
        lines.append(f"           {'':<6}  ({why})")
    if [s for _, s in trimmed] != list(kept):
        lines.append("note: the module kept other steps than this account expects:")
        lines.extend(f"  kept     {'':<6}  {_step_text(s)}" for s in kept)
    return lines


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
        finished = request.finish(ns)
        # A title may name a constant of the module, as {HINT_FLOOR_BYTES}: it shows the module's value.
        title = example["title"].format_map(vars(ns))
        if number > 1:
            _write(sys.stdout, "")
        _write(sys.stdout, f"# {number}. {title}")
        _write(sys.stdout, _dump(finished, indent))
        if explain:
            lines = _explanation(ns, request, finished)
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
    ns = _next_steps()
    finished = request.finish(ns)
    _write(sys.stdout, _dump(finished, options.indent))
    if options.explain:
        _write(sys.stderr, "\n".join(_explanation(ns, request, finished)))
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

