// What the module keeps: interned names, its own function objects and a few
// host objects, all made by the execution slot and owned by the module
// object (no per-process state, so a failed import can be retried).
#pragma once

#include <array>
#include <string_view>
#include <unordered_map>

#include "host_binding/object.hpp"
#include "next_steps/tables.hpp"
#include "next_steps/vocabulary.hpp"

namespace host {

struct State {
  std::array<Object, next_steps::name_texts.size()> names;
  std::array<Object, next_steps::function_names.size()> function_names;
  // The module's own function objects by Fn, to tell whether a name still
  // holds them (then the native path is taken without a host call).
  std::array<Object, next_steps::function_names.size()> own;
  // Keyword names of the calls the logic makes with keywords.
  std::array<Object, next_steps::function_names.size()> keywords;
  Object get, items, pop, warning, exc_info;
  std::unordered_map<std::string_view, Object> literals;  // views of the logic's constant texts

  template <class F>
  void for_each_object(F&& f) {
    for (Object& o : names) f(o);
    for (auto* group : {&function_names, &own, &keywords})
      for (Object& o : *group) f(o);
    for (Object* o : {&get, &items, &pop, &warning, &exc_info}) f(*o);
    for (auto& [key, o] : literals) f(o);
  }
};

// The state of a module object of ours; null before the execution slot ran.
inline State*& state_slot(PyObject* module) { return *static_cast<State**>(PyModule_GetState(module)); }

}  // namespace host
