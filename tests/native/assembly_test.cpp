// Putting it together: step assembly on the answer's private copy, the
// finished answer as every tool sends it, and the did-you-mean answer to a
// miss, which must answer even when the name lookup fails.
#include "helpers.hpp"

using namespace next_steps;
using next_steps::testing::compact;
using next_steps::testing::J;
using next_steps::testing::raised;

namespace {

#define STEP(tool, args, reason) R"({"tool":")" tool R"(","args":)" args R"(,"reason":")" reason R"("})"
#define S1 STEP("a", "{}", "one")
#define S2 STEP("b", "{}", "two")

std::string compact_of(const Json& v) {
  NativeModel m;
  return compact(m, v);
}

Json add(NativeModel& m, const Json& answer, const char* tool, const char* action, const Json& arguments) {
  auto result = add_next_steps(m, answer, json::str(tool), action ? json::str(action) : json::null(), arguments);
  EXPECT_EQ(result, answer) << "the answer is changed in place and handed back";
  return result;
}

TEST(AddNextSteps, ToolsOwnStepsReplaceTheAssembledOnesAndGoLast) {
  NativeModel m;
  auto own = add(m, J(R"({"a":1,"next_steps":[)" S1 "," S2 "," S1 R"(],"b":2,"total_count":0})"), "search", "code",
                 J(R"({"query":"q"})"));
  EXPECT_EQ(compact(m, own), R"({"a":1,"b":2,"total_count":0,"next_steps":[)" S1 "," S2 "," S1 "]}");

  // An empty own list is no list: the usual follow-ups are assembled instead.
  auto empty = add(m, J(R"({"next_steps":[],"fqn":"x"})"), "quality", nullptr, json::null());
  EXPECT_EQ(compact(m, empty),
            R"({"fqn":"x","next_steps":[)" STEP("symbol", R"({"action":"references","fqn":"x"})",
                                                "Check it has no references") "]}");

  // Nothing to suggest: no key at all.
  EXPECT_EQ(compact(m, add(m, J(R"({"x":1,"next_steps":[]})"), "nope", nullptr, json::null())), R"({"x":1})");

  // A long own list is cut from its end, but never below its first step.
  const std::string long_reason(400, 'r');
  auto big = "{\"tool\":\"t\",\"args\":{},\"reason\":\"" + long_reason + "\"}";
  auto cut = add(m, J("{\"next_steps\":[" + big + "," + big + "]}"), "status", nullptr, json::null());
  EXPECT_EQ(compact(m, cut), "{\"next_steps\":[" + big + "]}");
}

TEST(AddNextSteps, SignalFirstThenUsualWithoutRepeatsCappedAtThree) {
  NativeModel m;
  m.bind(Fn::usual, [](const std::vector<Json>&) {
    return J("[" STEP("search", R"({"query":"q","action":"semantic"})", "same call, other reason") "," S1 "," S2
             "," STEP("c", "{}", "three") "]");
  });
  auto answer = add(m, J(R"({"total_count":0})"), "search", "code", J(R"({"query":"q"})"));
  EXPECT_EQ(compact(m, answer),
            R"({"total_count":0,"next_steps":[)" STEP("search", R"({"action":"semantic","query":"q"})",
                                                      "No hits: search by meaning") "," S1 "," S2 "]}");
}

TEST(AddNextSteps, BudgetCutsAssembledStepsDownToTheFirst) {
  NativeModel m;
  const std::string fqn = "pkg." + std::string(150, 'f');
  auto answer = add(m, J(R"({"fqn":")" + fqn + R"(","file":"a.py"})"), "symbol", "detail", json::null());
  ASSERT_EQ(answer->entries.back().second->items.size(), 1u);
  EXPECT_EQ(compact(m, answer->entries.back().second->items[0]->entries[1].second),
            R"({"action":"callers","fqn":")" + fqn + R"("})");
}

TEST(AddNextSteps, NullArgumentsAreAnEmptyRequest) {
  NativeModel m;
  auto answer = add(m, J(R"({"total_count":0,"query":"Foo"})"), "search", "symbols", json::null());
  EXPECT_EQ(compact(m, answer->entries.back().second),
            "[" STEP("search", R"({"action":"semantic","query":"Foo"})", "No hits: search by meaning") "]");
}

TEST(FinishAnswer, BuildsANewAnswerAndLeavesTheToolsAnswerAlone) {
  NativeModel m;
  std::vector<std::string> freshness_calls;
  m.bind(Fn::add_freshness, [&](const std::vector<Json>& a) {
    freshness_calls.push_back(compact(m, a[1]));
    if (!m.is_null(a[1])) m.set_item(a[0], json::str("freshness"), a[1]);
    return json::str("ignored");
  });
  auto response = J(R"({"found":true,"note":null,"rows":[{"fqn":"a","doc":null}],"next_steps":null})");
  response->entries.emplace_back(J(R"("pair")"), json::tuple({J("1"), json::null()}));
  const std::string before = compact(m, response);

  auto finished = finish_answer(m, response, json::str("status"), json::null(), json::null(), json::null());
  EXPECT_NE(finished, response);
  EXPECT_EQ(compact(m, response), before);
  EXPECT_EQ(compact(m, finished), R"({"found":true,"rows":[{"fqn":"a"}],"pair":[1,null],"next_steps":[)" STEP(
                                      "architecture", R"({"action":"components"})", "The components of the code") "]}");

  // The block goes in as given, null fields and all, before the steps are measured.
  auto block = J(R"({"stale":true,"since":null})");
  auto fresh = finish_answer(m, J(R"({"x":1})"), json::str("nope"), json::null(), json::null(), block);
  EXPECT_EQ(compact(m, fresh), R"({"x":1,"freshness":{"stale":true,"since":null}})");
  EXPECT_EQ(freshness_calls, (std::vector<std::string>{"null", R"({"stale":true,"since":null})"}));

  // A failure escapes, and the tool's own answer still holds its own steps.
  auto unsendable = J(R"({"next_steps":[)" S1 R"(],"x":"\ud800"})");
  EXPECT_EQ(raised([&] { finish_answer(m, unsendable, json::str("s"), json::null(), json::null(), json::null()); })
                .first,
            ErrorKind::unicode_encode);
  EXPECT_EQ(unsendable->entries.front().first->text, U"next_steps");
}

struct Miss {
  const char* name;
  bool symbols;
  std::function<Json(const std::vector<Json>&)> lookup;
  const char* guessed;  // what guessed_name answers
  const char* wanted;
  std::string did_you_mean, step;
  bool warned;
};

Json failing(const std::vector<Json>&) { throw NativeError(ErrorKind::value, "index unavailable"); }
Json nothing(const std::vector<Json>&) { return J("[]"); }

TEST(DidYouMean, AnswersAMissWithTheNearestCandidatesAndOneStep) {
  const auto candidates = J(R"([{"fqn":"pkg.lexer.parse_token","kind":"function"},{"fqn":"pkg.parse"}])");
  const auto near_paths = J(R"(["src/app/main.py","src/app/mains.py"])");
  const std::string search_bar = STEP("search", R"({"action":"symbols","query":"bar"})",
                                      "No indexed symbol is near pkg.Foo.bar: search the names");
  const std::string list_files = STEP("files", "{}", "No indexed file is near docs/none.md");
  const Miss cases[] = {
      {"nearest symbol", true, [&](const std::vector<Json>&) { return candidates; }, "never asked", "parse_tokn",
       compact_of(candidates),
       STEP("symbol", R"({"action":"detail","fqn":"pkg.lexer.parse_token"})",
            "The nearest indexed symbol to parse_tokn is pkg.lexer.parse_token"),
       false},
      {"no symbol near", true, nothing, "bar", "pkg.Foo.bar", "[]", search_bar, false},
      {"no guess searches the wanted name", true, nothing, "", "pkg.Foo.bar", "[]",
       STEP("search", R"({"action":"symbols","query":"pkg.Foo.bar"})",
            "No indexed symbol is near pkg.Foo.bar: search the names"),
       false},
      {"symbol lookup fails", true, failing, "bar", "pkg.Foo.bar", "[]", search_bar, true},
      {"nearest path", false, [&](const std::vector<Json>&) { return near_paths; }, "", "src/app/mian.py",
       compact_of(near_paths),
       STEP("file", R"({"action":"detail","path":"src/app/main.py"})",
            "The nearest indexed file to src/app/mian.py is src/app/main.py"),
       false},
      {"no path near", false, nothing, "", "docs/none.md", "[]", list_files, false},
      {"path lookup fails", false, failing, "", "docs/none.md", "[]", list_files, true},
  };
  for (const Miss& c : cases) {
    SCOPED_TRACE(c.name);
    NativeModel m;
    m.bind(c.symbols ? Fn::nearest_symbols : Fn::nearest_paths, c.lookup);
    int guesses = 0;
    m.bind(Fn::guessed_name, [&](const std::vector<Json>&) {
      ++guesses;
      return json::str(c.guessed);
    });
    // Fields are assigned: an existing next_steps keeps its place and is replaced.
    auto response = J(R"({"error":"not found","found":true,"next_steps":[)" S1 "]}");
    auto suggest = c.symbols ? &suggest_symbols<NativeModel> : &suggest_paths<NativeModel>;
    auto result = suggest(m, response, json::other("repo"), json::str(c.wanted), json::str("detail"));
    EXPECT_EQ(result, response);
    EXPECT_EQ(compact(m, result), R"({"error":"not found","found":false,"next_steps":[)" + c.step +
                                      R"(],"did_you_mean":)" + c.did_you_mean + "}");
    ASSERT_EQ(m.warnings.size(), c.warned ? 1u : 0u);
    if (c.warned) {
      EXPECT_NE(m.warnings[0].find(c.wanted), std::string::npos) << m.warnings[0];
    }
    EXPECT_EQ(guesses, c.symbols && c.did_you_mean == "[]" ? 1 : 0) << "a name is guessed only when nothing is near";
    if (!c.symbols && c.did_you_mean != "[]") {
      EXPECT_EQ(result->entries[3].second, near_paths) << "the paths themselves, not a copy";
    }
  }
}

}  // namespace
