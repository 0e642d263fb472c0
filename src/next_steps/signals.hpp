// Signals: the steps an answer itself calls for (no hits, many callers, a
// file no test covers), chosen by tool and action.
#pragma once

#include <utility>

#include "next_steps/model.hpp"
#include "next_steps/tables.hpp"
#include "next_steps/usual.hpp"

namespace next_steps {

// What a signal reads of the answer and the request, a field at a time, as
// `known(Name::hits)`: from the mapping a signal function was handed (each
// field looked up when read), or from the values _signals read up front,
// held here instead of in a dict that only the signal would read.
template <class M>
struct KnownMapping {
  M& m;
  typename M::Value fields;
  typename M::Value operator()(Name field) const { return m.get_item(fields, field); }
};

template <class M>
struct KnownValues {
  using V = typename M::Value;
  V hits, query, fqn, path, what;
  const V& operator()(Name field) const {
    switch (field) {
      case Name::hits: return hits;
      case Name::query: return query;
      case Name::fqn: return fqn;
      case Name::path: return path;
      default: return what;
    }
  }
};

template <class M, class Known>
typename M::Value search_by_meaning(M& m, const Known& known) {
  if (!m.equals_int(known(Name::hits), 0)) return m.null();
  auto query = known(Name::query);
  if (!m.truthy(query)) return m.null();
  return m.call_step(m.name(Name::search), m.literal("No hits: search by meaning"),
                     {{Name::action, m.name(Name::semantic)}, {Name::query, query}});
}

template <class M, class Known>
typename M::Value ask_explore(M& m, const Known& known) {
  if (!m.equals_int(known(Name::hits), 0)) return m.null();
  auto query = known(Name::query);
  if (!m.truthy(query)) return m.null();
  return m.call_step(m.name(Name::explore), m.literal("No close match: ask explore"), {{Name::query, query}});
}

template <class M, class Known>
typename M::Value blast_radius(M& m, const Known& known) {
  auto count = known(Name::hits);
  if (m.is_null(count) || m.less_than_int(count, fan_in_for_impact)) return m.null();
  auto fqn = known(Name::fqn);
  if (!m.truthy(fqn)) return m.null();
  auto what = known(Name::what);
  auto reason = m.join({m.text_form(count), m.literal(" "), m.text_form(what),
                        m.literal(": check the blast radius")});
  return m.call_step(m.name(Name::quality), reason, {{Name::action, m.name(Name::impact)}, {Name::fqn, fqn}});
}

template <class M, class Known>
typename M::Value untested(M& m, const Known& known) {
  if (!m.equals_int(known(Name::hits), 0)) return m.null();
  auto path = known(Name::path);
  if (m.kind(path) != Kind::str) return m.null();
  auto files = m.new_list();
  m.append(files, path);
  return m.call_step(m.name(Name::tests), m.literal("No test covers it: tests for a change of it"),
                     {{Name::action, m.name(Name::recommended)}, {Name::changed_files, files}});
}

template <class M, class Known>
typename M::Value run_signal(M& m, Signal signal, const Known& known) {
  switch (signal) {
    case Signal::search_by_meaning: return search_by_meaning(m, known);
    case Signal::ask_explore: return ask_explore(m, known);
    case Signal::blast_radius: return blast_radius(m, known);
    case Signal::untested: break;
  }
  return untested(m, known);
}

// The request's argument when truthy, else the answer's field.
template <class M>
typename M::Value asked_or_answered(M& m, const typename M::Value& response, const typename M::Value& arguments,
                                    Name field) {
  auto asked = m.get(arguments, field);
  return m.truthy(asked) ? asked : m.get(response, field);
}

template <class M>
typename M::Value signals(M& m, const typename M::Value& response, const typename M::Value& tool,
                          const typename M::Value& action, const typename M::Value& arguments) {
  auto found = m.new_list();
  const auto signal = find_signal(row_key(m, tool, action));
  if (!signal) return found;
  // Read in this order, whatever the signal then looks at.
  auto hits = m.template call<Fn::hit_count>(response);
  auto query = asked_or_answered(m, response, arguments, Name::query);
  auto fqn = asked_or_answered(m, response, arguments, Name::fqn);
  auto path = m.get(arguments, Name::path);
  const KnownValues<M> known{std::move(hits), std::move(query), std::move(fqn), std::move(path), action};
  auto step = run_signal(m, *signal, known);
  if (!m.is_null(step)) m.append(found, step);
  return found;
}

}  // namespace next_steps
