"""Symbols of the index and the index itself (stand-in).

This is a small stand-in that the tool server's own symbol model replaces. It
keeps that model's contract with ``next_steps`` and the name lookups:

* ``is_code_symbol(kind, file)`` says whether a hit of that kind, in that
  file, is a symbol of source code; either argument may be ``None``.
* ``Symbol`` is a symbol record with a text ``fqn`` and ``to_dict()``, which
  gives the record as a plain dict.
* ``Repository`` is the index that the name lookups search: its symbols and
  its file paths. ``Repository.from_dict`` reads the JSON form used by the
  bundled examples.
"""

from __future__ import annotations

from collections.abc import Mapping
from dataclasses import dataclass
from functools import lru_cache
from pathlib import PurePosixPath
from typing import Any

__all__ = ["CODE_KINDS", "SOURCE_SUFFIXES", "Repository", "Symbol", "is_code_symbol"]

#: Kinds of symbol that code defines. Headings, wiki pages, config keys and
#: the like are indexed too, but a call such as ``symbol callers`` means
#: nothing for them.
CODE_KINDS = frozenset(
    {
        "class",
        "constant",
        "constructor",
        "enum",
        "function",
        "interface",
        "method",
        "property",
        "struct",
        "trait",
        "type",
        "variable",
    }
)

#: File suffixes of source code. A "class" found in a Markdown file is an
#: example in the docs, not a symbol of the code.
SOURCE_SUFFIXES = frozenset(
    {
        ".c", ".cc", ".cpp", ".cs", ".cxx", ".go", ".h", ".hh", ".hpp",
        ".java", ".js", ".jsx", ".kt", ".m", ".mm", ".php", ".py", ".pyi",
        ".rb", ".rs", ".scala", ".swift", ".ts", ".tsx",
    }
)


def is_code_symbol(kind: str | None, file: str | None) -> bool:
    """Whether a hit of this kind, in this file, is a symbol of source code.

    Kinds and suffixes are compared without regard to case. An unknown kind
    is not a code symbol. An unknown file does not count against a code kind:
    hits of some tools carry no file, and their kind alone is good evidence.
    """
    if not isinstance(kind, str) or kind.lower() not in CODE_KINDS:
        return False
    if file is None:
        return True
    if type(file) is str:
        return _suffix(file) in SOURCE_SUFFIXES
    return PurePosixPath(file).suffix.lower() in SOURCE_SUFFIXES


# Every answer asks about the file of its best hit, and the same files come
# back answer after answer; a path object costs more than the rest of
# finishing a small answer.
@lru_cache(maxsize=4096)
def _suffix(file: str) -> str:
    return PurePosixPath(file).suffix.lower()


@dataclass(frozen=True, slots=True)
class Symbol:
    """One indexed symbol: its fully qualified name, short name, kind and place."""

    fqn: str
    name: str
    kind: str
    file: str | None = None
    line: int | None = None

    def to_dict(self) -> dict[str, Any]:
        """The record as a new plain dict, in field order (None fields included)."""
        return {
            "fqn": self.fqn,
            "name": self.name,
            "kind": self.kind,
            "file": self.file,
            "line": self.line,
        }

    @classmethod
    def from_dict(cls, data: Mapping[str, Any]) -> Symbol:
        """A record from a dict as ``to_dict`` makes it; ``name`` defaults to the fqn's last part."""
        fqn = data["fqn"]
        name = data.get("name") or fqn.rsplit(".", 1)[-1]
        return cls(fqn, name, data.get("kind", ""), data.get("file"), data.get("line"))


@dataclass(frozen=True, slots=True)
class Repository:
    """An index: its symbols and the paths of its files, in index order."""

    symbols: tuple[Symbol, ...] = ()
    paths: tuple[str, ...] = ()

    @classmethod
    def from_dict(cls, data: Mapping[str, Any]) -> Repository:
        """The index from ``{"symbols": [...], "paths": [...]}``.

        Without ``paths``, the files of the symbols stand for them, each once,
        in the order first met.
        """
        symbols = tuple(Symbol.from_dict(item) for item in data.get("symbols", ()))
        if "paths" in data:
            paths = tuple(data["paths"])
        else:
            paths = tuple(dict.fromkeys(s.file for s in symbols if s.file is not None))
        return cls(symbols, paths)
