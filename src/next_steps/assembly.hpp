// Step assembly: the tool's own steps, or the signal and the usual
// follow-ups without repeated calls, capped, then trimmed by the budget and
// stored as the answer's last key.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "next_steps/encoding.hpp"
#include "next_steps/model.hpp"
#include "next_steps/tables.hpp"

namespace next_steps {

// The calls met so far, to tell a repeat.  While the steps are a list of
// dicts keyed by exact BMP texts, each with such a text as its tool and as
// args a dict of such texts and lists of them (a file list), all of which
// walk without host code, the calls are compared as values: the key texts
// of such values are equal exactly when the values are.  From
// the first step that is not, every call is told by its key text, and the
// texts of the calls met before are written then; no host code has run since,
// so they are the texts those calls had.
template <class M>
class SeenCalls {
 public:
  using Value = typename M::Value;
  SeenCalls(M& m, const Value& steps)
      : m_(m),
        by_value_(m.shortcut(Shortcut::value_told_repeats) && (plain(steps, Kind::list) || plain(steps, Kind::tuple))) {
    if (by_value_) calls_.reserve(m.length(steps));  // a plain list's length runs no host code
  }

  // The step's tool and args when they are known without reading them: a
  // step this call made holds the fields it was made of, and a walk over a
  // record that walks without host code finds what its lookups would.
  // Asked before a step's fields are read, since reading them may run host
  // code (a subclass's lookup, or a key of another kind compared with the
  // name): from a step that is not such a record on, calls are told by text.
  std::optional<std::pair<Value, Value>> known_fields(const Value& step) {
    if (!by_value_) return std::nullopt;
    if (const auto* made = m_.made_steps().find(m_.identity(step))) return std::pair{made->tool, made->args};
    std::optional<Value> tool, args;
    if (!plain_record(step, tool, args)) {
      to_texts();
      return std::nullopt;
    }
    if (!tool || !args) return std::nullopt;
    return std::pair{*tool, *args};
  }

  // Whether the call is new; it is remembered.
  bool add(const Value& tool, const Value& args) {
    if (by_value_) {
      if (const auto hash = plain_call_hash(tool, args)) {
        for (const Call& c : calls_)
          if (c.hash == *hash && m_.equal_without_host_code(c.tool, tool) &&
              m_.equal_without_host_code(c.args, args))
            return false;
        calls_.push_back({tool, args, *hash});
        return true;
      }
      to_texts();
    }
    return texts_.insert(call_key(m_, tool, args)).second;
  }

 private:
  struct Call {
    Value tool, args;
    std::size_t hash;
  };

  bool plain(const Value& v, Kind kind) const { return m_.kind(v) == kind && m_.walks_without_host_code(v); }

  // The scans below read only plain containers and run no host code, so
  // their entries and items are lent, not held.

  bool plain_record(const Value& v, std::optional<Value>& tool, std::optional<Value>& args) {
    if (!plain(v, Kind::dict)) return false;
    bool texts = true;
    m_.lend_entries(v, [&](const Value& key, const Value& value) {
      texts = m_.is_exact_bmp_text(key);
      if (texts && m_.str_equals(key, text_of(Name::tool))) tool = value;
      if (texts && m_.str_equals(key, text_of(Name::args))) args = value;
      return texts;
    });
    return texts;
  }

  std::optional<std::size_t> plain_call_hash(const Value& tool, const Value& args) {
    if (!m_.is_exact_bmp_text(tool) || !plain(args, Kind::dict)) return std::nullopt;
    bool texts = true;
    std::size_t entries_hash_sum = 0;  // a sum, so that the order of the entries does not count
    m_.lend_entries(args, [&](const Value& key, const Value& value) {
      const auto value_hash = m_.is_exact_bmp_text(key) ? plain_value_hash(value) : std::nullopt;
      texts = value_hash.has_value();
      if (texts) entries_hash_sum += m_.text_hash(key) * 31 + *value_hash;
      return texts;
    });
    if (!texts) return std::nullopt;
    return m_.text_hash(tool) ^ entries_hash_sum;
  }

  std::optional<std::size_t> plain_value_hash(const Value& v) {
    if (m_.is_exact_bmp_text(v)) return m_.text_hash(v);
    if (!plain(v, Kind::list)) return std::nullopt;
    bool texts = true;
    std::size_t items_hash = 1;
    m_.lend_items(v, [&](const Value& item) {
      texts = m_.is_exact_bmp_text(item);
      if (texts) items_hash = items_hash * 1000003 + m_.text_hash(item);
      return texts;
    });
    if (!texts) return std::nullopt;
    return items_hash;
  }

  void to_texts() {
    for (const Call& c : calls_) texts_.insert(call_key(m_, c.tool, c.args));
    calls_.clear();
    by_value_ = false;
  }

  M& m_;
  bool by_value_;
  std::vector<Call> calls_;
  std::unordered_set<std::string> texts_;
};

// The steps without a repeat of the same call (same tool and arguments,
// whatever their order and reason); the first occurrence stays.
template <class M>
typename M::Value deduplicated(M& m, const typename M::Value& steps) {
  using V = typename M::Value;
  V kept = m.new_list();
  SeenCalls<M> seen(m, steps);
  m.for_each_item(steps, [&](const V& step) {
    const auto fields = seen.known_fields(step);
    const V tool = fields ? fields->first : m.get_item(step, Name::tool);
    const V args = fields ? fields->second : m.get_item(step, Name::args);
    if (seen.add(tool, args)) m.append(kept, step);
    return true;
  });
  return kept;
}

template <class M>
typename M::Value add_next_steps(M& m, const typename M::Value& response, const typename M::Value& tool,
                                 const typename M::Value& action, const typename M::Value& arguments) {
  using V = typename M::Value;
  const V own = m.pop(response, Name::next_steps);
  V steps;
  std::int64_t keep = 1;
  if (m.truthy(own)) {
    steps = m.list_of(own);
  } else {
    const V given = m.is_null(arguments) ? m.new_dict() : arguments;
    const V signal = m.template call<Fn::signals>(response, tool, action, given);
    const V usual = m.template call<Fn::usual>(response, tool, action, given);
    V all = m.list_of(signal);
    m.for_each_item(usual, [&](const V& step) {
      m.append(all, step);
      return true;
    });
    const auto deduplicated = m.template resolve<Fn::deduplicated>();
    if (!deduplicated.own) m.made_steps().forget();  // the steps are handed on
    steps = m.head(m.invoke(deduplicated, all), static_cast<std::size_t>(max_steps));
    const std::size_t signalled = m.length(signal);
    keep = std::max<std::int64_t>(1, std::min<std::int64_t>(static_cast<std::int64_t>(signalled), max_steps));
  }
  steps = m.template call<Fn::within_share>(response, steps, m.make_int(keep));
  if (m.truthy(steps)) m.set_item(response, Name::next_steps, steps);
  return response;
}

}  // namespace next_steps
