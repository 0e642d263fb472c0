"""The budget and de-duplication recomputed from json.dumps alone: the text
the host sends is the arbiter of every size the module computes.  The
limits and the hint fields are the module's own facts, read from it."""

import json

from velquorn.tool_handlers.next_steps import _HIT_LISTS, HINT_FLOOR_BYTES, HINT_KEYS, HINT_SHARE, MAX_STEPS

STEPS_KEY_BYTES = len(',"next_steps":')  # what the steps add to the answer besides their list


def plain_copy(value):
    """The value without its None fields, tuples made lists."""
    if isinstance(value, dict):
        return {key: plain_copy(item) for key, item in value.items() if item is not None}
    if isinstance(value, (list, tuple)):
        return [plain_copy(item) for item in value]
    return value


def compact_size(value):
    return len(json.dumps(value, separators=(",", ":"), ensure_ascii=False, default=str).encode())


def hint_size(value):
    if isinstance(value, dict):
        return sum(compact_size(v) if k in HINT_KEYS else hint_size(v) for k, v in value.items())
    if isinstance(value, list):
        return sum(hint_size(item) for item in value)
    return 0


def fits(answer_size, hints, added, share=HINT_SHARE, floor=HINT_FLOOR_BYTES):
    """Whether hints and steps of `added` bytes fit an answer of `answer_size` bytes."""
    return hints + added <= max(share * (answer_size + added), floor)


def within_share(answer, steps, keep):
    answer_size, hints = compact_size(answer), hint_size(answer)
    while len(steps) > keep and not fits(answer_size, hints, compact_size(steps) + STEPS_KEY_BYTES):
        steps = steps[:-1]
    return steps


def assembled(signals, usual):
    """The steps handed to the budget, and how many of them it keeps whatever their size."""
    return dedupe(signals + usual)[:MAX_STEPS], max(1, min(len(signals), MAX_STEPS))


def dedupe(steps):
    seen, kept = set(), []
    for one in steps:
        key = json.dumps([one["tool"], one["args"]], sort_keys=True, default=str)
        if key not in seen:
            seen.add(key)
            kept.append(one)
    return kept


def hit_count(response):
    for field in ("total_count", "total"):
        if isinstance(count := response.get(field), int):
            return int(count)
    for field in _HIT_LISTS:
        if isinstance(hits := response.get(field), list):
            return len(hits)
    return None
