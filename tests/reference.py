"""The budget and de-duplication recomputed from json.dumps alone: the text
the host sends is the arbiter of every size the module computes."""

import json

HINT_KEYS = {"tip", "tips", "hint", "hints", "note", "notes", "next_steps"}


def compact_size(value):
    return len(json.dumps(value, separators=(",", ":"), ensure_ascii=False, default=str).encode())


def hint_size(value):
    if isinstance(value, dict):
        return sum(compact_size(v) if k in HINT_KEYS else hint_size(v) for k, v in value.items())
    if isinstance(value, list):
        return sum(hint_size(item) for item in value)
    return 0


def within_share(answer, steps, keep):
    answer_size, hints = compact_size(answer), hint_size(answer)
    while len(steps) > keep:
        added = compact_size(steps) + 14
        if hints + added <= max(0.15 * (answer_size + added), 320):
            break
        steps = steps[:-1]
    return steps


def dedupe(steps):
    seen, kept = set(), []
    for one in steps:
        key = json.dumps([one["tool"], one["args"]], sort_keys=True, default=str)
        if key not in seen:
            seen.add(key)
            kept.append(one)
    return kept
