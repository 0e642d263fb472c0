// The scope of a tests step: the files the answer is about, or the branch
// base it compared against when its file list was cut.
#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "next_steps/model.hpp"
#include "next_steps/tables.hpp"

namespace next_steps {

// Hands `f` each file the answer names: the own file first, then the
// affected (else the changed) files, else the request's path; repeats and all.
template <class M, class F>
void for_each_named_file(M& m, const typename M::Value& response, const typename M::Value& arguments, F&& f) {
  using V = typename M::Value;
  bool named = false;
  const V own = m.get(response, Name::file);
  if (m.kind(own) == Kind::str) {
    f(own);
    named = true;
  }
  for (Name field : {Name::affected_files, Name::files}) {
    const V items = m.get(response, field);
    if (m.kind(items) != Kind::list) continue;
    bool listed = false;
    m.for_each_item(items, [&](const V& item) {
      const V path = m.kind(item) == Kind::dict ? m.get(item, Name::path) : item;
      if (m.kind(path) == Kind::str) {
        f(path);
        listed = true;
      }
      return true;
    });
    if (listed) {
      named = true;
      break;
    }
  }
  if (!named) {
    const V path = m.get(arguments, Name::path);
    if (m.kind(path) == Kind::str) f(path);
  }
}

// The files an answer names, without repeats.
template <class M>
typename M::Value answer_files(M& m, const typename M::Value& response, const typename M::Value& arguments) {
  using V = typename M::Value;
  V found = m.new_list();
  for_each_named_file(m, response, arguments, [&](const V& path) { m.append(found, path); });
  return m.without_repeats(found);
}

// The first `limit` of answer_files: all that the tests scope looks at.  A
// change set can name thousands of files; while every path is an exact BMP text,
// telling a repeat runs no host code, so the paths past the limit are left
// untold.  Otherwise each is told as answer_files tells it.
template <class M>
typename M::Value leading_answer_files(M& m, const typename M::Value& response, const typename M::Value& arguments,
                                       std::size_t limit) {
  using V = typename M::Value;
  std::vector<V> found;
  bool plain = true;
  for_each_named_file(m, response, arguments, [&](const V& path) {
    plain = plain && m.is_exact_bmp_text(path);
    found.push_back(path);
  });
  V kept = m.new_list();
  if (!plain) {
    for (const V& path : found) m.append(kept, path);
    return m.head(m.without_repeats(kept), limit);
  }
  std::vector<std::pair<std::size_t, V>> seen;
  seen.reserve(limit);
  for (const V& path : found) {
    const std::size_t hash = m.text_hash(path);
    const bool repeat = std::any_of(seen.begin(), seen.end(), [&](const auto& met) {
      return met.first == hash && m.equal_without_host_code(met.second, path);
    });
    if (repeat) continue;
    seen.emplace_back(hash, path);
    m.append(kept, path);
    if (seen.size() == limit) break;
  }
  return kept;
}

template <class M>
typename M::Value tests_scope(M& m, const typename M::Value& response, const typename M::Value& arguments) {
  using V = typename M::Value;
  // One file past the cap tells whether the answer lists them all.
  const V files = m.shortcut(Shortcut::leading_files) && m.template holds_own<Fn::answer_files>()
                      ? leading_answer_files(m, response, arguments, static_cast<std::size_t>(max_step_files) + 1)
                      : m.template call<Fn::answer_files>(response, arguments);
  const V base = m.get(response, Name::base_branch);
  const std::size_t count = m.length(files);
  const bool listed_all = count <= static_cast<std::size_t>(max_step_files) &&
                          !m.truthy(m.get(response, Name::files_omitted));
  V scope = m.new_dict();
  if (m.kind(base) == Kind::str && m.length(base) > 0 && !(count > 0 && listed_all)) {
    m.set_item(scope, Name::base_branch, base);
  } else if (count > 0) {
    m.set_item(scope, Name::changed_files, m.head(files, static_cast<std::size_t>(max_step_files)));
  }
  return scope;
}

}  // namespace next_steps
