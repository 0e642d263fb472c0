// Did-you-mean: a symbol or path the index does not hold is answered with
// the nearest candidates and one step that uses the best of them.  A failed
// lookup is logged and counts as nothing near: a miss must still answer.
#pragma once

#include "next_steps/model.hpp"

namespace next_steps {

template <class M>
typename M::Value one_step_list(M& m, const typename M::Value& step) {
  auto steps = m.new_list();
  m.append(steps, step);
  return steps;
}

template <class M>
typename M::Value suggest_symbols(M& m, const typename M::Value& response, const typename M::Value& repository,
                                  const typename M::Value& wanted, const typename M::Value& action) {
  using V = typename M::Value;
  auto looked_up = m.template try_call<Fn::nearest_symbols>(repository, wanted);
  if (!looked_up) m.warn_failure("Looking for symbols near %r failed", wanted);
  const V candidates = looked_up ? *looked_up : m.new_list();
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
  m.set_item(response, Name::next_steps, one_step_list(m, step));
  return response;
}

template <class M>
typename M::Value suggest_paths(M& m, const typename M::Value& response, const typename M::Value& repository,
                                const typename M::Value& wanted, const typename M::Value& action) {
  using V = typename M::Value;
  auto looked_up = m.template try_call<Fn::nearest_paths>(repository, wanted);
  if (!looked_up) m.warn_failure("Looking for files near %r failed", wanted);
  const V candidates = looked_up ? *looked_up : m.new_list();
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
  m.set_item(response, Name::next_steps, one_step_list(m, step));
  return response;
}

}  // namespace next_steps
