// The count of a string's bytes is the host's on every machine, and the
// vector-at-a-time count must agree with the plain walk for every storage
// width, length, position in memory and mix of code points: a lane test off
// by one, or a tail lane counted twice, would shift every answer's size.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "next_steps/text.hpp"

using namespace next_steps::detail;

namespace {

// A text stored as the host stores it, in the narrowest width that holds
// its code points.
class Stored {
 public:
  explicit Stored(const std::u32string& text) {
    const std::uint32_t top = text.empty() ? 0 : *std::max_element(text.begin(), text.end());
    if (top < 0x100) keep(narrow_, text);
    else if (top < 0x10000) keep(half_, text);
    else keep(wide_, text);
    view_.ascii = top < 0x80;
  }
  const next_steps::StrView& view() const { return view_; }

 private:
  template <class Char>
  void keep(std::vector<Char>& units, const std::u32string& text) {
    units.assign(text.begin(), text.end());
    view_.data = units.data();
    view_.length = units.size();
    view_.width = sizeof(Char);
  }

  std::vector<std::uint8_t> narrow_;
  std::vector<std::uint16_t> half_;
  std::vector<std::uint32_t> wide_;
  next_steps::StrView view_;
};

// Each count this CPU runs (only the plain walk but on x86-64) against the
// host's: the UTF-8 bytes of json.dumps(text, ensure_ascii=False), a lone
// surrogate passed through.  Each text also repeated past a few vectors,
// which adds its bytes but the quotes per copy.
TEST(TokenBytes, AreTheHostsCompactTokensInEveryStorageWidth) {
  const std::u32string lone_high = U"lone " + std::u32string(1, 0xD800) + U" surrogate";
  const std::u32string lone_low = U"low " + std::u32string(1, 0xDFFF) + U" end \U0001F600";
  const struct {
    std::u32string text;
    std::size_t bytes;
    bool surrogate;
  } table[] = {
      {U"", 2, false},
      {U"plain words", 13, false},
      {U"tab\there \"quoted\" back\\slash\x01 end", 44, false},
      {U"caf\u00E9 r\u00E9sum\u00E9 na\u00EFve", 23, false},
      {U"\u4E2D\u6587\u306E\u5B57\u7B26 mixed \u00FC", 26, false},
      {U"emoji \U0001F600 and \u4E2D and \u00E9", 27, false},
      {lone_high, 20, true},
      {lone_low, 18, true},
  };
  for (const auto& row : table) {
    std::u32string repeated;
    for (int i = 0; i < 9; ++i) repeated += row.text;
    for (const auto& [text, bytes] : {std::pair{row.text, row.bytes}, std::pair{repeated, 9 * (row.bytes - 2) + 2}}) {
      const Stored stored(text);
      for (int level = 0; level <= static_cast<int>(next_steps::best_counting()); ++level) {
        const auto counting = static_cast<next_steps::Counting>(level);
        bool surrogate = false;
        EXPECT_EQ(next_steps::compact_token_bytes(stored.view(), surrogate, counting), bytes)
            << text.size() << " code points, " << next_steps::counting_names[level];
        EXPECT_EQ(surrogate, row.surrogate) << text.size() << " code points, " << next_steps::counting_names[level];
      }
    }
  }
}

}  // namespace

// Elsewhere the fast count is the plain walk itself, checked above.
#if defined(__x86_64__) || defined(_M_X64)
namespace {

template <class Char>
class WordCount : public ::testing::Test {};

using Widths = ::testing::Types<std::uint8_t, std::uint16_t, std::uint32_t>;
TYPED_TEST_SUITE(WordCount, Widths);

// Code points next to every threshold the lane tests draw, and ones whose
// low byte alone would be an escape or a surrogate's.
const std::vector<std::uint32_t> plain = {'a', ' ', '!', '#', '[', ']', '~', 0x7F, 0x80, 0xE9, 0xFF, 0x100, 0x2022,
                                          0x225C, 0x0A00, 0x7FF, 0x800, 0x4E2D, 0x8000, 0xD7FF, 0xE000, 0xFFFF,
                                          0x10000, 0x1D800, 0x10022, 0x1F600, 0x10FFFF};
const std::vector<std::uint32_t> escaped = {0x00, 0x01, 0x07, '\b', '\t', '\n', 0x0B, '\f', '\r', 0x0E, 0x1F, '"', '\\'};
const std::vector<std::uint32_t> surrogates = {0xD800, 0xDBFF, 0xDC00, 0xDFFF};

// The vector counts: the SSE2 one every x86-64 runs, and the AVX2 one for
// strings of at least one AVX2 vector where the CPU has it.
enum class Path { sse2, avx2 };

// Random strings of `plains` with escapes and lone surrogates at a few
// rates, of every length to 140 (a few AVX2 vectors) and every start offset
// within a vector.
template <class Char, bool Ascii>
void expect_agreement(const std::vector<std::uint32_t>& plain_points, Path path) {
  if (path == Path::avx2 && !cpu_has_avx2) GTEST_SKIP() << "this CPU has no AVX2";
  auto fits = [](const std::vector<std::uint32_t>& all) {
    std::vector<Char> out;
    for (std::uint32_t c : all)
      if (c <= std::numeric_limits<Char>::max() && (!Ascii || c < 0x80)) out.push_back(static_cast<Char>(c));
    return out;
  };
  const auto plains = fits(plain_points), escapes = fits(escaped), lone = fits(surrogates);
  std::mt19937 rng(8);
  auto pick = [&](const std::vector<Char>& from) { return from[rng() % from.size()]; };
  // Escapes never, rarely or often: only a vector with one has them weighed.
  for (double escape_rate : {0.0, 0.02, 0.3}) {
    for (double lone_rate : {0.0, 0.01}) {
      std::bernoulli_distribution escape(escape_rate), surrogate(lone.empty() ? 0.0 : lone_rate);
      const std::size_t shortest = path == Path::avx2 ? WideLanes<Char>::count : 0;
      for (std::size_t length = shortest; length <= 140; ++length) {
        for (std::size_t offset = 0; offset < 32; ++offset) {
          std::vector<Char> buffer(offset + length);
          for (Char& c : buffer) c = escape(rng) ? pick(escapes) : surrogate(rng) ? pick(lone) : pick(plains);
          const Char* s = buffer.data() + offset;
          bool fast_lone = false, plain_lone = false;
          const std::size_t fast = path == Path::avx2 ? extra_bytes_avx2<Char, Ascii>(s, length, fast_lone)
                                                      : extra_bytes_sse2<Char, Ascii>(s, length, fast_lone);
          ASSERT_EQ(fast, extra_bytes(s, length, plain_lone)) << "length " << length << ", offset " << offset;
          ASSERT_EQ(fast_lone, plain_lone) << "length " << length << ", offset " << offset;
        }
      }
    }
  }
}

// The lane tests restate the escape rule (is_escaped, escape_extra_of) and
// the UTF-8 bounds for a whole vector at once: every code unit of the width,
// in every lane, counts as the plain walk counts it.
template <class Char, bool Ascii>
void expect_every_code_unit(Path path) {
  if (path == Path::avx2 && !cpu_has_avx2) GTEST_SKIP() << "this CPU has no AVX2";
  const std::size_t lanes = path == Path::avx2 ? WideLanes<Char>::count : Lanes<Char>::count;
  const std::uint32_t last = Ascii ? 0x7F : std::min<std::uint32_t>(std::numeric_limits<Char>::max(), 0x10FFFF);
  std::vector<Char> s(lanes);
  for (std::uint32_t c = 0; c <= last; ++c) {
    std::fill(s.begin(), s.end(), static_cast<Char>(c));
    bool fast_lone = false, plain_lone = false;
    const std::size_t fast = path == Path::avx2 ? extra_bytes_avx2<Char, Ascii>(s.data(), lanes, fast_lone)
                                                : extra_bytes_sse2<Char, Ascii>(s.data(), lanes, fast_lone);
    ASSERT_EQ(fast, extra_bytes(s.data(), lanes, plain_lone)) << "code unit " << c;
    ASSERT_EQ(fast_lone, plain_lone) << "code unit " << c;
  }
}

TYPED_TEST(WordCount, Sse2CountsEveryCodeUnitAsTheRuleSays) { expect_every_code_unit<TypeParam, false>(Path::sse2); }
TYPED_TEST(WordCount, Avx2CountsEveryCodeUnitAsTheRuleSays) { expect_every_code_unit<TypeParam, false>(Path::avx2); }
TEST(AsciiWordCount, CountsEveryCodeUnitAsTheRuleSays) {
  expect_every_code_unit<std::uint8_t, true>(Path::sse2);
  expect_every_code_unit<std::uint8_t, true>(Path::avx2);
}

TYPED_TEST(WordCount, Sse2AgreesWithThePlainWalk) { expect_agreement<TypeParam, false>(plain, Path::sse2); }
TYPED_TEST(WordCount, Avx2AgreesWithThePlainWalk) { expect_agreement<TypeParam, false>(plain, Path::avx2); }

TEST(AsciiWordCount, Sse2AgreesWithThePlainWalk) { expect_agreement<std::uint8_t, true>(plain, Path::sse2); }
TEST(AsciiWordCount, Avx2AgreesWithThePlainWalk) { expect_agreement<std::uint8_t, true>(plain, Path::avx2); }

}  // namespace
#endif
