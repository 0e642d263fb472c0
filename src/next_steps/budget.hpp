// The hint budget: hint fields take at most a share of the answer, so steps
// are dropped from the end until they fit.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

#include "next_steps/encoding.hpp"
#include "next_steps/fast/deferred_size.hpp"
#include "next_steps/fast/made_step_sizes.hpp"
#include "next_steps/model.hpp"
#include "next_steps/tables.hpp"

namespace next_steps {

// Bytes of every hint field's value at any depth; a hint field is counted
// whole and not walked into.  Tuples are not walked: a finished answer holds
// none.
template <class M>
std::int64_t hint_size(M& m, const typename M::Value& v) {
  using V = typename M::Value;
  const Kind kind = m.kind(v);
  if (kind != Kind::dict && kind != Kind::list) return 0;
  auto guard = m.recursion_guard("");
  auto inner = m.template resolve<Fn::hint_size>();
  auto walk = [&](const V& item) -> std::int64_t {
    const Kind k = m.kind(item);
    if (inner.own && k != Kind::dict && k != Kind::list) return 0;
    return m.invoke(inner, item);
  };
  std::int64_t total = 0;
  if (kind == Kind::dict) {
    std::optional<decltype(m.template resolve<Fn::encoded_size>())> size;  // most dicts hold no hint field
    m.for_each_entry(v, [&](const V& key, const V& item) {
      if (!m.is_hint_key(key)) {
        total += walk(item);
      } else {
        if (!size) size = m.template resolve<Fn::encoded_size>();
        total += m.invoke(*size, item);
      }
      return true;
    });
  } else {
    m.for_each_item(v, [&](const V& item) {
      total += walk(item);
      return true;
    });
  }
  return total;
}

// The compact sizes of the step lists the budget tries.  While
// encoded_size is the module's own, the first list is measured in place,
// and a plain list of steps that this call made is not walked: their sizes
// are known.  Each shorter list is measured through the namespace, as the
// loop would: the bench's answers almost never drop a step, so knowing the
// sizes of the leading parts of the first list bought nothing measurable.
template <class M>
class StepListSizes {
 public:
  using Value = typename M::Value;
  StepListSizes(M& m, const Value& keep) : m_(m), keep_(keep), plain_keep_(m.walks_without_host_code(keep)) {}

  // Whether the budget's loop can run without host code, and without a
  // failure, for this list: a plain list of no more than `keep` steps, which
  // the loop never measures, or one measured up front from its steps'
  // fields.
  bool runs_no_host_code(const Value& steps) {
    if (!plain_keep_ || m_.kind(steps) != Kind::list || !m_.walks_without_host_code(steps)) return false;
    if (!m_.size_greater(m_.length(steps), keep_)) return true;
    if (!m_.template holds_own<Fn::encoded_size>() || !may_take_made_step_sizes(m_, steps)) return false;
    measured_ = static_cast<std::int64_t>(made_step_sizes(m_, steps));
    return true;
  }

  std::int64_t operator()(const Value& steps) {
    if (!first_measured_ && m_.template holds_own<Fn::encoded_size>()) return first(steps);
    return m_.template call<Fn::encoded_size>(steps);
  }

 private:
  std::int64_t first(const Value& steps) {
    first_measured_ = true;
    if (measured_ < 0) {  // not measured up front
      if (may_take_made_step_sizes(m_, steps)) return static_cast<std::int64_t>(made_step_sizes(m_, steps));
      return encoded_size(m_, steps);
    }
    return measured_;
  }

  M& m_;
  const Value& keep_;
  bool plain_keep_;
  std::int64_t measured_ = -1;  // below 0: not measured up front
  bool first_measured_ = false;
};

// The answer's compact size and hint bytes as the budget reads them: both
// measured up front, or with the deferred_size shortcut the hint bytes
// alone, the size only when the loop asks for it.
template <class M>
class AnswerSizes {
 public:
  using Value = typename M::Value;
  AnswerSizes(M& m, const Value& response, bool nothing_runs_between) : m_(m), response_(response) {
    if (may_take_deferred_size(m, nothing_runs_between))
      if (const auto hints = hint_bytes_alone(m, response)) {
        hints_ = *hints;
        return;
      }
    size_ = m.template call<Fn::encoded_size>(response);
    hints_ = m.template call<Fn::hint_size>(response);
  }

  std::int64_t hints() const { return hints_; }
  std::int64_t size() {
    if (size_ < 0) size_ = encoded_size(m_, response_);
    return size_;
  }

 private:
  M& m_;
  const Value& response_;
  std::int64_t size_ = -1, hints_ = 0;  // a size below 0 is not measured yet
};

// The steps, dropped from the last while the hints exceed their room: a
// share of the answer as sent with its steps, or the floor when that is more.
// The room is worked out anew for each length, since the steps count in it.
template <class M>
typename M::Value within_share(M& m, const typename M::Value& response, const typename M::Value& steps,
                               const typename M::Value& keep) {
  StepListSizes<M> list_size(m, keep);
  AnswerSizes<M> answer(m, response, list_size.runs_no_host_code(steps));
  auto current = steps;
  for (std::size_t n = m.length(current); m.size_greater(n, keep); n = m.length(current)) {
    const std::int64_t added = list_size(current) + steps_key_bytes;
    if (answer.hints() + added <= hint_floor_bytes) break;  // the room is never less
    const double room = std::max(hint_share * static_cast<double>(answer.size() + added),
                                 static_cast<double>(hint_floor_bytes));
    if (static_cast<double>(answer.hints() + added) <= room) break;
    current = m.but_last(current);
  }
  return current;
}

}  // namespace next_steps
