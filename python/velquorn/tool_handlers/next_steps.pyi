"""Follow-up hints for every tool answer, and the last step of every answer.

Types of the ``next_steps`` extension module.
"""

import logging
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from typing import Any, Final, Literal, TypeAlias

from velquorn.models.symbol import Repository
from velquorn.models.symbol import is_code_symbol as is_code_symbol
from velquorn.tool_handlers.freshness import add_freshness as add_freshness
from velquorn.tool_handlers.freshness import freshness_block as freshness_block
from velquorn.workers.name_lookup import guessed_name as guessed_name
from velquorn.workers.name_lookup import nearest_paths as nearest_paths
from velquorn.workers.name_lookup import nearest_symbols as nearest_symbols

TYPE_CHECKING: Final = False

logger: logging.Logger

# The limits are the module's to change: their values are read from it, not
# stated here.
HINT_SHARE: Final[float]
HINT_FLOOR_BYTES: Final[int]
HINT_KEYS: Final[frozenset[str]]
_STEPS_KEY_BYTES: Final[int]
MAX_STEPS: Final[int]
FAN_IN_FOR_IMPACT: Final[int]
MAX_STEP_FILES: Final[int]

Takes: TypeAlias = Literal["fqn", "path", "query", "component", "changed_files"]

@dataclass(frozen=True)
class Hint:
    """A usual follow-up of a tool's answer."""

    tool: str
    reason: str
    action: str | None = None
    takes: Takes | None = None

_DETAIL: Final[Hint]
_CALLERS: Final[Hint]
_REFERENCES: Final[Hint]
_FILE_SYMBOLS: Final[Hint]
_CHANGED_TESTS: Final[Hint]

NEXT_STEPS: dict[str, tuple[Hint, ...]]
_HIT_LISTS: Final[tuple[str, ...]]

def step(tool: str, reason: str, **args: Any) -> dict[str, Any]:
    """One next step: the tool to call, the arguments to call it with, and why."""

def finish_answer(
    response: dict[str, Any],
    tool_name: str,
    *,
    action: str | None = None,
    arguments: Mapping[str, Any] | None = None,
    freshness: dict[str, Any] | None = None,
) -> dict[str, Any]:
    """The answer as every tool sends it (see the module's docstring)."""

def without_null_fields(value: Any) -> Any:
    """A copy of a JSON-like value without the dict fields that are None, at any depth."""

def _add_next_steps(
    response: dict[str, Any],
    tool_name: str,
    *,
    action: str | None = None,
    arguments: Mapping[str, Any] | None = None,
) -> dict[str, Any]: ...
def _signals(
    response: dict[str, Any], tool: str, action: str | None, arguments: Mapping[str, Any]
) -> list[dict[str, Any]]: ...
def _search_by_meaning(known: Mapping[str, Any]) -> dict[str, Any] | None: ...
def _ask_explore(known: Mapping[str, Any]) -> dict[str, Any] | None: ...
def _blast_radius(known: Mapping[str, Any]) -> dict[str, Any] | None: ...
def _untested(known: Mapping[str, Any]) -> dict[str, Any] | None: ...

_SIGNALS: dict[str, Callable[[Mapping[str, Any]], dict[str, Any] | None]]

def _usual(
    response: dict[str, Any], tool: str, action: str | None, arguments: Mapping[str, Any]
) -> list[dict[str, Any]]: ...
def _hit_count(response: Mapping[str, Any]) -> int | None: ...
def _taken(response: Mapping[str, Any], takes: Takes, arguments: Mapping[str, Any]) -> Any: ...
def _tests_scope(response: Mapping[str, Any], arguments: Mapping[str, Any]) -> dict[str, Any]: ...
def _answer_files(response: Mapping[str, Any], arguments: Mapping[str, Any]) -> list[str]: ...
def _is_code_hit(item: Mapping[str, Any]) -> bool: ...
def _deduplicated(steps: list[dict[str, Any]]) -> list[dict[str, Any]]: ...
def _within_share(
    response: dict[str, Any], steps: list[dict[str, Any]], *, keep: int
) -> list[dict[str, Any]]: ...
def _hint_size(value: Any) -> int: ...
def _encoded_size(value: Any) -> int: ...
def suggest_symbols(
    response: dict[str, Any], repository: Repository, wanted: str, action: str
) -> dict[str, Any]:
    """Answer a name or fqn the index does not hold with the nearest symbols that it does."""

def suggest_paths(
    response: dict[str, Any], repository: Repository, wanted: str, action: str
) -> dict[str, Any]:
    """Answer a path the index does not hold with the nearest indexed paths."""
