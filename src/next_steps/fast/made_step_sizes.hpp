// The steps a call made measured from the fields they were made of, not
// walked.
#pragma once

#include <cstddef>
#include <optional>

#include "next_steps/model.hpp"
#include "next_steps/tables.hpp"

namespace next_steps {

// The compact size of a file list that only its step's args hold: an exact
// list of exact BMP texts that no host code can reach, so that it holds
// what it held when measured for as long as the step is known; none for
// any other value.
template <class M>
std::optional<std::size_t> held_file_list_bytes(M& m, const typename M::Value& v, bool& surrogate) {
  if (m.kind(v) != Kind::list || !m.walks_without_host_code(v) || !m.held_once(v)) return std::nullopt;
  std::size_t bytes = 2, count = 0;
  bool texts = true;
  m.lend_items(v, [&](const auto& item) {
    texts = m.is_exact_bmp_text(item);
    if (texts) bytes += m.token_bytes(item, surrogate);
    ++count;
    return texts;
  });
  if (!texts) return std::nullopt;
  return bytes + (count ? count - 1 : 0);
}

// The compact size of a step {"tool", "args", "reason"} whose tool and
// reason are exact BMP texts and whose args are a dict of such texts (or of
// file lists that only it holds) that walks without host code; none for any
// other step, or one holding a lone surrogate (the walk that measures it
// instead fails there as ever).
template <class M>
std::optional<std::size_t> made_step_bytes(M& m, const typename M::Value& tool, const typename M::Value& reason,
                                           const typename M::Value& args) {
  using V = typename M::Value;
  if (!m.is_exact_bmp_text(tool) || !m.is_exact_bmp_text(reason) || m.kind(args) != Kind::dict ||
      !m.walks_without_host_code(args))
    return std::nullopt;
  bool surrogate = false;
  auto text = [&](const V& v) { return m.token_bytes(v, surrogate); };
  std::size_t bytes =
      key_bytes(Name::tool) + text(tool) + key_bytes(Name::args) + key_bytes(Name::reason) + text(reason) + 1;
  std::size_t entries = 0;
  bool measured = true;
  m.lend_entries(args, [&](const V& k, const V& v) {
    measured = m.is_exact_bmp_text(k);
    if (measured) {
      const auto value = m.is_exact_bmp_text(v) ? std::optional(text(v)) : held_file_list_bytes(m, v, surrogate);
      measured = value.has_value();
      if (measured) bytes += text(k) + 1 + *value;
    }
    ++entries;
    return measured;
  });
  if (!measured || surrogate) return std::nullopt;
  return bytes + 2 + (entries ? entries - 1 : 0);
}

// A known step's size, worked out once for the guard and the variant.
template <class M, class Fields>
std::optional<std::size_t> kept_step_bytes(M& m, Fields& fields) {
  return fields.bytes.get([&] { return made_step_bytes(m, fields.tool, fields.reason, fields.args); });
}

// Whether the step list may be measured from its steps' fields: a plain
// list (its items read without host code) of steps this call made and
// still knows, each of which made_step_bytes can measure.
template <class M>
bool may_take_made_step_sizes(M& m, const typename M::Value& steps) {
  if (!m.shortcut(Shortcut::made_step_sizes) || m.kind(steps) != Kind::list || !m.walks_without_host_code(steps))
    return false;
  bool known = true;
  m.lend_items(steps, [&](const auto& step) {
    auto* fields = m.made_steps().find(m.identity(step));
    return known = fields && kept_step_bytes(m, *fields).has_value();
  });
  return known;
}

// The list's compact size as the walk counts it: `[`, the steps joined by
// `,`, then `]`, each step's size from its fields (none is unknown here:
// the guard found each).
template <class M>
std::size_t made_step_sizes(M& m, const typename M::Value& steps) {
  std::size_t bytes = 1, count = 0;
  m.lend_items(steps, [&](const auto& step) {
    auto* fields = m.made_steps().find(m.identity(step));
    if (fields) bytes += kept_step_bytes(m, *fields).value_or(0);
    ++count;
    return true;
  });
  return bytes + (count ? count - 1 : 0) + 1;
}

}  // namespace next_steps
