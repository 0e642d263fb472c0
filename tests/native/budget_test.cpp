// The hint budget: hint fields together may take 15 % of the answer as sent
// with its steps, or 320 bytes when that is more; steps go from the end, and
// the protected leading steps never go.
#include "helpers.hpp"

using namespace next_steps;
using next_steps::testing::J;
using next_steps::testing::raised;

namespace {

// Pads the last string of `v` until its compact text takes `bytes` bytes.
Json padded(NativeModel& m, Json v, Json& pad, std::int64_t bytes) {
  pad->text.append(static_cast<std::size_t>(bytes - encoded_size(m, v)), U'a');
  EXPECT_EQ(encoded_size(m, v), bytes);
  return v;
}

TEST(WithinShare, LargestStepListThatFitsKeepsAllItsSteps) {
  NativeModel m;
  // {answer size, hint bytes, largest list}: below 1814 bytes the floor
  // decides; above, the share of the answer with its steps.
  const std::int64_t rooms[][3] = {{100, 0, 306},    {1814, 0, 306},   {1814, 100, 206}, {600, 100, 206},
                                   {2000, 0, 338},   {2000, 100, 221}, {4000, 100, 574}, {20000, 0, 3515}};
  for (auto [size, hints, largest] : rooms) {
    SCOPED_TRACE(::testing::Message() << size << " bytes, " << hints << " of hints");
    auto x = J(R"("")");
    auto entries = std::vector<std::pair<Json, Json>>{{J(R"("x")"), x}};
    if (hints) entries.emplace_back(J(R"("tip")"), json::str(std::string(static_cast<std::size_t>(hints - 2), 'b')));
    auto answer = padded(m, json::dict(std::move(entries)), x, size);
    for (std::int64_t list_bytes : {largest, largest + 1}) {
      auto first = J(R"({"tool":"t","args":{},"reason":""})");
      auto pad = J(R"("")");
      auto second = json::dict({{J(R"("tool")"), J(R"("t")")}, {J(R"("args")"), J("{}")}, {J(R"("reason")"), pad}});
      auto steps = padded(m, json::list({first, second}), pad, list_bytes);
      auto kept = within_share(m, answer, steps, json::integer(1));
      if (list_bytes == largest) {
        EXPECT_EQ(kept, steps) << "the list that fits is handed back as it is";
      } else {
        ASSERT_EQ(kept->items.size(), 1u) << list_bytes << " bytes should not fit";
        EXPECT_EQ(kept->items[0], first);
        EXPECT_EQ(steps->items.size(), 2u) << "the given list is never cut in place";
      }
    }
  }
}

TEST(WithinShare, MeasuresTheAnswerEvenWhenNothingCouldBeDropped) {
  NativeModel m;
  EXPECT_EQ(raised([&] { within_share(m, J(R"({"x":"\ud800"})"), json::list(), json::integer(1)); }).first,
            ErrorKind::unicode_encode);
  EXPECT_EQ(raised([&] { within_share(m, J("{}"), J("[1]"), json::str("1")); }),
            std::make_pair(ErrorKind::type, std::string("'>' not supported between instances of 'int' and 'str'")));
}

}  // namespace
