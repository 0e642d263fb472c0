// What the module keeps: interned names, its own function objects and a few
// host objects, all made by the execution slot and owned by the module
// object (no per-process state, so a failed import can be retried and every
// interpreter has its own; the one count shared by all is below).
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string_view>

#include "host_binding/fast/namespace_cache.hpp"
#include "host_binding/leaves.hpp"
#include "host_binding/object.hpp"
#include "next_steps/address_slot.hpp"
#include "next_steps/shortcuts.hpp"
#include "next_steps/tables.hpp"
#include "next_steps/text.hpp"
#include "next_steps/vocabulary.hpp"

namespace host {

// The host texts of the logic's constant texts.  Those live as long as the
// program, each at one place, so a text is known by where it is: a lookup
// by address and length hashes no bytes and divides nothing.  A text met at
// two places is interned once all the same.  The logic has a few dozen; a
// table that fills up takes no more, and the texts past it are made anew
// each time they are asked for.
class Literals {
 public:
  struct Slot {
    const char* data = nullptr;
    std::size_t size = 0;
    Object text;  // none in an empty slot
  };
  // The slot that holds the text, else the empty one where it goes; null
  // when neither is left.
  Slot* slot_for(std::string_view s) {
    for (std::size_t i = slot_of(s), probes = 0; probes < slots_.size(); ++probes, i = (i + 1) % slots_.size()) {
      Slot& slot = slots_[i];
      if (!slot.text || (slot.data == s.data() && slot.size == s.size())) return &slot;
    }
    return nullptr;
  }
  template <class F>
  void for_each(F&& f) {
    for (Slot& slot : slots_) f(slot.text);
  }

 private:
  static constexpr std::size_t slots = 128;
  static std::size_t slot_of(std::string_view s) { return next_steps::address_slot<slots>(s.data()); }
  std::array<Slot, slots> slots_;
};

// The compact token sizes of the module's constant texts (names and
// literals) by address: steps are measured from their texts, and most of
// those are constants.  A constant lives as long as the module, so no other
// object can take its address while it is known.  One whose slot is taken
// is measured each time.
class ConstantSizes {
 public:
  void remember(const Object& text) {
    Slot& slot = slots_[slot_of(text.get())];
    if (slot.text) return;
    bool surrogate = false;  // a constant has none
    slot = {text.get(), next_steps::compact_token_bytes(view_of(text.get()), surrogate)};
  }
  const std::size_t* find(const PyObject* text) const {
    const Slot& slot = slots_[slot_of(text)];
    return slot.text == text ? &slot.bytes : nullptr;
  }

 private:
  struct Slot {
    const PyObject* text = nullptr;
    std::size_t bytes = 0;
  };
  static constexpr std::size_t slots = 256;
  static std::size_t slot_of(const PyObject* text) { return next_steps::address_slot<slots>(text); }
  std::array<Slot, slots> slots_;
};

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
