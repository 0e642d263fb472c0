"""Nearest indexed names for a symbol or path the index does not hold (stand-in).

This is a small stand-in that the tool server's own name-lookup worker
replaces. It keeps that worker's contract with ``next_steps``:

* ``nearest_symbols(repository, wanted)``: the nearest symbols of the index to
  a name or fqn, best first, as a list of symbol records (empty when nothing
  is near);
* ``nearest_paths(repository, wanted)``: the nearest indexed paths, best
  first, as a new list of strings (empty when nothing is near);
* ``guessed_name(wanted)``: the short name to search the symbol names for
  when nothing is near, or "" when the text holds none.

Nearness is :class:`difflib.SequenceMatcher`'s ratio, without regard to case,
with a cutoff below which a candidate is not offered at all: a did-you-mean
that names something unrelated costs the agent a wasted call.
"""

from __future__ import annotations

import re
from collections.abc import Iterable
from difflib import SequenceMatcher
from typing import TypeVar

from velquorn.models.symbol import Repository, Symbol

__all__ = ["CUTOFF", "LIMIT", "guessed_name", "nearest_paths", "nearest_symbols"]

#: The least similarity (0 to 1) of a candidate that is offered.
CUTOFF = 0.7

#: The most candidates offered for one miss.
LIMIT = 5

# Separators of the parts of a qualified name: Python and Java dots, C++ and
# Rust "::", Ruby's "#" for instance methods, "file.py:func" locations.
_NAME_SEPARATORS = re.compile(r"[.:#]+")

_T = TypeVar("_T")


def guessed_name(wanted: str) -> str:
    """The last part of a dotted or colon-separated name, or "" when it has none.

    ``"pkg.Foo.bar"`` and ``"pkg::Foo::bar()"`` give ``"bar"``; a name of one
    part gives itself.
    """
    if not isinstance(wanted, str):
        return ""
    parts = [p for p in _NAME_SEPARATORS.split(wanted.strip()) if p]
    if not parts:
        return ""
    return parts[-1].removesuffix("()").strip()


def _ranked(
    wanted: str,
    wanted_short: str,
    candidates: Iterable[tuple[_T, str, str]],
    cutoff: float,
    limit: int,
) -> list[_T]:
    """The items nearest to ``wanted`` (short form ``wanted_short``), best first.

    Each candidate is ``(item, short, whole)``: a symbol's name and fqn, or a
    path's file name and the path. The short forms decide whether a candidate
    is near at all: whole names share long prefixes ("app.", "src/app/")
    that make unrelated names look alike. The whole forms then order
    candidates with equally near short forms, and ties keep the index's order.
    """
    short = SequenceMatcher(autojunk=False)
    short.set_seq2(wanted_short.lower())  # the matcher caches what it learns of seq2
    whole = SequenceMatcher(autojunk=False)
    whole.set_seq2(wanted.lower())
    scored: list[tuple[float, float, int, _T]] = []
    for index, (item, short_key, whole_key) in enumerate(candidates):
        short.set_seq1(short_key.lower())
        # The cheap upper bounds first, as difflib.get_close_matches does: most
        # of an index is nowhere near.
        if short.real_quick_ratio() < cutoff or short.quick_ratio() < cutoff:
            continue
        nearness = short.ratio()
        if nearness < cutoff:
            continue
        whole.set_seq1(whole_key.lower())
        scored.append((-nearness, -whole.ratio(), index, item))
    scored.sort(key=lambda entry: entry[:3])
    return [entry[3] for entry in scored[:limit]]


def nearest_symbols(
    repository: Repository, wanted: str, *, cutoff: float = CUTOFF, limit: int = LIMIT
) -> list[Symbol]:
    """The symbols nearest to a name or fqn, best first.

    The last part of ``wanted`` must be near a symbol's name, so both
    "parse_tokn" and "lexer.parse_tokn" find ``app.lexer.parse_token``; the
    whole of ``wanted`` against the fqn orders symbols with equally near names.
    """
    name = guessed_name(wanted) or wanted
    return _ranked(wanted, name, ((s, s.name, s.fqn) for s in repository.symbols), cutoff, limit)


def nearest_paths(
    repository: Repository, wanted: str, *, cutoff: float = CUTOFF, limit: int = LIMIT
) -> list[str]:
    """The indexed paths nearest to a path, best first.

    The file name must be near, wherever the file lives (the agent may not
    know its directory); the whole path orders files with equally near names,
    so a file in the wanted directory comes before a namesake elsewhere.
    """
    candidates = ((p, _file_name(p), p) for p in repository.paths)
    return _ranked(wanted, _file_name(wanted), candidates, cutoff, limit)


def _file_name(path: str) -> str:
    return path.rstrip("/").rsplit("/", 1)[-1]
