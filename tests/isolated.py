"""Isolated interpreters for the tests, and the work they are given.

From 3.14 on, `concurrent.interpreters` makes them; 3.12 and 3.13 have low-level
modules of other names and ways, which `create`, `run` and `destroy` hide.
Each interpreter (the main one too) imports this file anew, and finishes the
same answers with its own bindings or with those it rebound."""

import json
import sys
import time
from pathlib import Path

try:
    from concurrent import interpreters as _public  # 3.14
except ImportError:
    _public = None
    try:
        import _interpreters as _low  # 3.13
    except ImportError:
        import _xxsubinterpreters as _low  # 3.12

BENCH = Path(__file__).resolve().parents[1] / "bench"
if str(BENCH) not in sys.path:
    sys.path.append(str(BENCH))

from corpus import KINDS, answer  # noqa: E402


def create():
    """A new interpreter with its own GIL, modules and memory; it can import what this one can."""
    if _public:
        interpreter = _public.create()
    else:
        interpreter = _low.create("isolated") if hasattr(_low, "new_config") else _low.create(isolated=True)
    run(interpreter, f"import sys; sys.path[:] = {json.dumps(sys.path)}")
    return interpreter


def run(interpreter, code):
    """Runs code in the interpreter's __main__; a failure there is raised here, as a RuntimeError."""
    if _public:
        try:
            interpreter.exec(code)
        except _public.ExecutionFailed as e:
            raise RuntimeError(e.excinfo.errdisplay) from None
    elif hasattr(_low, "exec"):
        failure = _low.exec(interpreter, code)
        if failure is not None:
            raise RuntimeError(failure.errdisplay)
    else:
        try:
            _low.run_string(interpreter, code)
        except _low.RunFailedError as e:
            raise RuntimeError(str(e)) from None


def destroy(interpreter):
    if _public:
        interpreter.close()
    else:
        _low.destroy(interpreter)

# Small answers (the steps fit the floor) and answers of 8 KB, which the
# module measures whole.
ANSWERS = [(answer(kind, size), kind) for kind in KINDS for size in (300, 2_000, 8_000)]


def finished(ns):
    """Every answer finished, as the JSON text it is sent as."""
    return [json.dumps(ns.finish_answer(a, k.tool, action=k.action, arguments=k.arguments), ensure_ascii=False)
            for a, k in ANSWERS]


def rebinding(k):
    """What interpreter k binds on the module: a freshness collaborator that
    names it; from 1 a code-symbol test that finds no code (the steps that
    take a code hit go), from 2 a budget that keeps only the steps it must."""
    def add_freshness(answer, block):
        answer["freshness"] = {"interpreter": k}

    names = {"add_freshness": add_freshness}
    if k >= 1:
        names["is_code_symbol"] = lambda kind, file: False
    if k >= 2:
        names["_within_share"] = lambda response, steps, *, keep: steps[:keep]
    return names


def alternate(ns, k, rounds):
    """Finishes the answers `rounds` times, with interpreter k's rebinding in
    every other round; says when it began and ended, and the distinct results
    with the module's own names and with the rebound ones, as JSON."""
    own = {name: getattr(ns, name) for name in rebinding(k)}
    seen = {"own": set(), "rebound": set()}
    began = time.monotonic()
    for r in range(rounds):
        names = rebinding(k) if r % 2 else own
        for name, value in names.items():
            setattr(ns, name, value)
        seen["rebound" if r % 2 else "own"].add(tuple(finished(ns)))
    ended = time.monotonic()
    for name, value in own.items():
        setattr(ns, name, value)
    return json.dumps({"began": began, "ended": ended, **{state: sorted(results) for state, results in seen.items()}})
