// The answer's size not measured before the budget needs it: steps that fit
// within the floor fit whatever the answer's size, so until the loop finds
// them past it, the answer is only walked for its hint bytes and for what
// fails to encode, which fails there as it would in encoded_size.
#pragma once

#include <cstdint>
#include <optional>

#include "next_steps/encoding.hpp"
#include "next_steps/fast/check_walk.hpp"
#include "next_steps/model.hpp"

namespace next_steps {

// Whether the size may wait: only while nothing can change the answer
// before it is asked for.  Both size functions are the module's own, and
// the caller knows that no host code runs between (the budget's loop for
// this step list).
template <class M>
bool may_take_deferred_size(M& m, bool nothing_runs_between) {
  return m.shortcut(Shortcut::deferred_size) && nothing_runs_between && m.template holds_own<Fn::encoded_size>() &&
         m.template holds_own<Fn::hint_size>();
}

template <class Sink, class M>
std::optional<std::int64_t> hint_bytes_by(M& m, const typename M::Value& response) {
  Sink sink;
  try {
    count_compact(m, response, sink);
  } catch (const WouldRunHostCode&) {
    return std::nullopt;
  }
  return static_cast<std::int64_t>(sink.hint_bytes);
}

// The hint bytes from a walk that only checks the rest of the answer for
// what fails to encode (passing over what cannot with the check_walk
// shortcut); none where the walk would run host code, since it stops there.
template <class M>
std::optional<std::int64_t> hint_bytes_alone(M& m, const typename M::Value& response) {
  if (m.shortcut(Shortcut::check_walk)) return hint_bytes_by<SafeValuesSkipped<HintCheckSink>>(m, response);
  return hint_bytes_by<HintCheckSink>(m, response);
}

}  // namespace next_steps
