// Null-free copies of answers, and the step record.
#pragma once

#include <initializer_list>
#include <utility>

#include "next_steps/made_steps.hpp"
#include "next_steps/model.hpp"

namespace next_steps {

// A copy without the dict fields that are null, at any depth; tuples become
// lists, every other value is shared.  The recursion goes through the
// namespace (resolved once per container), so a rebound name is honoured.
template <class M>
typename M::Value without_null_fields(M& m, const typename M::Value& v) {
  using V = typename M::Value;
  const Kind kind = m.kind(v);
  if (kind != Kind::dict && kind != Kind::list && kind != Kind::tuple) return v;
  auto guard = m.recursion_guard("");
  auto inner = m.template resolve<Fn::without_null_fields>();
  auto is_container = [&](const V& item) __attribute__((always_inline)) {
    const Kind k = m.kind(item);
    return k == Kind::dict || k == Kind::list || k == Kind::tuple;
  };
  // Leaves are shared: the own function would hand them back unchanged.
  auto needs_call = [&](const V& item) __attribute__((always_inline)) { return !inner.own || is_container(item); };
  auto copied = [&](const V& item) __attribute__((always_inline)) {
    if (inner.own) return without_null_fields(m, item);
    return m.invoke(inner, item);
  };
  if (auto copy = m.plain_copy(v)) {
    // The container copied whole by the model; only null fields and inner
    // containers need work.
    if (kind == Kind::dict) {
      m.for_each_entry(v, [&](const V& key, const V& item) __attribute__((always_inline)) {
        if (m.is_null(item))
          m.del_item(*copy, key);
        else if (needs_call(item))
          m.set_item(*copy, key, copied(item));
        return true;
      });
    } else {
      std::size_t index = 0;
      m.for_each_item(v, [&](const V& item) __attribute__((always_inline)) {
        if (needs_call(item)) m.set_index(*copy, index, copied(item));
        ++index;
        return true;
      });
    }
    return *copy;
  }
  auto copy_of = [&](const V& item) { return needs_call(item) ? copied(item) : item; };
  V copy = kind == Kind::dict ? m.new_dict() : m.new_list();
  if (kind == Kind::dict) {
    m.for_each_entry(v, [&](const V& key, const V& item) {
      if (!m.is_null(item)) m.set_item(copy, key, copy_of(item));
      return true;
    });
  } else {
    m.for_each_item(v, [&](const V& item) {
      m.append(copy, copy_of(item));
      return true;
    });
  }
  return copy;
}

// One next step: {"tool", "args", "reason"}, the arguments in the order given.
// Without the made_step_sizes shortcut no step is remembered, so the budget
// and the search for repeats read every step as they read one of the tool's.
template <class M>
typename M::Value make_step(M& m, const typename M::Value& tool, const typename M::Value& reason,
                            const typename M::Value& args) {
  auto step = m.new_dict();
  m.set_item(step, Name::tool, tool);
  m.set_item(step, Name::args, args);
  m.set_item(step, Name::reason, reason);
  if (m.shortcut(Shortcut::made_step_sizes)) m.made_steps().remember(m.identity(step), step, tool, reason, args);
  return step;
}

}  // namespace next_steps
