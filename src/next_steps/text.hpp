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

namespace next_steps {

// A read-only view of a string's code points, stored 1, 2 or 4 bytes wide.
// A lone surrogate is an ordinary code point here, as in the host.
struct StrView {
  const void* data = nullptr;
  std::size_t length = 0;
  int width = 1;
  bool ascii = false;  // every code point below U+0080 (width 1 only)

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

// Bytes that the escape of a code point below U+0080 adds to the raw byte.
constexpr std::array<std::uint8_t, 128> make_escape_extra() {
  std::array<std::uint8_t, 128> extra{};
  for (int c = 0; c < 0x20; ++c) extra[c] = 5;  // \u00XX
  for (int c : {'\b', '\f', '\n', '\r', '\t', '"', '\\'}) extra[c] = 1;
  return extra;
}
inline constexpr auto escape_extra = make_escape_extra();

template <class Char>
std::size_t compact_bytes(const Char* s, std::size_t n, bool& surrogate) {
  std::size_t bytes = n + 2;
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint32_t c = s[i];
    if (c < 0x80) {
      bytes += escape_extra[c];
    } else if (c < 0x800) {
      bytes += 1;
    } else if (c < 0x10000) {
      bytes += 2;
      if (is_surrogate(c)) surrogate = true;
    } else {
      bytes += 3;
    }
  }
  return bytes;
}

inline constexpr char hex_digits[] = "0123456789abcdef";

// The short escape of a code point below U+0020 or of `"` and `\`, or 0.
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
    case 1: {
      auto p = static_cast<const std::uint8_t*>(s.data);
      if (s.ascii) {
        std::size_t bytes = s.length + 2;
        for (std::size_t i = 0; i < s.length; ++i) bytes += detail::escape_extra[p[i]];
        return bytes;
      }
      return detail::compact_bytes(p, s.length, surrogate);
    }
    case 2: return detail::compact_bytes(static_cast<const std::uint16_t*>(s.data), s.length, surrogate);
    default: return detail::compact_bytes(static_cast<const std::uint32_t*>(s.data), s.length, surrogate);
  }
}

// Appends the string token with every code point outside U+0020..U+007E
// escaped; astral code points become their UTF-16 surrogate pair.
inline void append_ascii_token(std::string& out, const StrView& s) {
  out.push_back('"');
  for (std::size_t i = 0; i < s.length; ++i) {
    const std::uint32_t c = s[i];
    if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
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

// The host's text of a double: shortest round-trip digits, positional for
// decimal exponents -4..15, otherwise d.ddde+XX; NaN and the infinities as
// the JSON writer spells them.  Returns the length written into `buf`.
inline std::size_t float_text(double v, char (&buf)[32]) {
  if (std::isnan(v)) return std::strlen(std::strcpy(buf, "NaN"));
  if (std::isinf(v)) return std::strlen(std::strcpy(buf, v > 0 ? "Infinity" : "-Infinity"));
  char sci[32];
  const auto res = std::to_chars(sci, sci + sizeof sci, v, std::chars_format::scientific);
  const char* end = res.ptr;
  const char* p = sci;
  char* out = buf;
  if (*p == '-') *out++ = *p++;
  char digits[20];
  std::size_t nd = 0;
  for (; *p != 'e'; ++p)
    if (*p != '.') digits[nd++] = *p;
  int exp = 0;
  std::from_chars(p + 1 + (p[1] == '+'), end, exp);
  if (exp >= -4 && exp <= 15) {
    if (exp < 0) {
      *out++ = '0';
      *out++ = '.';
      for (int i = -1; i > exp; --i) *out++ = '0';
      for (std::size_t i = 0; i < nd; ++i) *out++ = digits[i];
    } else {
      const std::size_t whole = static_cast<std::size_t>(exp) + 1;
      for (std::size_t i = 0; i < whole; ++i) *out++ = i < nd ? digits[i] : '0';
      *out++ = '.';
      if (nd > whole)
        for (std::size_t i = whole; i < nd; ++i) *out++ = digits[i];
      else
        *out++ = '0';
    }
  } else {
    *out++ = digits[0];
    if (nd > 1) {
      *out++ = '.';
      for (std::size_t i = 1; i < nd; ++i) *out++ = digits[i];
    }
    *out++ = 'e';
    *out++ = exp < 0 ? '-' : '+';
    const int a = exp < 0 ? -exp : exp;
    if (a < 10) *out++ = '0';
    out = std::to_chars(out, buf + sizeof buf, a).ptr;
  }
  return static_cast<std::size_t>(out - buf);
}

// Decimal digits of a machine integer, with its sign.
inline std::size_t int_text_length(long long v) {
  std::size_t n = v < 0 ? 2 : 1;
  unsigned long long u = v < 0 ? 0ULL - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
  while (u >= 10) {
    u /= 10;
    ++n;
  }
  return n;
}

}  // namespace next_steps
