// The hint budget: hint fields together may take 15 % of the answer as sent
// with its steps, or 320 bytes when that is more; steps go from the end, and
// the protected leading steps never go.
#include "helpers.hpp"

using namespace next_steps;
using next_steps::testing::compact;
using next_steps::testing::J;
using next_steps::testing::raised;

namespace {

TEST(HintSize, CountsEachHintFieldsValueOnceAtAnyDepth) {
  NativeModel m;
  const struct {
    Json value;
    std::int64_t bytes;
  } cases[] = {
      {J(R"({"results":[{"name":"x","note":"stale"}],"tip":"Use search"})"), 19},
      // Only the value counts, not the key, its quotes, the colon or a comma.
      {J(R"({"tip":"x"})"), 3},
      // A hint field is counted whole and not walked into.
      {J(R"({"hints":{"tip":"abc","more":1}})"), 22},
      {J(R"({"a":{"next_steps":[]}})"), 2},
      {J(R"({"tip":1,"tips":1,"hint":1,"hints":1,"note":1,"notes":1,"next_steps":1,"tipx":1,"Tip":1})"), 7},
      {J(R"([{"tip":1},[{"note":null}]])"), 5},
      // A finished answer holds no tuples, so none is walked.
      {json::dict({{J(R"("rows")"), json::tuple({J(R"({"note":"abc"})")})}}), 0},
      {J(R"("tip")"), 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(compact(m, c.value));
    EXPECT_EQ(hint_size(m, c.value), c.bytes);
  }
}

// Pads the last string of `v` until its compact text takes `bytes` bytes.
Json padded(NativeModel& m, Json v, Json& pad, std::int64_t bytes) {
  pad->text.append(static_cast<std::size_t>(bytes - encoded_size(m, v)), U'a');
  EXPECT_EQ(encoded_size(m, v), bytes);
  return v;
}

Json answer_of(NativeModel& m, std::int64_t size, std::int64_t hints) {
  auto x = J(R"("")");
  auto entries = std::vector<std::pair<Json, Json>>{{J(R"("x")"), x}};
  if (hints > 0) entries.emplace_back(J(R"("tip")"), json::str(std::string(static_cast<std::size_t>(hints - 2), 'b')));
  return padded(m, json::dict(std::move(entries)), x, size);
}

struct Room {
  std::int64_t size, hints, largest_list;
};

class Budget : public ::testing::TestWithParam<Room> {};

TEST_P(Budget, LargestStepListThatFitsKeepsAllItsSteps) {
  NativeModel m;
  const Room r = GetParam();
  auto answer = answer_of(m, r.size, r.hints);
  ASSERT_EQ(hint_size(m, answer), r.hints);
  for (std::int64_t list_bytes : {r.largest_list, r.largest_list + 1}) {
    auto first = J(R"({"tool":"t","args":{},"reason":""})");
    auto pad = J(R"("")");
    auto second = json::dict({{J(R"("tool")"), J(R"("t")")}, {J(R"("args")"), J("{}")}, {J(R"("reason")"), pad}});
    auto steps = padded(m, json::list({first, second}), pad, list_bytes);
    auto kept = within_share(m, answer, steps, json::integer(1));
    if (list_bytes == r.largest_list) {
      EXPECT_EQ(kept, steps) << "the list that fits is handed back as it is";
    } else {
      ASSERT_EQ(kept->items.size(), 1u) << list_bytes << " bytes should not fit";
      EXPECT_EQ(kept->items[0], first);
      EXPECT_EQ(steps->items.size(), 2u) << "the given list is never cut in place";
    }
  }
}

// Below 1814 bytes the floor decides; above, the share of the answer with its steps.
INSTANTIATE_TEST_SUITE_P(Rooms, Budget,
                         ::testing::Values(Room{100, 0, 306}, Room{1814, 0, 306}, Room{1814, 100, 206},
                                           Room{600, 100, 206}, Room{2000, 0, 338}, Room{2000, 100, 221},
                                           Room{4000, 0, 691}, Room{4000, 100, 574}, Room{10000, 0, 1750},
                                           Room{20000, 0, 3515}));

TEST(WithinShare, NeverDropsTheProtectedLeadingSteps) {
  NativeModel m;
  auto big = [] { return J(R"({"tool":"t","args":{},"reason":")" + std::string(400, 'r') + R"("})"); };
  auto steps = json::list({big(), big(), big()});
  // A list of `keep` steps or fewer is returned as it is, however large.
  EXPECT_EQ(within_share(m, J("{}"), steps, json::integer(3)), steps);
  EXPECT_EQ(within_share(m, J("{}"), steps, json::integer(5)), steps);
  auto none = json::list();
  EXPECT_EQ(within_share(m, J("{}"), none, json::integer(0)), none);

  // Hints of the answer alone beyond the room: down to `keep`, from the end.
  auto noisy = json::dict({{J(R"("note")"), json::str(std::string(2000, 'n'))}});
  auto kept = within_share(m, noisy, steps, json::integer(2));
  ASSERT_EQ(kept->items.size(), 2u);
  EXPECT_EQ(kept->items[0], steps->items[0]);
  EXPECT_EQ(kept->items[1], steps->items[1]);
  EXPECT_EQ(within_share(m, noisy, steps, json::integer(0))->items.size(), 0u);
}

TEST(WithinShare, MeasuresTheAnswerEvenWhenNothingCouldBeDropped) {
  NativeModel m;
  auto unsendable = J(R"({"x":"\ud800"})");
  EXPECT_EQ(raised([&] { within_share(m, unsendable, json::list(), json::integer(1)); }).first,
            ErrorKind::unicode_encode);
  EXPECT_EQ(raised([&] { within_share(m, J("{}"), J("[1]"), json::str("1")); }),
            std::make_pair(ErrorKind::type, std::string("'>' not supported between instances of 'int' and 'str'")));
}

}  // namespace
