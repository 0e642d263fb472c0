// Values that cannot fail to encode, not looked at by the walk that counts
// an answer's hint bytes while its size waits (fast/deferred_size.hpp).
#pragma once

#include <cstddef>
#include <type_traits>

#include "next_steps/address_slot.hpp"
#include "next_steps/model.hpp"

namespace next_steps {

// A check walk's sink (HintCheckSink, encoding.hpp) whose walk passes over
// what cannot fail: outside tuples and hint fields' values the walk only
// looks for what fails to encode, and a one-byte text, an int within a
// double's range and a float always encode.  A one-byte key is only asked
// whether it names a hint field, and one met before that names none, not
// even that.
template <class Sink>
struct SafeValuesSkipped : Sink {
  static constexpr bool skips_safe_values = true;
};

template <class Sink>
concept SkipsSafeValues = requires { requires Sink::skips_safe_values; };

// Whether the check walk may pass over a value of this kind.
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

// What a walk keeps of the keys it passed over: nothing, unless it passes.
struct NoPlainKeys {};
template <class Sink>
using PassedKeys = std::conditional_t<SkipsSafeValues<Sink>, PlainKeys, NoPlainKeys>;

// Whether a one-byte key passed over names a hint field, its size not
// needed.
template <class M>
[[gnu::always_inline]] inline bool passed_key_names_hint(M& m, PlainKeys& keys, const typename M::Value& k) {
  const void* id = m.identity(k);
  if (keys.holds(id)) return false;
  const bool hint = m.is_hint_key(k);
  if (!hint) keys.add(id);
  return hint;
}

}  // namespace next_steps
