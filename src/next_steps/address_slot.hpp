// The slot of an address in a small table keyed by where things lie.
#pragma once

#include <cstddef>
#include <cstdint>

namespace next_steps {

// One of 2^Bits slots: the top bits of a multiplicative hash of the address
// without its lowest four bits, which objects mostly share.
template <unsigned Bits>
inline std::size_t address_slot(const void* p) {
  const auto bits = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(p) >> 4);
  return (bits * 0x9E3779B1u) >> (32 - Bits);
}

}  // namespace next_steps
