// The null-free copy every answer passes through first, and the step record.
// The copy must own every container and share every leaf: the tool's own
// answer is never changed, and an opaque host object comes back as itself.
#include "helpers.hpp"

using namespace next_steps;
using next_steps::testing::compact;
using next_steps::testing::J;

namespace {

TEST(WithoutNullFields, DropsNullDictFieldsAtAnyDepthAndNothingElse) {
  NativeModel m;
  const struct {
    const char* in;
    const char* out;
  } cases[] = {
      {R"({"a":null})", "{}"},
      {R"({"a":null,"b":1})", R"({"b":1})"},
      // The null test is made before the copy: an emptied dict stays.
      {R"({"a":{"b":null}})", R"({"a":{}})"},
      {R"([null,1,{"x":null}])", R"([null,1,{}])"},
      {R"({"b":1,"a":null,"c":2})", R"({"b":1,"c":2})"},
      {R"({"z":0,"f":false,"s":"","l":[],"d":{},"n":[null]})", R"({"z":0,"f":false,"s":"","l":[],"d":{},"n":[null]})"},
      {R"({1:null,2:"x"})", R"({"2":"x"})"},
      {R"({"rows":[{"fqn":"a","doc":null,"kids":[[{"k":null}]]}]})", R"({"rows":[{"fqn":"a","kids":[[{}]]}]})"},
      {"null", "null"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.in);
    EXPECT_EQ(compact(m, without_null_fields(m, J(c.in))), c.out);
  }
}

TEST(WithoutNullFields, OwnsNewContainersTurnsTuplesIntoListsAndSharesLeaves) {
  NativeModel m;
  auto other = json::other("{1, 2}");
  auto text = J(R"("kept")");
  auto inner = J(R"([{"a":null,"b":2}])");
  auto tuple = json::tuple({J(R"("x")"), json::null()});
  auto input = json::dict({{J(R"("s")"), text}, {J(R"("o")"), other}, {J(R"("l")"), inner},
                           {J(R"("t")"), json::list({tuple})}});
  const std::string before = compact(m, input);

  auto copy = without_null_fields(m, input);
  ASSERT_NE(copy, input);
  EXPECT_EQ(copy->entries[0].second, text);
  EXPECT_EQ(copy->entries[1].second, other);
  EXPECT_NE(copy->entries[2].second, inner);
  EXPECT_NE(copy->entries[2].second->items[0], inner->items[0]);
  // A tuple becomes a list, at any depth.
  EXPECT_EQ(copy->entries[3].second->items[0]->kind, Kind::list);
  EXPECT_EQ(compact(m, copy), R"({"s":"kept","o":"{1, 2}","l":[{"b":2}],"t":[["x",null]]})");

  copy->entries[2].second->items.push_back(J("1"));
  copy->entries[2].second->items[0]->entries.clear();
  EXPECT_EQ(compact(m, input), before);
  // A value that is not a container is handed back as itself.
  EXPECT_EQ(without_null_fields(m, other), other);
}

TEST(Step, HasToolArgsReasonInThatOrderAndArgsAsGiven) {
  NativeModel m;
  auto args = J(R"({"action":"semantic","query":"parse"})");
  auto made = make_step(m, json::str("search"), json::str("No hits: search by meaning"), args);
  EXPECT_EQ(compact(m, made), R"({"tool":"search","args":{"action":"semantic","query":"parse"},"reason":"No hits: search by meaning"})");
  EXPECT_EQ(made->entries[1].second, args);
  EXPECT_EQ(compact(m, m.call_step(json::str("files"), json::str("r"), {})), R"({"tool":"files","args":{},"reason":"r"})");
}

}  // namespace
