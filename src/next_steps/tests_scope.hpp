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

template <class M>
typename M::Value tests_scope(M& m, const typename M::Value& response, const typename M::Value& arguments) {
  using V = typename M::Value;
  const V files = m.template call<Fn::answer_files>(response, arguments);
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
