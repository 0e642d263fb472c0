// The module's names kept until its namespace changes, instead of looked up
// at each read.
#pragma once

#include <cstdint>

#include "host_binding/object.hpp"
#include "next_steps/shortcuts.hpp"

namespace host {

// An object found under a name, with the count of watched changes read
// before it was looked up (0, which the count never reads: none found).  Borrowed: the namespace
// holds it, and can only stop holding it by an event that moves the count.
struct Binding {
  PyObject* found = nullptr;
  std::uint64_t changes = 0;
};

// Whether the name's kept binding is what a lookup would find now: only a
// watched namespace keeps names (`watcher` is its watcher, or -1), and
// there the count moves before any change, so a binding kept at the count
// that still stands is exactly what a lookup would find.  A missing name is
// never kept, so that it fails at each call as a lookup does.
inline bool may_take_namespace_cache(const next_steps::Settings& settings, int watcher, const Binding& kept,
                                     std::uint64_t now) {
  return settings.shortcuts.on(next_steps::Shortcut::namespace_cache) && watcher >= 0 && kept.changes == now;
}

}  // namespace host
