// The text of scalars as the host's JSON writer gives it: string tokens with
// their escapes, floats in the host's shortest round-trip layout.  Sizes are
// counted without building the text.
#pragma once

#include <array>
#include <bit>
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

// Bytes beyond one per code point: escapes and multi-byte UTF-8.  The plain
// walk, one code point at a time, and the reference of the fast one below.
template <class Char>
std::size_t extra_bytes(const Char* s, std::size_t n, bool& surrogate) {
  std::size_t extra = 0;
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

// A 64-bit word read as lanes of code units of one storage width.  Each test
// leaves its answer in the top bit of every lane, and no carry crosses from a
// lane into the next, so a lane's bit says only what that lane holds.
template <class Char>
struct Lanes {
  static constexpr unsigned bits = 8 * sizeof(Char);
  static constexpr std::size_t per_word = sizeof(std::uint64_t) / sizeof(Char);
  static constexpr std::uint64_t ones = ~std::uint64_t{0} / ((std::uint64_t{1} << bits) - 1);
  static constexpr std::uint64_t top = ones << (bits - 1);

  static constexpr std::uint64_t spread(std::uint64_t c) { return c * ones; }
  // Lanes holding at least n, for n up to the top bit's value.
  static constexpr std::uint64_t at_least(std::uint64_t w, std::uint64_t n) {
    return (((w & ~top) + spread((std::uint64_t{1} << (bits - 1)) - n)) | w) & top;
  }
  static constexpr std::uint64_t below(std::uint64_t w, std::uint64_t n) { return ~at_least(w, n) & top; }
  static constexpr std::uint64_t equal(std::uint64_t w, std::uint64_t c) { return below(w ^ spread(c), 1); }

  // Code units that need an escape in a string token.
  static constexpr std::uint64_t escapes(std::uint64_t w) { return below(w, 0x20) | equal(w, '"') | equal(w, '\\'); }
  static constexpr std::uint64_t surrogates(std::uint64_t w) {
    if constexpr (bits == 8) return 0;
    else return equal(w & spread(~std::uint64_t{0x7FF} & ((std::uint64_t{1} << bits) - 1)), 0xD800);
  }
  // UTF-8 bytes beyond the first of all lanes: one from U+0080, one more from
  // U+0800, one more from U+10000.  The lane sums stay below a lane's range,
  // so one multiply adds them all into the top lane.
  static constexpr std::size_t utf8_extra(std::uint64_t w) {
    std::uint64_t n = at_least(w, 0x80) >> (bits - 1);
    if constexpr (bits > 8) n += at_least(w, 0x800) >> (bits - 1);
    if constexpr (bits > 16) n += at_least(w, 0x10000) >> (bits - 1);
    return static_cast<std::size_t>((n * ones) >> (64 - bits));
  }
  // The lanes from the `skip`-th on, in memory order.
  static constexpr std::uint64_t from_lane(std::size_t skip) {
    if constexpr (std::endian::native == std::endian::little) return ~std::uint64_t{0} << (bits * skip);
    else return ~std::uint64_t{0} >> (bits * skip);
  }
};

// Adds to `extra` the extra_bytes of the code units in the lanes of `w` from
// the `skip`-th on, unless one of them needs an escape: a word with one is
// rare in real text and is left to the plain walk (false).
template <class Char>
bool add_word_extra(std::uint64_t w, std::size_t skip, std::size_t& extra, bool& surrogate) {
  using L = Lanes<Char>;
  if (skip) {
    const std::uint64_t keep = L::from_lane(skip);
    w = (w & keep) | (L::spread(' ') & ~keep);  // a space adds nothing
  }
  if (L::escapes(w)) return false;
  if (L::surrogates(w)) surrogate = true;
  extra += L::utf8_extra(w);
  return true;
}

// The word made of the code units at `head` then those at `tail`, half a word
// each, in memory order whatever the byte order.
inline std::uint64_t load_halves(const void* head, const void* tail) {
  unsigned char bytes[sizeof(std::uint64_t)];
  std::memcpy(bytes, head, sizeof bytes / 2);
  std::memcpy(bytes + sizeof bytes / 2, tail, sizeof bytes / 2);
  std::uint64_t w;
  std::memcpy(&w, bytes, sizeof w);
  return w;
}

// extra_bytes a word at a time.  No load reaches past the string's storage:
// the last word ends at the string's end and overlaps the one before, a
// string shorter than a word is read as two overlapping half words (the
// overlap skipped), and one shorter than half a word takes the plain walk.
template <class Char>
std::size_t extra_bytes_fast(const Char* s, std::size_t n, bool& surrogate) {
  constexpr std::size_t per_word = Lanes<Char>::per_word, half = per_word / 2;
  std::size_t extra = 0;
  if (n < per_word) {
    if (n < half || !add_word_extra<Char>(load_halves(s + n - half, s), per_word - n, extra, surrogate))
      return extra_bytes(s, n, surrogate);
    return extra;
  }
  std::size_t i = 0;
  for (; i + per_word <= n; i += per_word)
    if (!add_word_extra<Char>(load_halves(s + i, s + i + half), 0, extra, surrogate))
      extra += extra_bytes(s + i, per_word, surrogate);
  if (i < n && !add_word_extra<Char>(load_halves(s + n - per_word, s + n - half), per_word - (n - i), extra, surrogate))
    extra += extra_bytes(s + i, n - i, surrogate);
  return extra;
}

template <class Char>
std::size_t token_bytes(const void* data, std::size_t n, bool& surrogate) {
  return n + 2 + extra_bytes_fast(static_cast<const Char*>(data), n, surrogate);
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
