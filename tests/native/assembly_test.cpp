// Putting it together: step assembly on the answer's private copy, and the
// did-you-mean answer to a miss, which must answer even when the name lookup
// fails.
#include "helpers.hpp"

using namespace next_steps;
using next_steps::testing::compact;
using next_steps::testing::J;

namespace {

#define S1 STEP("a", "{}", "one")
#define S2 STEP("b", "{}", "two")

Json add(NativeModel& m, const Json& answer, const char* tool, const char* action, const Json& arguments) {
  auto result = add_next_steps(m, answer, json::str(tool), action ? json::str(action) : json::null(), arguments);
  EXPECT_EQ(result, answer) << "the answer is changed in place and handed back";
  return result;
}

class AddNextSteps : public next_steps::testing::BothModes {};
NEXT_STEPS_BOTH_MODES(AddNextSteps);

TEST_P(AddNextSteps, SignalFirstThenUsualWithoutRepeatsCapped) {
  m.bind(Fn::usual, [](const std::vector<Json>&) {
    return J("[" STEP("search", R"({"query":"q","action":"semantic"})", "same call, other reason") "," S1 "," S2
             "," STEP("c", "{}", "three") "]");
  });
  auto answer = add(m, J(R"({"total_count":0})"), "search", "code", J(R"({"query":"q"})"));
  const std::string distinct[] = {STEP("search", R"({"action":"semantic","query":"q"})", "No hits: search by meaning"),
                                  S1, S2, STEP("c", "{}", "three")};
  static_assert(max_steps < std::size(distinct), "more distinct steps than the cap");
  std::string kept;
  for (std::int64_t i = 0; i < max_steps; ++i) kept += (i ? "," : "") + distinct[i];
  EXPECT_EQ(compact(m, answer), R"({"total_count":0,"next_steps":[)" + kept + "]}");
}

Json failing(const std::vector<Json>&) { throw NativeError(ErrorKind::value, "index unavailable"); }

TEST(DidYouMean, AnswersAMissWithTheNearestCandidatesAndOneStep) {
  const std::string symbols = R"([{"fqn":"pkg.lexer.parse_token","kind":"function"},{"fqn":"pkg.parse"}])";
  const auto near_paths = J(R"(["src/app/main.py","src/app/mains.py"])");
  const struct {
    bool symbols;
    std::function<Json(const std::vector<Json>&)> lookup;
    const char* wanted;
    std::string did_you_mean, step;
    bool warned;
  } cases[] = {
      {true, [&](const std::vector<Json>&) { return J(symbols); }, "parse_tokn", symbols,
       STEP("symbol", R"({"action":"detail","fqn":"pkg.lexer.parse_token"})",
            "The nearest indexed symbol to parse_tokn is pkg.lexer.parse_token"), false},
      {true, failing, "pkg.Foo.bar", "[]",
       STEP("search", R"({"action":"symbols","query":"bar"})", "No indexed symbol is near pkg.Foo.bar: search the names"),
       true},
      {false, [&](const std::vector<Json>&) { return near_paths; }, "src/app/mian.py", R"(["src/app/main.py","src/app/mains.py"])",
       STEP("file", R"({"action":"detail","path":"src/app/main.py"})",
            "The nearest indexed file to src/app/mian.py is src/app/main.py"), false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.wanted);
    NativeModel m;
    m.bind(c.symbols ? Fn::nearest_symbols : Fn::nearest_paths, c.lookup);
    int guesses = 0;
    m.bind(Fn::guessed_name, [&](const std::vector<Json>&) { return ++guesses, json::str("bar"); });
    // Fields are assigned: an existing next_steps keeps its place and is replaced.
    auto response = J(R"({"error":"not found","found":true,"next_steps":[)" S1 "]}");
    auto suggest = c.symbols ? &suggest_symbols<NativeModel> : &suggest_paths<NativeModel>;
    auto result = suggest(m, response, json::other("repo"), json::str(c.wanted), json::str("detail"));
    EXPECT_EQ(result, response);
    EXPECT_EQ(compact(m, result), R"({"error":"not found","found":false,"next_steps":[)" + c.step +
                                      R"(],"did_you_mean":)" + c.did_you_mean + "}");
    ASSERT_EQ(m.warnings.size(), c.warned ? 1u : 0u);
    if (c.warned) { EXPECT_NE(m.warnings[0].find(c.wanted), std::string::npos) << m.warnings[0]; }
    EXPECT_EQ(guesses, c.symbols && c.warned ? 1 : 0) << "a name is guessed only when nothing is near";
    if (!c.symbols && !c.warned) { EXPECT_EQ(result->entries[3].second, near_paths) << "the paths, not a copy"; }
  }
}

}  // namespace
