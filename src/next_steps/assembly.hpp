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
#include "next_steps/fast/value_told_repeats.hpp"
#include "next_steps/model.hpp"
#include "next_steps/tables.hpp"
#include "next_steps/usual.hpp"

namespace next_steps {

// The steps without a repeat of the same call (same tool and arguments,
// whatever their order and reason); the first occurrence stays.  A call is
// told by its key text, made when the step is met: host code run later
// (a subclass's iteration) cannot change what was met.
template <class M>
typename M::Value deduplicated(M& m, const typename M::Value& steps) {
  using V = typename M::Value;
  value_told::Calls<M> calls;
  if (may_take_value_told_repeats(m, steps, calls)) return value_told_repeats(m, steps, calls);
  V kept = m.new_list();
  std::unordered_set<std::string> seen;
  m.for_each_item(steps, [&](const V& step) {
    const V tool = m.get_item(step, Name::tool);
    const V args = m.get_item(step, Name::args);
    if (seen.insert(call_key(m, tool, args)).second) m.append(kept, step);
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
    const auto signals = m.template resolve<Fn::signals>();
    const V signal = m.invoke(signals, response, tool, action, given);
    const auto usual = m.template resolve<Fn::usual>();
    // The module's own functions hand back new lists that nothing else
    // holds: the usual steps join the signals' list itself (the own usual
    // adds them there as it makes them), and the list without repeats is
    // cut where it stands, instead of each being copied first.  A list from
    // any other function is read as Python would read it, list() and len()
    // of it at the places they are asked.
    std::optional<std::size_t> signalled;
    V all;
    if (signals.own) {
      signalled = m.length(signal);
      all = signal;
    }
    if (signals.own && usual.own) {
      add_usual(m, all, response, tool, action, given);
    } else {
      const V usual_steps = m.invoke(usual, response, tool, action, given);
      if (!signals.own) all = m.list_of(signal);
      m.for_each_item(usual_steps, [&](const V& step) {
        m.append(all, step);
        return true;
      });
    }
    const auto deduplicated = m.template resolve<Fn::deduplicated>();
    if (!deduplicated.own) m.made_steps().forget();  // the steps are handed on
    const V kept = m.invoke(deduplicated, all);
    if (deduplicated.own)
      steps = m.cut(kept, static_cast<std::size_t>(max_steps));
    else
      steps = m.head(kept, static_cast<std::size_t>(max_steps));
    if (!signalled) signalled = m.length(signal);
    keep = std::max<std::int64_t>(1, std::min<std::int64_t>(static_cast<std::int64_t>(*signalled), max_steps));
  }
  steps = m.template call<Fn::within_share>(response, steps, m.make_int(keep));
  if (m.truthy(steps)) m.set_item(response, Name::next_steps, steps);
  return response;
}

}  // namespace next_steps
