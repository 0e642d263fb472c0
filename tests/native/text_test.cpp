// The count of a string's bytes is the host's in every storage width.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "next_steps/text.hpp"

using namespace next_steps::detail;

namespace {

// A text stored as the host stores it, in the narrowest width that holds
// its code points, in units of their own, so that a read past them is seen.
template <class Char>
next_steps::StrView stored(std::vector<Char>& units, const std::u32string& text) {
  units.assign(text.begin(), text.end());
  return {units.data(), units.size(), sizeof(Char)};
}

// The count against the host's: the UTF-8 bytes of json.dumps(text,
// ensure_ascii=False), a lone surrogate passed through.  Each text also
// repeated, which adds its bytes but the quotes per copy.
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
      {U"\x7F\x80\u07FF\u0800\uFFFF\U00010000", 17, false},  // each width's first and last
      {U"\x7F\x80\xFF", 7, false},  // and the one-byte width's
      {lone_high, 20, true},
      {lone_low, 18, true},
  };
  for (const auto& row : table) {
    std::u32string repeated;
    for (int i = 0; i < 9; ++i) repeated += row.text;
    for (const auto& [text, bytes] : {std::pair{row.text, row.bytes}, std::pair{repeated, 9 * (row.bytes - 2) + 2}}) {
      const std::uint32_t top = text.empty() ? 0 : *std::max_element(text.begin(), text.end());
      std::vector<std::uint8_t> narrow;
      std::vector<std::uint16_t> half;
      std::vector<std::uint32_t> wide;
      const auto view = top < 0x100 ? stored(narrow, text) : top < 0x10000 ? stored(half, text) : stored(wide, text);
      bool surrogate = false;
      EXPECT_EQ(next_steps::compact_token_bytes(view, surrogate), bytes) << text.size() << " code points";
      EXPECT_EQ(surrogate, row.surrogate) << text.size() << " code points";
    }
  }
}

}  // namespace
