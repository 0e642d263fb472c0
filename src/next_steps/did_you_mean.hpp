// Did-you-mean: a symbol or path the index does not hold is answered with
// the nearest candidates and one step that uses the best of them.  A failed
// lookup is logged and counts as nothing near: a miss must still answer.
#pragma once

#include "next_steps/model.hpp"

namespace next_steps {

// The lookup's candidates, or a new empty list when it failed (logged).
template <Fn Lookup, class M>
typename M::Value nearest(M& m, const typename M::Value& repository, const typename M::Value& wanted,
                          const char* failure) {
  auto looked_up = m.template try_call<Lookup>(repository, wanted);
  if (looked_up) return *looked_up;
  m.warn_failure(failure, wanted);
  return m.new_list();
}

template <class M>
void set_only_step(M& m, const typename M::Value& response, const typename M::Value& step) {
  auto steps = m.new_list();
  m.append(steps, step);
  m.set_item(response, Name::next_steps, steps);
}

template <class M>
typename M::Value suggest_symbols(M& m, const typename M::Value& response, const typename M::Value& repository,
                                  const typename M::Value& wanted, const typename M::Value& action) {
  using V = typename M::Value;
  const V candidates = nearest<Fn::nearest_symbols>(m, repository, wanted, "Looking for symbols near %r failed");
  m.set_item(response, Name::found, m.make_bool(false));
  V dicts = m.new_list();
  m.for_each_item(candidates, [&](const V& candidate) {
    m.append(dicts, m.call_method(candidate, Name::to_dict));
    return true;
  });
  m.set_item(response, Name::did_you_mean, dicts);
  V step;
  if (m.truthy(candidates)) {
    const V best = m.attr(m.first(candidates), Name::fqn);
    const V reason = m.join({m.literal("The nearest indexed symbol to "), m.text_form(wanted), m.literal(" is "),
                             m.text_form(best)});
    step = m.call_step(m.literal("symbol"), reason, {{Name::action, action}, {Name::fqn, best}});
  } else {
    const V reason =
        m.join({m.literal("No indexed symbol is near "), m.text_form(wanted), m.literal(": search the names")});
    const V guessed = m.template call<Fn::guessed_name>(wanted);
    step = m.call_step(m.name(Name::search), reason,
                       {{Name::action, m.name(Name::symbols)}, {Name::query, m.truthy(guessed) ? guessed : wanted}});
  }
  set_only_step(m, response, step);
  return response;
}

template <class M>
typename M::Value suggest_paths(M& m, const typename M::Value& response, const typename M::Value& repository,
                                const typename M::Value& wanted, const typename M::Value& action) {
  using V = typename M::Value;
  const V candidates = nearest<Fn::nearest_paths>(m, repository, wanted, "Looking for files near %r failed");
  m.set_item(response, Name::found, m.make_bool(false));
  m.set_item(response, Name::did_you_mean, candidates);
  V step;
  if (m.truthy(candidates)) {
    const V best = m.first(candidates);
    const V reason = m.join({m.literal("The nearest indexed file to "), m.text_form(wanted), m.literal(" is "),
                             m.text_form(best)});
    step = m.call_step(m.name(Name::file), reason, {{Name::action, action}, {Name::path, best}});
  } else {
    const V reason = m.join({m.literal("No indexed file is near "), m.text_form(wanted)});
    step = m.call_step(m.name(Name::files), reason, {});
  }
  set_only_step(m, response, step);
  return response;
}

}  // namespace next_steps
