// The text of scalars as the host's JSON writer gives it: string tokens with
// their escapes, floats in the host's shortest round-trip layout.  Sizes are
// counted without building the text.
#pragma once

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace next_steps {

// A read-only view of a string's code points, stored 1, 2 or 4 bytes wide.
// A lone surrogate is an ordinary code point here, as in the host.
struct StrView {
  const void* data = nullptr;
  std::size_t length = 0;
  int width = 1;

  std::uint32_t operator[](std::size_t i) const {
    switch (width) {
      case 1: return static_cast<const std::uint8_t*>(data)[i];
      case 2: return static_cast<const std::uint16_t*>(data)[i];
      default: return static_cast<const std::uint32_t*>(data)[i];
    }
  }
};

inline constexpr bool is_surrogate(std::uint32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

namespace detail {

// The escape rule of the host's JSON writer, the one place it is written:
// `"`, `\` and the code points below U+0020 are escaped, these seven with
// a backslash and a letter (or themselves), every other one as \u00XX.  The
// byte table and the writers below are made from it.
constexpr char short_escape(std::uint32_t c) {
  switch (c) {
    case '"': return '"';
    case '\\': return '\\';
    case '\b': return 'b';
    case '\f': return 'f';
    case '\n': return 'n';
    case '\r': return 'r';
    case '\t': return 't';
    default: return 0;
  }
}
constexpr bool is_escaped(std::uint32_t c) { return c < 0x20 || short_escape(c); }
// The bytes an escape adds to the one byte of its code point.
constexpr std::uint8_t escape_extra_of(std::uint32_t c) {
  return short_escape(c) ? 1 : c < 0x20 ? 5 : 0;
}

// Bytes beyond one that a code point below U+0100 takes: what its escape
// adds below U+0080, the second UTF-8 byte from there.
constexpr std::array<std::uint8_t, 256> make_escape_extra() {
  std::array<std::uint8_t, 256> extra{};
  for (std::uint32_t c = 0; c < 0x100; ++c) extra[c] = c < 0x80 ? escape_extra_of(c) : 1;
  return extra;
}
inline constexpr auto escape_extra = make_escape_extra();

inline constexpr std::uint64_t low_bits = 0x0101010101010101, high_bits = 0x8080808080808080;

// Whether one of eight code points below U+0100 is escaped: below U+0020,
// or `"` or `\`.  Each is told by its low seven bits (below 0x20, or equal
// to one of the two after an exclusive or), sums that carry into no other
// byte, and the top bit clear.
constexpr bool has_escaped_byte(std::uint64_t word) {
  const std::uint64_t low = word & ~high_bits;
  const std::uint64_t at_least_space = low + 0x60 * low_bits;  // top bit set from 0x20 on
  const std::uint64_t not_quote = (low ^ ('"' * low_bits)) + 0x7F * low_bits;  // top bit set unless 0x22
  const std::uint64_t not_backslash = (low ^ ('\\' * low_bits)) + 0x7F * low_bits;
  return (~(at_least_space & not_quote & not_backslash) & ~word & high_bits) != 0;
}

// Bytes beyond one per code point: escapes and multi-byte UTF-8.
template <class Char>
std::size_t extra_bytes(const Char* s, std::size_t n, bool& surrogate) {
  std::size_t extra = 0;
  if constexpr (sizeof(Char) == 1) {
    // A one-byte text's every code point has its extra bytes in the table
    // (U+0080 to U+00FF take one), so its loop has no branch to mispredict
    // and nothing to tell apart: most texts of an answer are of this width.
    // Eight at a time, most take nothing but their second UTF-8 bytes
    // (counted from their top bits), so only eight that hold an escaped
    // code point are looked up one by one.
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
      std::uint64_t word;
      std::memcpy(&word, s + i, 8);
      if (has_escaped_byte(word)) {
        for (std::size_t j = i; j < i + 8; ++j) extra += escape_extra[s[j]];
      } else {
        extra += static_cast<std::size_t>((((word & high_bits) >> 7) * low_bits) >> 56);
      }
    }
    for (; i < n; ++i) extra += escape_extra[s[i]];
    return extra;
  }
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint32_t c = s[i];
    if (c < 0x80) {
      extra += escape_extra[c];
    } else if (c < 0x800) {
      extra += 1;
    } else if (c < 0x10000) {
      extra += 2;
      if (is_surrogate(c)) surrogate = true;
    } else {
      extra += 3;
    }
  }
  return extra;
}

template <class Char>
std::size_t token_bytes(const void* data, std::size_t n, bool& surrogate) {
  return n + 2 + extra_bytes(static_cast<const Char*>(data), n, surrogate);
}

inline constexpr char hex_digits[] = "0123456789abcdef";

template <class Out>
void put_u_escape(Out& out, std::uint32_t unit) {
  const char text[6] = {'\\', 'u', hex_digits[(unit >> 12) & 0xF], hex_digits[(unit >> 8) & 0xF],
                        hex_digits[(unit >> 4) & 0xF], hex_digits[unit & 0xF]};
  out.append(text, 6);
}

}  // namespace detail

// UTF-8 bytes of the string token (quotes included) with non-ASCII written
// unchanged.  A lone surrogate cannot be encoded: `surrogate` is set and the
// count goes on, as the host writes the whole text before it encodes it.
inline std::size_t compact_token_bytes(const StrView& s, bool& surrogate) {
  switch (s.width) {
    case 1: return detail::token_bytes<std::uint8_t>(s.data, s.length, surrogate);
    case 2: return detail::token_bytes<std::uint16_t>(s.data, s.length, surrogate);
    default: return detail::token_bytes<std::uint32_t>(s.data, s.length, surrogate);
  }
}

// Appends the string token with every code point outside U+0020..U+007E
// escaped; astral code points become their UTF-16 surrogate pair.
inline void append_ascii_token(std::string& out, const StrView& s) {
  out.push_back('"');
  for (std::size_t i = 0; i < s.length; ++i) {
    const std::uint32_t c = s[i];
    if (c < 0x7F && !detail::is_escaped(c)) {
      out.push_back(static_cast<char>(c));
    } else if (char e = detail::short_escape(c)) {
      out.push_back('\\');
      out.push_back(e);
    } else if (c < 0x10000) {
      detail::put_u_escape(out, c);
    } else {
      const std::uint32_t v = c - 0x10000;
      detail::put_u_escape(out, 0xD800 | (v >> 10));
      detail::put_u_escape(out, 0xDC00 | (v & 0x3FF));
    }
  }
  out.push_back('"');
}

// Appends the string token as code points, non-ASCII unchanged: the compact
// text itself, which is only built to let the host report an encoding error.
inline void append_raw_token(std::u32string& out, const StrView& s) {
  struct Sink {
    std::u32string& out;
    void append(const char* p, std::size_t n) { out.append(p, p + n); }
  } sink{out};
  out.push_back(U'"');
  for (std::size_t i = 0; i < s.length; ++i) {
    const std::uint32_t c = s[i];
    if (char e = detail::short_escape(c)) {
      out.push_back(U'\\');
      out.push_back(static_cast<char32_t>(e));
    } else if (c < 0x20) {
      detail::put_u_escape(sink, c);
    } else {
      out.push_back(static_cast<char32_t>(c));
    }
  }
  out.push_back(U'"');
}

namespace detail {

// The shape of a finite double's shortest round-trip digits: sign, how many
// significant digits, decimal exponent, from the scientific text
// "-d.ddde+XX" of the general algorithm.
struct Scientific {
  bool negative = false;
  std::size_t digits = 0;
  int exp = 0;
  char text[32];

  explicit Scientific(double v) {
    const char* end = std::to_chars(text, text + sizeof text, v, std::chars_format::scientific).ptr;
    negative = text[0] == '-';
    const char* e = static_cast<const char*>(std::memchr(text, 'e', static_cast<std::size_t>(end - text)));
    const auto mantissa = static_cast<std::size_t>(e - text) - negative;
    digits = mantissa > 1 ? mantissa - 1 : 1;
    std::from_chars(e + 1 + (e[1] == '+'), end, exp);
  }
  char digit(std::size_t i) const { return text[negative + (i ? i + 1 : 0)]; }
  // Positional notation for decimal exponents -4..15, as the host lays it out.
  bool positional() const { return exp >= -4 && exp <= 15; }
};

// The decimal digits of m > 0: the bit length gives the digits but for one,
// which a power of ten decides.
inline std::size_t decimal_digits(std::uint64_t m) {
  static constexpr std::uint64_t powers[] = {1ULL,
                                             10ULL,
                                             100ULL,
                                             1'000ULL,
                                             10'000ULL,
                                             100'000ULL,
                                             1'000'000ULL,
                                             10'000'000ULL,
                                             100'000'000ULL,
                                             1'000'000'000ULL,
                                             10'000'000'000ULL,
                                             100'000'000'000ULL,
                                             1'000'000'000'000ULL,
                                             10'000'000'000'000ULL,
                                             100'000'000'000'000ULL,
                                             1'000'000'000'000'000ULL,
                                             10'000'000'000'000'000ULL,
                                             100'000'000'000'000'000ULL,
                                             1'000'000'000'000'000'000ULL,
                                             10'000'000'000'000'000'000ULL};
  const auto below = static_cast<std::size_t>(((64 - __builtin_clzll(m)) * 1233) >> 12);  // floor(log10(2^bits))
  return below + (m >= powers[below]);
}

}  // namespace detail

// The host's text of a double: shortest round-trip digits, positional for
// decimal exponents -4..15, otherwise d.ddde+XX; NaN and the infinities as
// the JSON writer spells them.  Returns the length written into `buf`.
inline std::size_t float_text(double v, char (&buf)[32]) {
  if (std::isnan(v)) return std::strlen(std::strcpy(buf, "NaN"));
  if (std::isinf(v)) return std::strlen(std::strcpy(buf, v > 0 ? "Infinity" : "-Infinity"));
  const detail::Scientific d(v);
  const std::size_t nd = d.digits;
  char* out = buf;
  if (d.negative) *out++ = '-';
  if (d.positional()) {
    if (d.exp < 0) {
      *out++ = '0';
      *out++ = '.';
      for (int i = -1; i > d.exp; --i) *out++ = '0';
      for (std::size_t i = 0; i < nd; ++i) *out++ = d.digit(i);
    } else {
      const std::size_t whole = static_cast<std::size_t>(d.exp) + 1;
      for (std::size_t i = 0; i < whole; ++i) *out++ = i < nd ? d.digit(i) : '0';
      *out++ = '.';
      if (nd > whole)
        for (std::size_t i = whole; i < nd; ++i) *out++ = d.digit(i);
      else
        *out++ = '0';
    }
  } else {
    *out++ = d.digit(0);
    if (nd > 1) {
      *out++ = '.';
      for (std::size_t i = 1; i < nd; ++i) *out++ = d.digit(i);
    }
    *out++ = 'e';
    *out++ = d.exp < 0 ? '-' : '+';
    const int a = d.exp < 0 ? -d.exp : d.exp;
    if (a < 10) *out++ = '0';
    out = std::to_chars(out, buf + sizeof buf, a).ptr;
  }
  return static_cast<std::size_t>(out - buf);
}

// The length of float_text, without laying the text out.
inline std::size_t float_text_length(double v) {
  if (std::isnan(v)) return 3;
  if (std::isinf(v)) return v > 0 ? 8 : 9;
  const detail::Scientific d(v);
  const std::size_t nd = d.digits;
  std::size_t n = d.negative;
  if (!d.positional()) {
    const int a = d.exp < 0 ? -d.exp : d.exp;
    return n + nd + (nd > 1) + 2 + (a < 100 ? 2 : 3);  // e, sign, two or three digits
  }
  if (d.exp < 0) return n + 2 + static_cast<std::size_t>(-d.exp - 1) + nd;  // 0. then zeros
  const std::size_t whole = static_cast<std::size_t>(d.exp) + 1;
  return n + whole + 1 + (nd > whole ? nd - whole : 1);
}

// Decimal digits of a machine integer, with its sign.
inline std::size_t int_text_length(long long v) {
  const unsigned long long u = v < 0 ? 0ULL - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
  return (v < 0) + (u ? detail::decimal_digits(u) : 1);
}

}  // namespace next_steps
