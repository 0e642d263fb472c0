// The module's constant texts made once and sized once, kept by address,
// instead of made and measured anew each time.
#pragma once

#include <array>
#include <string_view>

#include "host_binding/leaves.hpp"
#include "host_binding/object.hpp"
#include "next_steps/address_slot.hpp"
#include "next_steps/shortcuts.hpp"
#include "next_steps/text.hpp"

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
  bool holds(const PyObject* text) const { return slots_[slot_of(text)].text == text; }
  std::size_t bytes(const PyObject* text) const { return slots_[slot_of(text)].bytes; }

 private:
  struct Slot {
    const PyObject* text = nullptr;
    std::size_t bytes = 0;
  };
  static constexpr std::size_t slots = 256;
  static std::size_t slot_of(const PyObject* text) { return next_steps::address_slot<slots>(text); }
  std::array<Slot, slots> slots_;
};

// Whether a text's size is known: it is a constant that the table holds
// at its address (a constant lives as long as the module, so no other
// object can take its address while it is known).
inline bool may_take_constant_texts(const next_steps::Settings& settings, const ConstantSizes& sizes,
                                    const PyObject* text) {
  return settings.shortcuts.on(next_steps::Shortcut::constant_texts) && sizes.holds(text);
}

}  // namespace host
