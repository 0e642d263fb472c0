// The scope of a tests step: the files the answer is about, or the branch
// base it compared against when its file list was cut.
#pragma once

#include <utility>
#include <vector>

#include "next_steps/model.hpp"
#include "next_steps/tables.hpp"

namespace next_steps {

// The own file first, then the affected (else the changed) files, else the
// request's path; repeats and all.
template <class M>
typename M::Value named_files(M& m, const typename M::Value& response, const typename M::Value& arguments) {
  using V = typename M::Value;
  V found = m.new_list();
  const V own = m.get(response, Name::file);
  if (m.kind(own) == Kind::str) m.append(found, own);
  for (Name field : {Name::affected_files, Name::files}) {
    const V items = m.get(response, field);
    if (m.kind(items) != Kind::list) continue;
    bool listed = false;
    m.for_each_item(items, [&](const V& item) {
      const V path = m.kind(item) == Kind::dict ? m.get(item, Name::path) : item;
      if (m.kind(path) == Kind::str) {
        m.append(found, path);
        listed = true;
      }
      return true;
    });
    if (listed) break;
  }
  if (m.length(found) == 0) {
    const V path = m.get(arguments, Name::path);
    if (m.kind(path) == Kind::str) m.append(found, path);
  }
  return found;
}

// The files an answer names, without repeats.
template <class M>
typename M::Value answer_files(M& m, const typename M::Value& response, const typename M::Value& arguments) {
  return m.without_repeats(named_files(m, response, arguments));
}

// The first `limit` of answer_files: all that the tests scope looks at.  A
// change set can name thousands of files; while every path is a plain text,
// telling a repeat runs no host code, so the paths past the limit are left
// untold.  Otherwise each is told as answer_files tells it.
template <class M>
typename M::Value leading_answer_files(M& m, const typename M::Value& response, const typename M::Value& arguments,
                                       std::size_t limit) {
  using V = typename M::Value;
  const V found = named_files(m, response, arguments);
  bool plain = true;
  m.for_each_item(found, [&](const V& path) { return plain = m.is_plain_text(path); });
  if (!plain) return m.head(m.without_repeats(found), limit);
  V kept = m.new_list();
  std::vector<std::pair<std::size_t, V>> seen;
  seen.reserve(limit);
  m.for_each_item(found, [&](const V& path) {
    const std::size_t hash = m.text_hash(path);
    for (const auto& [h, met] : seen)
      if (h == hash && m.same_plain(met, path)) return true;
    seen.emplace_back(hash, path);
    m.append(kept, path);
    return seen.size() < limit;
  });
  return kept;
}

template <class M>
typename M::Value tests_scope(M& m, const typename M::Value& response, const typename M::Value& arguments) {
  using V = typename M::Value;
  // One file past the cap tells whether the answer lists them all.
  const V files = m.template holds_own<Fn::answer_files>()
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
