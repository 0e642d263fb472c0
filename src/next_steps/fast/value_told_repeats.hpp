// Repeated calls told by value instead of by their call-key texts.
#pragma once

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "next_steps/model.hpp"

namespace next_steps::value_told {

template <class M>
bool plain(M& m, const typename M::Value& v, Kind kind) {
  return m.kind(v) == kind && m.walks_without_host_code(v);
}

template <class M>
std::optional<std::size_t> text_or_list_hash(M& m, const typename M::Value& v) {
  if (m.is_exact_bmp_text(v)) return m.text_hash(v);
  if (!plain(m, v, Kind::list)) return std::nullopt;
  bool texts = true;
  std::size_t items_hash = 1;
  m.lend_items(v, [&](const auto& item) {
    texts = m.is_exact_bmp_text(item);
    if (texts) items_hash = items_hash * 1000003 + m.text_hash(item);
    return texts;
  });
  if (!texts) return std::nullopt;
  return items_hash;
}

template <class M>
struct Call {
  typename M::Value tool, args;
  std::size_t hash;  // the same for equal calls, whatever the order of the args
};

// The hash of a call whose tool is an exact BMP text and whose args are a
// dict keyed by such texts, each holding such a text or a list of them (a
// file list), all walking without host code; none for any other call.  The
// key texts of such calls are equal exactly when the calls are, and reading
// them runs no host code.
template <class M>
std::optional<std::size_t> call_hash(M& m, const typename M::Value& tool, const typename M::Value& args) {
  using V = typename M::Value;
  if (!m.is_exact_bmp_text(tool) || !plain(m, args, Kind::dict)) return std::nullopt;
  std::size_t entries_hash_sum = 0;  // a sum, so that the order of the entries does not count
  bool texts = true;
  m.lend_entries(args, [&](const V& key, const V& value) {
    const auto value_hash = m.is_exact_bmp_text(key) ? text_or_list_hash(m, value) : std::nullopt;
    texts = value_hash.has_value();
    if (texts) entries_hash_sum += m.text_hash(key) * 31 + *value_hash;
    return texts;
  });
  if (!texts) return std::nullopt;
  return m.text_hash(tool) ^ entries_hash_sum;
}

// The steps' calls, in the order of the steps.  A call makes a handful of
// steps, whose calls are kept in place: only a longer list's take memory.
template <class M>
class Calls {
 public:
  std::size_t size() const { return size_; }
  const Call<M>& operator[](std::size_t i) const { return i < near_calls ? near_[i] : more_[i - near_calls]; }
  void push_back(Call<M>&& call) {
    if (size_ < near_calls)
      near_[size_] = std::move(call);
    else
      more_.push_back(std::move(call));
    ++size_;
  }

 private:
  static constexpr std::size_t near_calls = 6;
  Call<M> near_[near_calls];
  std::vector<Call<M>> more_;
  std::size_t size_ = 0;
};

// A step's call when the step is plain: a dict keyed by exact BMP texts
// whose call call_hash can hash.  A step this call made and still knows is
// such a dict, holding the fields it was made of: it is not scanned for
// them, and its call is hashed once for the guard and the variant (nothing
// runs between them that could change a file list).
template <class M>
std::optional<Call<M>> plain_call(M& m, const typename M::Value& step) {
  using V = typename M::Value;
  if (!plain(m, step, Kind::dict)) return std::nullopt;
  if (auto* made = m.made_steps().find(m.identity(step))) {
    const auto hash = made->call_hash.get([&] { return call_hash(m, made->tool, made->args); });
    if (!hash) return std::nullopt;
    return Call<M>{made->tool, made->args, *hash};
  }
  std::optional<V> tool, args;
  bool texts = true;
  m.lend_entries(step, [&](const V& key, const V& value) {
    texts = m.is_exact_bmp_text(key);
    if (texts && m.str_equals(key, text_of(Name::tool))) tool = value;
    if (texts && m.str_equals(key, text_of(Name::args))) args = value;
    return texts;
  });
  if (!texts || !tool || !args) return std::nullopt;
  const auto hash = call_hash(m, *tool, *args);
  if (!hash) return std::nullopt;
  return Call<M>{*tool, *args, *hash};
}

}  // namespace next_steps::value_told

namespace next_steps {

// Whether the repeats of `steps` may be told by value: a plain list or
// tuple (its items read without host code) of plain steps.  Each step's
// call, worked out for the guard, is kept in `calls` for the variant:
// nothing runs between them that could change a step.
template <class M>
bool may_take_value_told_repeats(M& m, const typename M::Value& steps, value_told::Calls<M>& calls) {
  if (!m.shortcut(Shortcut::value_told_repeats)) return false;
  if (!value_told::plain(m, steps, Kind::list) && !value_told::plain(m, steps, Kind::tuple)) return false;
  bool all = true;
  m.lend_items(steps, [&](const auto& step) {
    auto call = value_told::plain_call(m, step);
    all = call.has_value();
    if (all) calls.push_back(std::move(*call));
    return all;
  });
  return all;
}

// deduplicated with each call compared by value with the ones before it of
// the same hash.  Equality of these values is transitive, so a call equal
// to a repeat equals the first of them too: comparing with every call
// before it, kept or not, tells the same repeats as comparing with the
// kept ones.  A step without a call kept (none is, here: the guard found
// each) is kept.
template <class M>
typename M::Value value_told_repeats(M& m, const typename M::Value& steps, const value_told::Calls<M>& calls) {
  using V = typename M::Value;
  V kept = m.new_list();
  std::size_t i = 0;
  m.lend_items(steps, [&](const V& step) {
    bool repeat = false;
    for (std::size_t before = 0; i < calls.size() && before < i && !repeat; ++before)
      repeat = calls[before].hash == calls[i].hash && m.equal_without_host_code(calls[before].tool, calls[i].tool) &&
               m.equal_without_host_code(calls[before].args, calls[i].args);
    if (!repeat) m.append(kept, step);
    ++i;
    return true;
  });
  return kept;
}

}  // namespace next_steps
