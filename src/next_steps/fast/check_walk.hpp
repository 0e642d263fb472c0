// Values that cannot fail to encode, not looked at by the walk that counts
// an answer's hint bytes while its size waits (budget.hpp).
#pragma once

#include <cstddef>

#include "next_steps/address_slot.hpp"
#include "next_steps/model.hpp"

namespace next_steps {

// Whether the check walk may pass over a value of this kind: outside tuples
// and hint fields' values it only looks for what fails to encode, and a
// one-byte text, an int within a double's range and a float always encode.
// A key passed over is only asked whether it names a hint field.
template <class M, class Sink>
[[gnu::always_inline]] inline bool may_take_check_walk(M& m, const Sink& sink, const typename M::Value& v, Kind kind) {
  if (sink.nested_past_hint_walk != 0) return false;
  switch (kind) {
    case Kind::str: return m.str_width(v) == 1;
    case Kind::integer: return m.int_is_short(v);
    case Kind::real: return true;
    default: return false;
  }
}

// The one-byte keys met so far that name no hint field, by identity, for a
// walk that runs no host code (so every key it met lives on).  A key whose
// place is taken is looked at again.
class PlainKeys {
 public:
  bool holds(const void* key) const { return keys_[slot_of(key)] == key; }
  void add(const void* key) { keys_[slot_of(key)] = key; }

 private:
  static constexpr std::size_t slots = 64;
  static std::size_t slot_of(const void* key) { return address_slot<slots>(key); }
  const void* keys_[slots] = {};
};

}  // namespace next_steps
