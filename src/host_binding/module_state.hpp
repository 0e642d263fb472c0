// What the module keeps: interned names, its own function objects and a few
// host objects, all made by the execution slot and owned by the module
// object (no per-process state, so a failed import can be retried and every
// interpreter has its own; the one count shared by all is below).
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string_view>

#include "host_binding/fast/constant_texts.hpp"
#include "host_binding/fast/namespace_cache.hpp"
#include "host_binding/leaves.hpp"
#include "host_binding/object.hpp"
#include "next_steps/address_slot.hpp"
#include "next_steps/shortcuts.hpp"
#include "next_steps/tables.hpp"
#include "next_steps/text.hpp"
#include "next_steps/vocabulary.hpp"

namespace host {

// Counts the changes of the dicts the module watches: its namespaces, whose
// names are kept (see State::bound_to).  The host's watcher callback bumps
// it on every add, change, removal, clear, clone or deallocation of such a
// dict, before the change takes effect and under the lock of the dict's interpreter, so what was read at the count
// still read now (under that same lock) was read after the last change.
//
// One count for all module objects, dicts and interpreters: the callback is
// told the dict and not what it is to the module, nor which module object's
// watcher it is.  Interpreters with their own GIL bump and read it at the
// same time, hence the atomic; relaxed is enough, as a reader only needs to
// see the bumps of its own interpreter, which its GIL orders before the
// read.  Another interpreter's bump moves the count too, and only makes a
// kept name looked up once more: these dicts change rarely (the bench's
// calls move it never), and an x86 or ARM load of it costs what a plain one
// does, where a count per interpreter would cost a lookup of the interpreter's state in the callback and one more
// indirection at every read.
inline std::atomic<std::uint64_t> watched_changes = 1;

struct State {
  // Read from the environment when the module object is made.
  next_steps::Settings settings;
  std::array<Object, next_steps::name_texts.size()> names;
  std::array<Object, next_steps::function_names.size()> function_names;
  // The module's own function objects by Fn, to tell whether a name still
  // holds them (then the native path is taken without a host call).
  std::array<Object, next_steps::function_names.size()> own;
  // Keyword names of the calls the logic makes with keywords.
  std::array<Object, next_steps::function_names.size()> keywords;
  Object get, items, pop, warning, exc_info;
  Literals literals;
  ConstantSizes constant_sizes;
  // The host's watcher of the namespace, or -1 without one (an interpreter
  // has a few watcher slots; without one every read looks the name up).
  int watcher = -1;
  std::array<Binding, next_steps::function_names.size()> bindings;

  // What the name of function f holds in the namespace `dict`, as
  // PyDict_GetItemWithError says it: null for a missing name, with an error
  // set when the lookup failed.  A name found is kept, with the count read
  // before the lookup, so that a change made while the lookup ran (a key's
  // __eq__ may run host code) leaves it stale.
  PyObject* bound_to(PyObject* dict, std::size_t f) {
    Binding& b = bindings[f];
    const std::uint64_t now = watched_changes.load(std::memory_order_relaxed);
    if (may_take_namespace_cache(settings, watcher, b, now)) return b.found;
    PyObject* found = PyDict_GetItemWithError(dict, function_names[f].get());
    if (found) b = {found, now};
    return found;
  }

  template <class F>
  void for_each_object(F&& f) {
    for (Object& o : names) f(o);
    for (auto* group : {&function_names, &own, &keywords})
      for (Object& o : *group) f(o);
    for (Object* o : {&get, &items, &pop, &warning, &exc_info}) f(*o);
    literals.for_each(f);
  }
};

// The state of a module object of ours; null before the execution slot ran.
inline State*& state_slot(PyObject* module) { return *static_cast<State**>(PyModule_GetState(module)); }

}  // namespace host
