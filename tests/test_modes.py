"""The switch that turns the shortcuts off, read when a module object is made."""

import pytest
from modes import COUNTING, SHORTCUTS, fresh_module


@pytest.mark.parametrize(
    "shortcuts, counting",
    [(None, None), ("on", "plain"), ("off", None), ("quiet_fields,made_step_sizes", "sse2"), ("", "")],
)
def test_a_module_object_is_made_with_any_setting(shortcuts, counting):
    module = fresh_module(shortcuts, counting)
    answer = {"query": "q", "total_count": 0, "results": [], "note": None}
    assert module.finish_answer(answer, "search", action="code")["next_steps"][0]["reason"] == "No hits: search by meaning"


@pytest.mark.parametrize(
    "shortcuts, counting, variable, values",
    [
        ("none", None, SHORTCUTS, "'on', 'off' or a comma-separated list of shortcuts to turn off (simd_counts, "),
        ("off,quiet_fields", None, SHORTCUTS, "'on', 'off' or a comma-separated list"),
        (None, "avx512", COUNTING, "'plain', 'sse2' or 'avx2', not 'avx512'"),
    ],
)
def test_any_other_value_fails_the_import_naming_the_variable_and_its_values(shortcuts, counting, variable, values):
    with pytest.raises(ValueError) as failed:
        fresh_module(shortcuts, counting)
    assert str(failed.value).startswith(f"{variable} must be {values}")
