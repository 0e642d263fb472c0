// The slot of an address in a small table keyed by where things lie.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace next_steps {

// One of Slots slots, a power of two: the top bits of a multiplicative hash
// of the address without its lowest four bits, which objects mostly share.
template <std::size_t Slots>
inline std::size_t address_slot(const void* p) {
  static_assert(std::has_single_bit(Slots) && Slots > 1 && Slots <= (std::size_t{1} << 32));
  constexpr int bits = std::countr_zero(Slots);
  const auto hashed = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(p) >> 4);
  return (hashed * 0x9E3779B1u) >> (32 - bits);
}

}  // namespace next_steps
