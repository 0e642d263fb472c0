// The last step of every answer: a null-free copy with the freshness block
// and the next steps; the tool's own answer is never touched.
#pragma once

#include "next_steps/model.hpp"

namespace next_steps {

template <class M>
typename M::Value finish_answer(M& m, const typename M::Value& response, const typename M::Value& tool,
                                const typename M::Value& action, const typename M::Value& arguments,
                                const typename M::Value& freshness) {
  const auto finished = m.template call<Fn::without_null_fields>(response);
  m.template call<Fn::add_freshness>(finished, freshness);
  return m.template call<Fn::add_next_steps>(finished, tool, action, arguments);
}

}  // namespace next_steps
