// The usual follow-ups of a tool and action, each with the one argument it
// takes from the answer (or the request), left out when there is none.
#pragma once

#include <string>

#include "next_steps/fast/skipped_hit_count.hpp"
#include "next_steps/model.hpp"
#include "next_steps/tables.hpp"
#include "next_steps/values.hpp"

namespace next_steps {

// How many hits the answer says it has: its integer count field, else the
// length of the first hit list it holds, else null.
template <class M>
typename M::Value hit_count(M& m, const typename M::Value& response) {
  using V = typename M::Value;
  for (Name field : {Name::total_count, Name::total}) {
    const V count = m.get(response, field);
    const Kind kind = m.kind(count);
    if (kind == Kind::integer || kind == Kind::boolean) return m.as_int(count);
  }
  for (Name field : hit_lists) {
    const V hits = m.get(response, field);
    if (m.kind(hits) == Kind::list) return m.make_int(static_cast<std::int64_t>(m.length(hits)));
  }
  return m.null();
}

// Whether a hit is a code symbol, as the symbol model says from its kind and
// its file; anything but a string is handed on as null.
template <class M>
typename M::Value is_code_hit(M& m, const typename M::Value& item) {
  using V = typename M::Value;
  V kind = m.get(item, Name::kind);
  V file = m.get(item, Name::file);
  if (m.kind(kind) != Kind::str) kind = m.null();
  if (m.kind(file) != Kind::str) file = m.null();
  return m.template call<Fn::is_code_symbol>(kind, file);
}

template <class M>
Takes takes_of(M& m, const typename M::Value& takes) {
  if (m.kind(takes) == Kind::str)
    for (std::size_t i = 0; i < takes_texts.size(); ++i)
      if (m.str_equals(takes, takes_texts[i])) return static_cast<Takes>(i);
  return Takes::none;
}

// The value a step takes from the answer (or the request), or null.
template <class M>
typename M::Value taken(M& m, const typename M::Value& response, const typename M::Value& takes_value,
                        const typename M::Value& arguments) {
  using V = typename M::Value;
  const Takes takes = takes_of(m, takes_value);
  if (takes == Takes::query) {
    V query = m.get(arguments, Name::query);
    return m.truthy(query) ? query : m.get(response, Name::query);
  }
  if (takes == Takes::fqn || takes == Takes::path) {
    V own = m.get(response, takes == Takes::fqn ? Name::fqn : Name::file);
    if (m.kind(own) == Kind::str) return own;
  }
  Name field;
  switch (takes) {
    case Takes::fqn: field = Name::fqn; break;
    case Takes::path: field = Name::path; break;
    case Takes::component: field = Name::name; break;
    default: m.raise_key(takes_value);
  }
  V found = m.null();
  for (Name list : hit_lists) {
    const V hits = m.get(response, list);
    if (m.kind(hits) != Kind::list) continue;
    bool done = false;
    m.for_each_item(hits, [&](const V& item) {
      const bool is_dict = m.kind(item) == Kind::dict;
      if (takes == Takes::fqn && is_dict && !m.truthy(m.template call<Fn::is_code_hit>(item))) return true;
      if (is_dict) {
        V value = m.get(item, field);
        if (m.kind(value) == Kind::str) found = value, done = true;
      } else if (takes == Takes::path && list == Name::files && m.kind(item) == Kind::str) {
        found = item, done = true;
      }
      return !done;
    });
    if (done) return found;
  }
  if (takes == Takes::path || takes == Takes::fqn) {
    V asked = m.get(arguments, takes == Takes::path ? Name::path : Name::fqn);
    if (m.kind(asked) == Kind::str) return asked;
  }
  return found;
}

// The key of a tool and action in the tables: "tool:action", with a null
// action written "None" so that it names no row.  Written into one string,
// the tool's text first, as the host's f-string reads them.
template <class M>
std::string row_key(M& m, const typename M::Value& tool, const typename M::Value& action) {
  std::string key = m.key_text(tool);
  key += ':';
  key += m.key_text(action);
  return key;
}

// Whether the answer says it has no hits, for a step that takes a value
// from them.
template <class M>
bool no_hits(M& m, const Row& row, const typename M::Value& response) {
  if (may_take_skipped_hit_count(m, row, response)) return skipped_hit_count();
  return m.equals_int(m.template call<Fn::hit_count>(response), 0);
}

// The usual follow-ups appended to `steps`, a list that this call made and
// alone holds.
template <class M>
void add_usual(M& m, const typename M::Value& steps, const typename M::Value& response,
               const typename M::Value& tool, const typename M::Value& action, const typename M::Value& arguments) {
  using V = typename M::Value;
  const Row* row = find_row(row_key(m, tool, action));
  if (!row) row = find_row(m.key_text(tool));
  if (!row) return;
  const bool no_hits = next_steps::no_hits(m, *row, response);
  for (unsigned char index : row->items()) {
    const HintRecord& hint = hint_records[index];
    V args = m.new_dict();
    if (!hint.action.empty()) m.set_item(args, Name::action, m.literal(hint.action));
    if (hint.takes == Takes::changed_files) {
      const V scope = m.template call<Fn::tests_scope>(response, arguments);
      if (!m.truthy(scope)) continue;
      m.for_each_entry(scope, [&](const V& key, const V& value) {
        m.set_item(args, key, value);
        return true;
      });
    } else if (hint.takes != Takes::none) {
      if (no_hits) continue;
      const V value = m.template call<Fn::taken>(response, m.literal(text_of(hint.takes)), arguments);
      if (m.is_null(value)) continue;
      m.set_item(args, m.literal(argument_key(hint.takes)), value);
    }
    m.append(steps, make_step(m, m.literal(hint.tool), m.literal(hint.reason), args));
  }
}

template <class M>
typename M::Value usual(M& m, const typename M::Value& response, const typename M::Value& tool,
                        const typename M::Value& action, const typename M::Value& arguments) {
  auto steps = m.new_list();
  add_usual(m, steps, response, tool, action, arguments);
  return steps;
}

}  // namespace next_steps
