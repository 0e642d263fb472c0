// What the module keeps: interned names, its own function objects and a few
// host objects, all made by the execution slot and owned by the module
// object (no per-process state, so a failed import can be retried).
#pragma once

#include <array>
#include <functional>
#include <string_view>
#include <unordered_map>

#include "host_binding/object.hpp"
#include "next_steps/tables.hpp"
#include "next_steps/vocabulary.hpp"

namespace host {

// The logic's constant texts live as long as the program, each at one place,
// so a text is known by where it is: a lookup by address and length hashes
// no bytes.  A text met at two places is interned once all the same.
struct ConstantText {
  bool operator()(std::string_view a, std::string_view b) const {
    return a.data() == b.data() && a.size() == b.size();
  }
  std::size_t operator()(std::string_view s) const {
    return std::hash<const void*>{}(s.data()) ^ s.size();
  }
};

struct State {
  std::array<Object, next_steps::name_texts.size()> names;
  std::array<Object, next_steps::function_names.size()> function_names;
  // The module's own function objects by Fn, to tell whether a name still
  // holds them (then the native path is taken without a host call).
  std::array<Object, next_steps::function_names.size()> own;
  // Keyword names of the calls the logic makes with keywords.
  std::array<Object, next_steps::function_names.size()> keywords;
  Object get, items, pop, warning, exc_info;
  std::unordered_map<std::string_view, Object, ConstantText, ConstantText> literals;

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
