// Which logic each of the module's own functions runs.  A model that finds
// the module's own function still bound to a name calls `run` directly.
#pragma once

#include <cstdint>
#include <type_traits>

#include "next_steps/assembly.hpp"
#include "next_steps/budget.hpp"
#include "next_steps/did_you_mean.hpp"
#include "next_steps/encoding.hpp"
#include "next_steps/finishing.hpp"
#include "next_steps/signals.hpp"
#include "next_steps/tests_scope.hpp"
#include "next_steps/usual.hpp"
#include "next_steps/values.hpp"

namespace next_steps {

#define NEXT_STEPS_IMPL(F, fn)                                       \
  template <>                                                        \
  struct FnImpl<Fn::F> {                                             \
    template <class M, class... A>                                   \
    static auto run(M& m, const A&... a) { return fn(m, a...); }     \
  };
NEXT_STEPS_IMPL(without_null_fields, without_null_fields)
NEXT_STEPS_IMPL(add_next_steps, add_next_steps)
NEXT_STEPS_IMPL(signals, signals)
NEXT_STEPS_IMPL(usual, usual)
NEXT_STEPS_IMPL(hit_count, hit_count)
NEXT_STEPS_IMPL(taken, taken)
NEXT_STEPS_IMPL(tests_scope, tests_scope)
NEXT_STEPS_IMPL(answer_files, answer_files)
NEXT_STEPS_IMPL(is_code_hit, is_code_hit)
NEXT_STEPS_IMPL(deduplicated, deduplicated)
NEXT_STEPS_IMPL(within_share, within_share)
NEXT_STEPS_IMPL(hint_size, hint_size)
NEXT_STEPS_IMPL(encoded_size, encoded_size)
#undef NEXT_STEPS_IMPL

// The result kind of a function called through the namespace: sizes are
// machine integers, everything else a value.
template <Fn F>
inline constexpr bool returns_size = F == Fn::encoded_size || F == Fn::hint_size;

template <Fn F, class Value>
using CallResult = std::conditional_t<returns_size<F>, std::int64_t, Value>;

}  // namespace next_steps
