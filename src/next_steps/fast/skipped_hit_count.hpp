// The hit count not worked out for a row whose hints take nothing from the
// hits: the count is read only to leave out a step that takes a value from
// them when there are none.
#pragma once

#include "next_steps/model.hpp"
#include "next_steps/tables.hpp"

namespace next_steps {

// Whether the count may go unread: no hint of the row takes a value from
// the hits (the files of a change are the request's), the count is the
// module's own, and reading the answer for it runs no host code, so that
// nothing could tell it was skipped.
template <class M>
bool may_take_skipped_hit_count(M& m, const Row& row, const typename M::Value& response) {
  if (!m.shortcut(Shortcut::skipped_hit_count)) return false;
  for (unsigned char index : row.items())
    if (hint_records[index].takes != Takes::none && hint_records[index].takes != Takes::changed_files) return false;
  return m.template holds_own<Fn::hit_count>() && m.reads_without_host_code(response);
}

// What the row reads of the count: nothing, so it stands as "some hits".
constexpr bool skipped_hit_count() { return false; }

}  // namespace next_steps
