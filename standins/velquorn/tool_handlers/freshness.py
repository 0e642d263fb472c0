"""Freshness of the index an answer came from (stand-in).

This is a small stand-in that the tool server's own ``freshness`` module
replaces. It keeps that module's contract with ``next_steps``:

* ``freshness_block(...)`` makes the block that says when the index the answer
  came from, or a wiki page it reads, is not current; it is ``None`` while the
  index is current.
* ``add_freshness(answer, freshness)`` puts a block into the answer in place,
  under the one field ``"freshness"``, and leaves the answer alone for
  ``None``. Its result is ``None``; callers do not use it.

The block is put into answers after their null fields were removed, so
``freshness_block`` never writes a ``None`` field itself.
"""

from __future__ import annotations

from collections.abc import Iterable
from typing import Any

__all__ = ["FRESHNESS_KEY", "MAX_LISTED", "add_freshness", "freshness_block"]

#: The answer field that holds the block.
FRESHNESS_KEY = "freshness"

#: The most stale paths a block names; the counts say how many there are in all.
#: Every answer carries the block, so a long list would cost every answer.
MAX_LISTED = 5


def _listed(paths: Iterable[str]) -> list[str]:
    # Keep the first place of each path, so that a repeated report of one
    # change does not push other paths out of the short list.
    return list(dict.fromkeys(paths))


def freshness_block(
    *,
    indexed_at: str | None = None,
    stale_files: Iterable[str] = (),
    wiki_stale: Iterable[str] = (),
) -> dict[str, Any] | None:
    """The freshness block of an answer, or None while the index is current.

    ``indexed_at`` is when the index was last built (text, as the indexer
    writes it); ``stale_files`` are source files changed since then and
    ``wiki_stale`` the wiki pages written before their files last changed.
    The index counts as current when neither names a path; ``indexed_at``
    alone says nothing worth sending.
    """
    files = _listed(stale_files)
    pages = _listed(wiki_stale)
    if not files and not pages:
        return None
    block: dict[str, Any] = {"current": False}
    if indexed_at is not None:
        block["indexed_at"] = indexed_at
    if files:
        block["stale_files"] = files[:MAX_LISTED]
        block["stale_file_count"] = len(files)
    if pages:
        block["wiki_stale"] = pages[:MAX_LISTED]
        block["wiki_stale_count"] = len(pages)
    return block


def add_freshness(answer: dict[str, Any], freshness: dict[str, Any] | None) -> None:
    """Put the freshness block into the answer in place; None leaves it alone.

    The block is stored as given (not copied): the answer is the caller's
    private copy, and the block is made for it.
    """
    if freshness is not None:
        answer[FRESHNESS_KEY] = freshness
