// Signals: the steps an answer itself calls for (no hits, many callers, a
// file no test covers), chosen by tool and action.
#pragma once

#include "next_steps/model.hpp"
#include "next_steps/tables.hpp"
#include "next_steps/usual.hpp"

namespace next_steps {

template <class M>
typename M::Value search_by_meaning(M& m, const typename M::Value& known) {
  if (!m.equals_int(m.get_item(known, Name::hits), 0)) return m.null();
  auto query = m.get_item(known, Name::query);
  if (!m.truthy(query)) return m.null();
  return m.call_step(m.name(Name::search), m.literal("No hits: search by meaning"),
                     {{Name::action, m.name(Name::semantic)}, {Name::query, query}});
}

template <class M>
typename M::Value ask_explore(M& m, const typename M::Value& known) {
  if (!m.equals_int(m.get_item(known, Name::hits), 0)) return m.null();
  auto query = m.get_item(known, Name::query);
  if (!m.truthy(query)) return m.null();
  return m.call_step(m.name(Name::explore), m.literal("No close match: ask explore"), {{Name::query, query}});
}

template <class M>
typename M::Value blast_radius(M& m, const typename M::Value& known) {
  auto count = m.get_item(known, Name::hits);
  if (m.is_null(count) || m.less_than_int(count, fan_in_for_impact)) return m.null();
  auto fqn = m.get_item(known, Name::fqn);
  if (!m.truthy(fqn)) return m.null();
  auto what = m.get_item(known, Name::what);
  auto reason = m.join({m.text_form(count), m.literal(" "), m.text_form(what),
                        m.literal(": check the blast radius")});
  return m.call_step(m.name(Name::quality), reason, {{Name::action, m.name(Name::impact)}, {Name::fqn, fqn}});
}

template <class M>
typename M::Value untested(M& m, const typename M::Value& known) {
  if (!m.equals_int(m.get_item(known, Name::hits), 0)) return m.null();
  auto path = m.get_item(known, Name::path);
  if (m.kind(path) != Kind::str) return m.null();
  auto files = m.new_list();
  m.append(files, path);
  return m.call_step(m.name(Name::tests), m.literal("No test covers it: tests for a change of it"),
                     {{Name::action, m.name(Name::recommended)}, {Name::changed_files, files}});
}

template <class M>
typename M::Value run_signal(M& m, Signal signal, const typename M::Value& known) {
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
  auto known = m.new_dict();
  m.set_item(known, Name::hits, m.template call<Fn::hit_count>(response));
  m.set_item(known, Name::query, asked_or_answered(m, response, arguments, Name::query));
  m.set_item(known, Name::fqn, asked_or_answered(m, response, arguments, Name::fqn));
  m.set_item(known, Name::path, m.get(arguments, Name::path));
  m.set_item(known, Name::what, action);
  auto step = run_signal(m, *signal, known);
  if (!m.is_null(step)) m.append(found, step);
  return found;
}

}  // namespace next_steps
