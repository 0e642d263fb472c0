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

#if defined(__x86_64__) || defined(_M_X64)
#include <immintrin.h>
#endif

namespace next_steps {

// A read-only view of a string's code points, stored 1, 2 or 4 bytes wide.
// A lone surrogate is an ordinary code point here, as in the host.  `ascii`
// says that the storage is known to hold no code point from U+0080.
struct StrView {
  const void* data = nullptr;
  std::size_t length = 0;
  int width = 1;
  bool ascii = false;

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
// byte table and the writers below are made from it; the vector lane tests
// restate it for a whole vector at once, and the native suite checks them
// against it for every code unit.
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

#if defined(__x86_64__) || defined(_M_X64)
// Sixteen bytes of code units of one storage width as the lanes of an SSE2
// vector, part of every x86-64: the count of short strings, and of all
// strings where the CPU has no AVX2.  Each test sets all bits of the lanes
// where it holds.
template <class Char>
struct Lanes {
  static constexpr std::size_t count = sizeof(__m128i) / sizeof(Char);

  static __m128i spread(std::uint32_t c) {
    if constexpr (sizeof(Char) == 1) return _mm_set1_epi8(static_cast<char>(c));
    else if constexpr (sizeof(Char) == 2) return _mm_set1_epi16(static_cast<short>(c));
    else return _mm_set1_epi32(static_cast<int>(c));
  }
  static __m128i equal(__m128i v, std::uint32_t c) {
    if constexpr (sizeof(Char) == 1) return _mm_cmpeq_epi8(v, spread(c));
    else if constexpr (sizeof(Char) == 2) return _mm_cmpeq_epi16(v, spread(c));
    else return _mm_cmpeq_epi32(v, spread(c));
  }
  // Lanes holding less than n (n > 0).  Four-byte code points stay below
  // 2^31, so the signed comparison serves there.
  static __m128i below(__m128i v, std::uint32_t n) {
    if constexpr (sizeof(Char) == 1) return _mm_cmpeq_epi8(_mm_subs_epu8(v, spread(n - 1)), _mm_setzero_si128());
    else if constexpr (sizeof(Char) == 2) return _mm_cmpeq_epi16(_mm_subs_epu16(v, spread(n - 1)), _mm_setzero_si128());
    else return _mm_cmplt_epi32(v, spread(n));
  }
  static __m128i escapes(__m128i v) {
    return _mm_or_si128(below(v, 0x20), _mm_or_si128(equal(v, '"'), equal(v, '\\')));
  }
  // Per lane, the bytes its escape adds (in the lane's low byte): one for
  // \" \\ \b \t \n \f \r, five for any other control character, \u00XX.
  static __m128i escape_extra(__m128i v) {
    const __m128i short_control =
        _mm_or_si128(_mm_or_si128(equal(v, '\b'), equal(v, '\t')),
                     _mm_or_si128(equal(v, '\n'), _mm_or_si128(equal(v, '\f'), equal(v, '\r'))));
    const __m128i one = _mm_and_si128(escapes(v), spread(1));
    const __m128i four = _mm_andnot_si128(short_control, _mm_and_si128(below(v, 0x20), spread(4)));
    return _mm_add_epi8(one, four);
  }
  static __m128i surrogates(__m128i v) {
    if constexpr (sizeof(Char) == 1) return _mm_setzero_si128();
    else return equal(_mm_and_si128(v, spread(~std::uint32_t{0x7FF})), 0xD800);
  }
  // Per lane, the UTF-8 bytes beyond the first: one from U+0080, one more
  // from U+0800, one more from U+10000 (at most 3, in the lane's low byte).
  static __m128i utf8_extra(__m128i v) {
    const __m128i one = spread(1);
    __m128i n = _mm_andnot_si128(below(v, 0x80), one);
    if constexpr (sizeof(Char) > 1) n = _mm_add_epi8(n, _mm_andnot_si128(below(v, 0x800), one));
    if constexpr (sizeof(Char) > 2) n = _mm_add_epi8(n, _mm_andnot_si128(below(v, 0x10000), one));
    return n;
  }
  // The lanes from the `skip`-th on.
  static __m128i from_lane(std::size_t skip) {
    alignas(16) static constexpr unsigned char edge[32] = {0,    0,    0,    0,    0,    0,    0,    0,
                                                           0,    0,    0,    0,    0,    0,    0,    0,
                                                           0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                                           0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(edge + 16 - skip * sizeof(Char)));
  }
  static __m128i load(const Char* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); }
  // Half a vector from `head`, then half from `tail`.
  static __m128i load_halves(const Char* head, const Char* tail) {
    return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(head)),
                              _mm_loadl_epi64(reinterpret_cast<const __m128i*>(tail)));
  }
};

// Sums the extra bytes of vectors of code units, lane-wise until the end.
// In ASCII text only escapes add bytes.
template <class Char, bool Ascii>
class VectorCount {
 public:
  using L = Lanes<Char>;

  // Counts the lanes of `v` from the `skip`-th on.
  void add(__m128i v, std::size_t skip) {
    if (skip) {
      const __m128i keep = L::from_lane(skip);
      v = _mm_or_si128(_mm_and_si128(v, keep), _mm_andnot_si128(keep, L::spread(' ')));  // a space adds nothing
    }
    // Escapes are rare in real text, so they are weighed only where found.
    if (_mm_movemask_epi8(L::escapes(v))) sum(L::escape_extra(v));
    if constexpr (!Ascii) {
      lone_ = _mm_or_si128(lone_, L::surrogates(v));
      sum(L::utf8_extra(v));
    }
  }
  std::size_t total(bool& surrogate) const {
    if (_mm_movemask_epi8(lone_)) surrogate = true;
    const __m128i sum = _mm_add_epi64(sums_, _mm_unpackhi_epi64(sums_, sums_));
    return static_cast<std::size_t>(_mm_cvtsi128_si64(sum));
  }

 private:
  void sum(__m128i bytes) { sums_ = _mm_add_epi64(sums_, _mm_sad_epu8(bytes, _mm_setzero_si128())); }

  __m128i sums_ = _mm_setzero_si128(), lone_ = _mm_setzero_si128();
};

// extra_bytes a vector at a time.  No load reaches past the string's
// storage: the last vector ends at the string's end and overlaps the one
// before, a string shorter than a vector is read as two overlapping halves
// (the overlap skipped), and one shorter than half a vector is counted a code
// point at a time: a one-byte string by a look-up of the byte table alone,
// a wider one by the plain walk.
template <class Char, bool Ascii = false>
std::size_t extra_bytes_sse2(const Char* s, std::size_t n, bool& surrogate) {
  using L = Lanes<Char>;
  constexpr std::size_t lanes = L::count, half = lanes / 2;
  if (n < half) {
    if constexpr (sizeof(Char) == 1) {
      std::size_t extra = 0;  // one look-up per code point, no branch
      for (std::size_t i = 0; i < n; ++i) extra += escape_extra[s[i]];
      return extra;
    } else {
      return extra_bytes(s, n, surrogate);
    }
  }
  VectorCount<Char, Ascii> count;
  if (n < lanes) {
    count.add(L::load_halves(s + n - half, s), lanes - n);
    return count.total(surrogate);
  }
  std::size_t i = 0;
  for (; i + lanes <= n; i += lanes) count.add(L::load(s + i), 0);
  if (i < n) count.add(L::load(s + n - lanes), lanes - (n - i));
  return count.total(surrogate);
}

// The same count on the 32 bytes of an AVX2 vector, which a CPU may lack:
// every function that touches one is compiled for AVX2 alone and is only
// called once the CPU is known to have it (cpu_has_avx2).  The lane tests
// are those of Lanes, but for how two- and four-byte lanes are compared with
// a bound: shifted right, a lane below 2^bits is zero.  That needs no
// constant vector, and the compiler rebuilds such constants in the loop for
// every vector once it runs short of registers.
#define NEXT_STEPS_AVX2 [[gnu::target("avx2")]]

template <class Char>
struct WideLanes {
  static constexpr std::size_t count = sizeof(__m256i) / sizeof(Char);
  // The UTF-8 bounds a lane can pass (U+0080, U+0800, U+10000): one more
  // byte for each.
  static constexpr std::size_t bounds = sizeof(Char) == 4 ? 3 : sizeof(Char);

  NEXT_STEPS_AVX2 static __m256i spread(std::uint32_t c) {
    if constexpr (sizeof(Char) == 1) return _mm256_set1_epi8(static_cast<char>(c));
    else if constexpr (sizeof(Char) == 2) return _mm256_set1_epi16(static_cast<short>(c));
    else return _mm256_set1_epi32(static_cast<int>(c));
  }
  NEXT_STEPS_AVX2 static __m256i equal(__m256i v, std::uint32_t c) {
    if constexpr (sizeof(Char) == 1) return _mm256_cmpeq_epi8(v, spread(c));
    else if constexpr (sizeof(Char) == 2) return _mm256_cmpeq_epi16(v, spread(c));
    else return _mm256_cmpeq_epi32(v, spread(c));
  }
  template <int Bits>
  NEXT_STEPS_AVX2 static __m256i shifted(__m256i v) {
    if constexpr (sizeof(Char) == 2) return _mm256_srli_epi16(v, Bits);
    else return _mm256_srli_epi32(v, Bits);
  }
  // Lanes below 2^Bits.  Bytes have no shift; they subtract the bound.
  template <int Bits>
  NEXT_STEPS_AVX2 static __m256i below(__m256i v) {
    const __m256i zero = _mm256_setzero_si256();
    if constexpr (sizeof(Char) == 1) return _mm256_cmpeq_epi8(_mm256_subs_epu8(v, spread((1u << Bits) - 1)), zero);
    else if constexpr (sizeof(Char) == 2) return _mm256_cmpeq_epi16(shifted<Bits>(v), zero);
    else return _mm256_cmpeq_epi32(shifted<Bits>(v), zero);
  }
  NEXT_STEPS_AVX2 static __m256i escapes(__m256i v) {
    return _mm256_or_si256(below<5>(v), _mm256_or_si256(equal(v, '"'), equal(v, '\\')));
  }
  NEXT_STEPS_AVX2 static __m256i escape_extra(__m256i v) {
    const __m256i short_control =
        _mm256_or_si256(_mm256_or_si256(equal(v, '\b'), equal(v, '\t')),
                        _mm256_or_si256(equal(v, '\n'), _mm256_or_si256(equal(v, '\f'), equal(v, '\r'))));
    const __m256i one = _mm256_and_si256(escapes(v), spread(1));
    const __m256i four = _mm256_andnot_si256(short_control, _mm256_and_si256(below<5>(v), spread(4)));
    return _mm256_add_epi8(one, four);
  }
  // D800..DFFF are the code points whose bits above the eleventh are 11011.
  NEXT_STEPS_AVX2 static __m256i surrogates(__m256i v) {
    if constexpr (sizeof(Char) == 1) return _mm256_setzero_si256();
    else return equal(shifted<11>(v), 0x1B);
  }
  // Per lane, how many of the UTF-8 bounds it stays below (in the lane's
  // low byte): its extra bytes are `bounds` less this.
  NEXT_STEPS_AVX2 static __m256i bounds_below(__m256i v) {
    if constexpr (sizeof(Char) == 1) {
      return _mm256_abs_epi8(below<7>(v));
    } else if constexpr (sizeof(Char) == 2) {
      return _mm256_abs_epi16(_mm256_add_epi16(below<7>(v), below<11>(v)));
    } else {
      return _mm256_abs_epi32(_mm256_add_epi32(below<7>(v), _mm256_add_epi32(below<11>(v), below<16>(v))));
    }
  }
  NEXT_STEPS_AVX2 static __m256i from_lane(std::size_t skip) {
    static constexpr unsigned char edge[64] = {
        0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
        0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(edge + 32 - skip * sizeof(Char)));
  }
  NEXT_STEPS_AVX2 static __m256i load(const Char* at) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at));
  }
};

// VectorCount on AVX2 vectors.  The UTF-8 bytes are counted as the bounds
// every lane could pass less the ones it does not, so that a skipped lane,
// made a space, passes none and adds nothing.
template <class Char, bool Ascii>
class WideCount {
 public:
  using L = WideLanes<Char>;

  NEXT_STEPS_AVX2 WideCount() : sums_(_mm256_setzero_si256()), lone_(_mm256_setzero_si256()) {}

  NEXT_STEPS_AVX2 void add(__m256i v, std::size_t skip) {
    if (skip) {
      const __m256i keep = L::from_lane(skip);
      v = _mm256_or_si256(_mm256_and_si256(v, keep), _mm256_andnot_si256(keep, L::spread(' ')));
    }
    const __m256i escapes = L::escapes(v);
    if (!_mm256_testz_si256(escapes, escapes)) sums_ = _mm256_add_epi64(sums_, bytes_sum(L::escape_extra(v)));
    if constexpr (!Ascii) {
      lone_ = _mm256_or_si256(lone_, L::surrogates(v));
      sums_ = _mm256_sub_epi64(sums_, bytes_sum(L::bounds_below(v)));
      bounds_ += L::count * L::bounds;
    }
  }
  NEXT_STEPS_AVX2 std::size_t total(bool& surrogate) const {
    if (!_mm256_testz_si256(lone_, lone_)) surrogate = true;
    const __m128i halves = _mm_add_epi64(_mm256_castsi256_si128(sums_), _mm256_extracti128_si256(sums_, 1));
    const __m128i sum = _mm_add_epi64(halves, _mm_unpackhi_epi64(halves, halves));
    return bounds_ + static_cast<std::size_t>(_mm_cvtsi128_si64(sum));  // sum is below zero: modulo 2^64
  }

 private:
  NEXT_STEPS_AVX2 static __m256i bytes_sum(__m256i bytes) { return _mm256_sad_epu8(bytes, _mm256_setzero_si256()); }

  __m256i sums_, lone_;
  std::size_t bounds_ = 0;
};

// extra_bytes_sse2 on a string of at least one AVX2 vector: whole vectors,
// then a last one that ends at the string's end, overlapping the one before.
template <class Char, bool Ascii = false>
NEXT_STEPS_AVX2 std::size_t extra_bytes_avx2(const Char* s, std::size_t n, bool& surrogate) {
  using L = WideLanes<Char>;
  constexpr std::size_t lanes = L::count;
  WideCount<Char, Ascii> count;
  std::size_t i = 0;
  for (; i + lanes <= n; i += lanes) count.add(L::load(s + i), 0);
  if (i < n) count.add(L::load(s + n - lanes), lanes - (n - i));
  return count.total(surrogate);
}

#undef NEXT_STEPS_AVX2

// Whether this CPU runs AVX2 code, asked once, while the library is loaded
// (before any thread of any interpreter can call into it), and only read
// from then on.
inline const bool cpu_has_avx2 = [] {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") != 0;
}();

// The shortest strings counted with AVX2: it pays from one vector of two- and
// four-byte code units, but one-byte strings shorter than two vectors count
// faster through the SSE2 loop inlined in the caller than through a call
// that sets up its constant vectors.
template <class Char>
inline constexpr std::size_t avx2_from = WideLanes<Char>::count * (sizeof(Char) == 1 ? 2 : 1);
#endif

}  // namespace detail

// How a string's bytes are counted: a code point at a time, or a vector of
// SSE2 (part of every x86-64) or of AVX2 at a time.  A module object picks
// one when it is made (shortcuts.hpp).
enum class Counting : std::uint8_t { plain, sse2, avx2 };
inline constexpr std::array<std::string_view, 3> counting_names = {"plain", "sse2", "avx2"};

// The widest this CPU runs; it runs every level below too.
inline Counting best_counting() {
#if defined(__x86_64__) || defined(_M_X64)
  return detail::cpu_has_avx2 ? Counting::avx2 : Counting::sse2;
#else
  return Counting::plain;
#endif
}

namespace detail {

// The plain walk out of line, so that the vector counts stay compact where
// they are inlined.
template <class Char>
[[gnu::noinline, gnu::cold]] std::size_t extra_bytes_plain(const Char* s, std::size_t n, bool& surrogate) {
  return extra_bytes(s, n, surrogate);
}

// extra_bytes at a level this CPU runs.
template <class Char, bool Ascii = false>
std::size_t extra_bytes_at(Counting level, const Char* s, std::size_t n, bool& surrogate) {
#if defined(__x86_64__) || defined(_M_X64)
  if (level == Counting::plain) [[unlikely]]
    return extra_bytes_plain(s, n, surrogate);
  if (n >= avx2_from<Char> && level == Counting::avx2) return extra_bytes_avx2<Char, Ascii>(s, n, surrogate);
  return extra_bytes_sse2<Char, Ascii>(s, n, surrogate);
#else
  static_cast<void>(level);
  return extra_bytes(s, n, surrogate);
#endif
}

template <class Char, bool Ascii = false>
std::size_t token_bytes(Counting level, const void* data, std::size_t n, bool& surrogate) {
  return n + 2 + extra_bytes_at<Char, Ascii>(level, static_cast<const Char*>(data), n, surrogate);
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
inline std::size_t compact_token_bytes(const StrView& s, bool& surrogate, Counting level) {
  switch (s.width) {
    case 1:
      if (s.ascii) return detail::token_bytes<std::uint8_t, true>(level, s.data, s.length, surrogate);
      return detail::token_bytes<std::uint8_t>(level, s.data, s.length, surrogate);
    case 2: return detail::token_bytes<std::uint16_t>(level, s.data, s.length, surrogate);
    default: return detail::token_bytes<std::uint32_t>(level, s.data, s.length, surrogate);
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
