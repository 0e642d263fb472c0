// The texts of numbers, which the compact size counts: they must match the
// host's JSON writer byte for byte on every machine, or the budget drifts
// from what the agent actually receives.  The pytest suite checks them
// against the host; this runs them where the extension cannot, under qemu.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

#include "next_steps/json_value.hpp"

using namespace next_steps;

namespace {

TEST(FloatText, MatchesTheHostsShortestRoundTripLayout) {
  NativeModel m;
  const std::pair<double, const char*> cases[] = {
      {1.0, "1.0"}, {0.0001, "0.0001"}, {1e15, "1000000000000000.0"}, {1e16, "1e+16"}, {1e-05, "1e-05"},
      {2.5e-07, "2.5e-07"}, {-0.0, "-0.0"}, {5e-324, "5e-324"}, {1.7976931348623157e+308, "1.7976931348623157e+308"},
      {0.1 + 0.2, "0.30000000000000004"}, {std::nan(""), "NaN"}, {-HUGE_VAL, "-Infinity"}};
  for (auto [value, expected] : cases) {
    char buf[32];
    const std::string text(buf, float_text(value, buf));
    EXPECT_EQ(text, expected);
    EXPECT_EQ(encoded_size(m, json::real(value)), static_cast<std::int64_t>(text.size())) << expected;
  }
  // Sizes count the text without laying it out: the two must agree on every
  // exponent and digit count, here of random bits.
  std::mt19937_64 bits(8);
  for (int i = 0; i < 200000; ++i) {
    const double value = std::bit_cast<double>(bits());
    char buf[32];
    ASSERT_EQ(float_text_length(value), float_text(value, buf)) << value;
  }
}

// Digit counts come from the bit length: every power of ten and its
// neighbours, both signs, and the ends of the machine range.
TEST(IntText, LengthIsTheTextsAtEveryPowerOfTen) {
  std::vector<long long> values = {0, std::numeric_limits<long long>::min(), std::numeric_limits<long long>::max(),
                                   999'999'999'999'999'999, 1'000'000'000'000'000'000};
  for (long long p = 1; p <= std::numeric_limits<long long>::max() / 10; p *= 10)
    for (long long v : {p - 1, p, p + 1, 2 * p, 9 * p + (p - 1)}) values.insert(values.end(), {v, -v});
  for (long long v : values) ASSERT_EQ(int_text_length(v), std::to_string(v).size()) << v;
}

}  // namespace
