"""The module in isolated interpreters, each with a GIL of its own: they finish
answers at once, each with its own bindings, and leave nothing when they go."""

import json
import os
import subprocess
import sys
import textwrap
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import isolated
from velquorn.tool_handlers import freshness

ROUNDS = 200


def test_interpreters_finish_answers_at_once_each_with_its_own_bindings(ns, monkeypatch, tmp_path):
    expected = {"own": isolated.finished(ns)}
    for k in range(4):
        for name, value in isolated.rebinding(k).items():
            monkeypatch.setattr(ns, name, value)
        expected[k] = isolated.finished(ns)
        monkeypatch.undo()
    assert len({tuple(results) for results in expected.values()}) == len(expected)  # every rebinding shows

    interpreters = [isolated.create() for _ in range(4)]
    try:
        # Imported from this thread: on 3.12, an interpreter whose threading
        # module was imported from another thread hangs when destroyed.
        for interpreter in interpreters:
            isolated.run(interpreter, "import isolated; from velquorn.tool_handlers import next_steps as ns")
        with ThreadPoolExecutor(len(interpreters)) as pool:
            work = [pool.submit(isolated.run, i, f"open({str(tmp_path / f'{k}.json')!r}, 'w')"
                                f".write(isolated.alternate(ns, {k}, {ROUNDS}))") for k, i in enumerate(interpreters)]
            # The main interpreter finishes them too, meanwhile, with its own names.
            main_results = {tuple(isolated.finished(ns)) for _ in range(ROUNDS // 2)}
        for done in work:
            done.result()  # raises what failed in the interpreter
    finally:
        for interpreter in interpreters:
            isolated.destroy(interpreter)

    reports = [json.loads((tmp_path / f"{k}.json").read_text()) for k in range(4)]
    assert max(r["began"] for r in reports) < min(r["ended"] for r in reports)  # all four ran at once
    for k, report in enumerate(reports):
        assert report["own"] == [expected["own"]] and report["rebound"] == [expected[k]], k
    assert main_results == {tuple(expected["own"])}
    assert ns.add_freshness is freshness.add_freshness


def test_interpreters_made_and_destroyed_in_turn_leave_nothing_behind():
    """The host keeps some memory of every interpreter it destroys (the texts
    it interned), so what the module leaves is the heap's growth per
    interpreter beyond that of one that imports only what the module imports,
    every object in a malloc block (PYTHONMALLOC=malloc) of the C library's
    or the sanitizer's count."""
    code = textwrap.dedent(
        f"""
        import ctypes, sys
        sys.path.insert(0, {str(Path(__file__).parent)!r})
        import isolated

        libc = ctypes.CDLL(None)
        if hasattr(libc, "__sanitizer_get_current_allocated_bytes"):
            heap = libc.__sanitizer_get_current_allocated_bytes
            heap.restype = ctypes.c_size_t
        else:
            class MallInfo2(ctypes.Structure):
                _fields_ = [(name, ctypes.c_size_t) for name in
                            "arena ordblks smblks hblks hblkhd usmblks fsmblks uordblks fordblks keepcost".split()]
            libc.mallinfo2.restype = MallInfo2

            def heap():
                info = libc.mallinfo2()
                return info.uordblks + info.hblkhd

        def cycle(code):
            interpreter = isolated.create()
            try:
                isolated.run(interpreter, code)
            finally:
                isolated.destroy(interpreter)

        def growth(code, times):
            for _ in range(5):
                cycle(code)
            before = heap()
            for _ in range(times):
                cycle(code)
            return (heap() - before) / times

        siblings = "velquorn.models.symbol, velquorn.tool_handlers.freshness, velquorn.workers.name_lookup"
        bare = growth(f"import isolated, logging, dataclasses, typing, {{siblings}}", 20)
        used = growth("import isolated; from velquorn.tool_handlers import next_steps as ns; isolated.finished(ns)", 50)
        print(round(bare), round(used - bare))
        """
    )
    env = dict(os.environ, PYTHONMALLOC="malloc")
    result = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=1200, env=env)
    assert result.returncode == 0, result.stderr
    bare, left = map(int, result.stdout.split())
    # The module interns about fifty texts that the host keeps (some 4 KB);
    # its state alone is 8 KB, and with the objects it holds much more.
    assert left < 8 * 1024, (bare, left)
