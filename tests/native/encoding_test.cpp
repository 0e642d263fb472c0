// The two texts of a value: the compact text whose UTF-8 bytes are an
// answer's size, and the call key that tells repeated calls apart.  Both
// must match the host's JSON writer byte for byte, or the budget and the
// de-duplication drift from what the agent actually receives.
#include <optional>

#include "helpers.hpp"

using namespace next_steps;
using next_steps::testing::compact;
using next_steps::testing::J;
using next_steps::testing::raised;

namespace {

struct FloatCase {
  double value;
  const char* text;
};

class FloatText : public ::testing::TestWithParam<FloatCase> {};

TEST_P(FloatText, MatchesTheHostsShortestRoundTripLayout) {
  NativeModel m;
  char buf[32];
  const std::string text(buf, float_text(GetParam().value, buf));
  EXPECT_EQ(text, GetParam().text);
  EXPECT_EQ(encoded_size(m, json::real(GetParam().value)), static_cast<std::int64_t>(text.size()));
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, FloatText,
    ::testing::Values(FloatCase{1.0, "1.0"}, FloatCase{0.1, "0.1"}, FloatCase{0.0001, "0.0001"},
                      FloatCase{123456789.0, "123456789.0"}, FloatCase{1e15, "1000000000000000.0"},
                      FloatCase{1e16, "1e+16"}, FloatCase{1e22, "1e+22"}, FloatCase{1e-05, "1e-05"},
                      FloatCase{1.5e-05, "1.5e-05"}, FloatCase{2.5e-07, "2.5e-07"}, FloatCase{-0.0, "-0.0"},
                      FloatCase{5e-324, "5e-324"}, FloatCase{1.7976931348623157e+308, "1.7976931348623157e+308"},
                      FloatCase{-1234.5, "-1234.5"}, FloatCase{0.1 + 0.2, "0.30000000000000004"},
                      FloatCase{std::nan(""), "NaN"}, FloatCase{HUGE_VAL, "Infinity"},
                      FloatCase{-HUGE_VAL, "-Infinity"}));

TEST(CompactText, SizeIsTheUtf8ByteCountOfTheTextAsSent) {
  NativeModel m;
  auto step = J(R"({"tool":"symbol","args":{"action":"detail","fqn":"pkg.mod.f"},"reason":"Details of the best hit"})");
  const struct {
    Json value;
    std::string text;
    std::int64_t bytes;
  } cases[] = {
      {J(R"("é")"), "\"é\"", 4},
      {J("\"\U0001F600\""), "\"\U0001F600\"", 6},
      {json::real(1e16), "1e+16", 5},
      {J("true"), "true", 4},
      {J("1"), "1", 1},
      {J("1.0"), "1.0", 3},
      {J("null"), "null", 4},
      {J(R"("")"), R"("")", 2},
      {J("{}"), "{}", 2},
      {J("[]"), "[]", 2},
      // Non-string keys become strings; the dict keeps its own order.
      {J(R"({"tip":"x",1:4})"), R"({"tip":"x","1":4})", 17},
      {J(R"({"b":1,"a":2,null:3,true:4,2.5:5})"), R"({"b":1,"a":2,"null":3,"true":4,"2.5":5})", 39},
      {json::list({step}), compact(m, json::list({step})), 99},
      // Control characters are escaped; U+007F, U+2028 and '/' are not.
      {J(R"("\t\u0001\"\\/")"), R"("\t\u0001\"\\/")", 15},
      {J(R"("\u007f\u2028")"), "\"\x7f\u2028\"", 6},
      {json::tuple({J("1"), J(R"("a")")}), R"([1,"a"])", 7},
      // The same list twice side by side is no circle.
      {[] { auto one = J("[1]"); return json::list({one, one}); }(), "[[1],[1]]", 9},
      {json::other("{1, 2}"), R"("{1, 2}")", 8},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(compact(m, c.value), c.text);
    EXPECT_EQ(encoded_size(m, c.value), c.bytes);
  }
}

TEST(CallKey, IsSortedAsciiTextSoThatOrderAndReasonDoNotMatter) {
  NativeModel m;
  const std::string huge = "1" + std::string(400, '0');
  const struct {
    Json args;
    std::string key;
  } cases[] = {
      {J(R"({"fqn":"x","action":"detail"})"), R"(["t", {"action": "detail", "fqn": "x"}])"},
      {J(R"({"ab":1,"a":2,"Z":3})"), R"(["t", {"Z": 3, "a": 2, "ab": 1}])"},
      {J(R"({"b":{"z":1,"y":[{"d":1,"c":2}]},"a":null})"),
       R"(["t", {"a": null, "b": {"y": [{"c": 2, "d": 1}], "z": 1}}])"},
      {J(R"({"q":"é😀\u007f\t\"/"})"), R"(["t", {"q": "\u00e9\ud83d\ude00\u007f\t\"/"}])"},
      // A lone surrogate cannot be sent, but its call key is still written.
      {J(R"({"q":"\ud800x"})"), R"(["t", {"q": "\ud800x"}])"},
      // Number keys sort by value, not by their text; a bool counts as 0 or 1.
      {J(R"({10:"a",2:"b"})"), R"(["t", {"2": "b", "10": "a"}])"},
      {J(R"({true:"a",0:"b",2.5:"c"})"), R"(["t", {"0": "b", "true": "a", "2.5": "c"}])"},
      {J(R"({100000000000000000001:"a",100000000000000000000:"b"})"),
       R"(["t", {"100000000000000000000": "b", "100000000000000000001": "a"}])"},
      {J("{" + huge + ":1,7:2}"), R"(["t", {"7": 2, ")" + huge + R"(": 1}])"},
      {J("{" + huge + huge + ":1,2.5:2}"), R"(["t", {"2.5": 2, ")" + huge + huge + R"(": 1}])"},
      // One entry is never compared, whatever its key.
      {J(R"({null:1})"), R"(["t", {"null": 1}])"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.key);
    try {
      EXPECT_EQ(call_key(m, json::str("t"), c.args), c.key);
    } catch (const std::exception& e) {
      ADD_FAILURE() << "escaped: " << e.what();
    }
  }
}

TEST(EncodingFailures, AreTheHostsErrorsAndTheFirstFailureWins) {
  NativeModel m;
  auto circle = json::list({J("1")});
  circle->items.push_back(circle);
  auto deep = J("[]");
  for (int i = 0; i < 1000; ++i) deep = json::list({deep});
  using E = std::optional<std::pair<ErrorKind, std::string>>;
  const auto bad_key = std::make_pair(ErrorKind::type, "keys must be str, int, float, bool or None, not list");
  const struct {
    const char* name;
    Json value;
    E size_error;
    E key_error;
  } cases[] = {
      {"lone surrogate", J(R"("a\udc00")"),
       E{{ErrorKind::unicode_encode, "'utf-8' codec can't encode character in position 2: surrogates not allowed"}},
       std::nullopt},
      // The whole text is written before it is encoded, so a later bad key wins.
      {"surrogate then bad key", J(R"(["\ud800",{[1]:1}])"), bad_key, bad_key},
      {"keys that cannot be compared", J(R"({"a":1,1:2})"), std::nullopt,
       E{{ErrorKind::type, "'<' not supported between instances of 'int' and 'str'"}}},
      {"null key beside another", J(R"({"a":1,null:2})"), std::nullopt,
       E{{ErrorKind::type, "'<' not supported between instances of 'NoneType' and 'str'"}}},
      {"text form that fails", json::list({json::failing_other()}), E{{ErrorKind::value, "text form failed"}},
       E{{ErrorKind::value, "text form failed"}}},
      {"circular list", circle, E{{ErrorKind::value, "Circular reference detected"}},
       E{{ErrorKind::value, "Circular reference detected"}}},
      {"nesting beyond the depth bound", deep,
       E{{ErrorKind::recursion, "maximum recursion depth exceeded while encoding a JSON object"}},
       E{{ErrorKind::recursion, "maximum recursion depth exceeded while encoding a JSON object"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.size_error)
      EXPECT_EQ(raised([&] { encoded_size(m, c.value); }), *c.size_error);
    else
      EXPECT_NO_THROW(encoded_size(m, c.value));
    if (c.key_error)
      EXPECT_EQ(raised([&] { call_key(m, json::str("t"), c.value); }), *c.key_error);
    else
      EXPECT_NO_THROW(call_key(m, json::str("t"), c.value));
  }
  // The other walks are bounded too, and a failed walk leaves no depth behind.
  EXPECT_EQ(raised([&] { without_null_fields(m, deep); }).first, ErrorKind::recursion);
  EXPECT_EQ(raised([&] { hint_size(m, deep); }).first, ErrorKind::recursion);
  EXPECT_EQ(encoded_size(m, J("[[[1]]]")), 7);
  circle->items.clear();
}

}  // namespace
