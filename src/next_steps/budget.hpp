// The hint budget: hint fields take at most a share of the answer, so steps
// are dropped from the end until they fit.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

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

// The steps, dropped from the last while the hints exceed their room: a
// share of the answer as sent with its steps, or the floor when that is more.
// The room is worked out anew for each length, since the steps count in it.
template <class M>
typename M::Value within_share(M& m, const typename M::Value& response, const typename M::Value& steps,
                               const typename M::Value& keep) {
  const std::int64_t size = m.template call<Fn::encoded_size>(response);
  const std::int64_t hints = m.template call<Fn::hint_size>(response);
  auto current = steps;
  for (std::size_t n = m.length(current); m.size_greater(n, keep); n = m.length(current)) {
    const std::int64_t added = m.template call<Fn::encoded_size>(current) + steps_key_bytes;
    const double room = std::max(hint_share * static_cast<double>(size + added),
                                 static_cast<double>(hint_floor_bytes));
    if (static_cast<double>(hints + added) <= room) break;
    current = m.head(current, n - 1);
  }
  return current;
}

}  // namespace next_steps
