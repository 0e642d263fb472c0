// The two texts of a value: the compact text whose UTF-8 bytes are an
// answer's size, and the call key that tells repeated calls apart.  Both
// must match the host's JSON writer byte for byte, or the budget and the
// de-duplication drift from what the agent actually receives.
#include <bit>
#include <random>

#include "helpers.hpp"

using namespace next_steps;
using next_steps::testing::J;
using next_steps::testing::raised;

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

TEST(CallKey, IsSortedAsciiTextSoThatOrderAndReasonDoNotMatter) {
  NativeModel m;
  const std::string huge = "1" + std::string(400, '0');
  const struct {
    Json args;
    std::string key;
  } cases[] = {
      {J(R"({"fqn":"x","action":"detail"})"), R"(["t", {"action": "detail", "fqn": "x"}])"},
      {J(R"({"q":"é😀\u007f\t\"/"})"), R"(["t", {"q": "\u00e9\ud83d\ude00\u007f\t\"/"}])"},
      // A lone surrogate cannot be sent, but its call key is still written.
      {J(R"({"q":"\ud800x"})"), R"(["t", {"q": "\ud800x"}])"},
      // Number keys sort by value, not by their text; a bool counts as 0 or 1.
      {J(R"({10:"a",2:"b"})"), R"(["t", {"2": "b", "10": "a"}])"},
      {J(R"({true:"a",0:"b",2.5:"c"})"), R"(["t", {"0": "b", "true": "a", "2.5": "c"}])"},
      {J("{" + huge + ":1,7:2}"), R"(["t", {"7": 2, ")" + huge + R"(": 1}])"},
      {J("{" + huge + huge + ":1,2.5:2}"), R"(["t", {"2.5": 2, ")" + huge + huge + R"(": 1}])"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.key);
    EXPECT_EQ(call_key(m, json::str("t"), c.args), c.key);
  }
}

class EncodingFailures : public next_steps::testing::BothModes {};
NEXT_STEPS_BOTH_MODES(EncodingFailures);

TEST_P(EncodingFailures, AreTheHostsErrorsAndTheFirstFailureWins) {
  auto circle = json::list({J("1")});
  circle->items.push_back(circle);
  auto deep = J("[]");
  for (int i = 0; i < 1000; ++i) deep = json::list({deep});
  using Outcome = std::pair<ErrorKind, std::string>;
  const Outcome ok{ErrorKind::attribute, "no error"},
      bad_key{ErrorKind::type, "keys must be str, int, float, bool or None, not list"},
      failed{ErrorKind::value, "text form failed"}, circular{ErrorKind::value, "Circular reference detected"},
      too_deep{ErrorKind::recursion, "maximum recursion depth exceeded while encoding a JSON object"};
  auto outcome = [&](auto f) -> Outcome {
    try {
      f();
      return ok;
    } catch (const NativeError& e) {
      return {e.kind, e.what()};
    }
  };
  const struct {
    const char* name;
    Json value;
    Outcome size, key;
  } cases[] = {
      {"lone surrogate", J(R"("a\udc00")"),
       {ErrorKind::unicode_encode, "'utf-8' codec can't encode character in position 2: surrogates not allowed"}, ok},
      // The whole text is written before it is encoded, so a later bad key wins.
      {"surrogate then bad key", J(R"(["\ud800",{[1]:1}])"), bad_key, bad_key},
      {"keys that cannot be compared", J(R"({"a":1,1:2})"), ok,
       {ErrorKind::type, "'<' not supported between instances of 'int' and 'str'"}},
      {"text form that fails", json::list({json::failing_other()}), failed, failed},
      {"circular list", circle, circular, circular},
      {"nesting beyond the depth bound", deep, too_deep, too_deep},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(outcome([&] { encoded_size(m, c.value); }), c.size);
    EXPECT_EQ(outcome([&] { call_key(m, json::str("t"), c.value); }), c.key);
  }
  // The other walks are bounded too, and a failed walk leaves no depth behind.
  EXPECT_EQ(raised([&] { without_null_fields(m, deep); }).first, ErrorKind::recursion);
  EXPECT_EQ(raised([&] { hint_size(m, deep); }).first, ErrorKind::recursion);
  EXPECT_EQ(encoded_size(m, J("[[[1]]]")), 7);
  circle->items.clear();
}

}  // namespace
