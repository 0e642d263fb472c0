// Where steps come from: the test scope of a tests step, the usual
// follow-ups of a tool and action with the argument each takes from the
// answer, the hit count, and the signals the answer itself calls for.
#include "helpers.hpp"

using namespace next_steps;
using next_steps::testing::compact;
using next_steps::testing::J;

namespace {

std::string paths(int n, int repeats = 0) {
  std::string out = "[";
  for (int i = 0; i < n; ++i) out += (i ? ",\"f" : "\"f") + std::to_string(i < repeats ? 0 : i) + "\"";
  return out + "]";
}

TEST(TestsScope, ListedFilesElseTheBranchBaseElseNothing) {
  NativeModel m;
  const std::string eleven = paths(11), first_ten = paths(10);
  const struct {
    std::string answer, arguments, scope;
  } cases[] = {
      {R"({"base_branch":"main"})", "{}", R"({"base_branch":"main"})"},
      {"{}", "{}", "{}"},
      {R"({"files":["a","b"],"base_branch":"main"})", "{}", R"({"changed_files":["a","b"]})"},
      {R"({"files":["a"],"files_omitted":3,"base_branch":"main"})", "{}", R"({"base_branch":"main"})"},
      {R"({"files":["a"],"files_omitted":true})", "{}", R"({"changed_files":["a"]})"},
      {R"({"base_branch":"main","files":)" + eleven + "}", "{}", R"({"base_branch":"main"})"},
      {R"({"files":)" + eleven + "}", "{}", R"({"changed_files":)" + first_ten + "}"},
      {R"({"files":)" + first_ten + R"(,"base_branch":"main"})", "{}", R"({"changed_files":)" + first_ten + "}"},
      // Repeats go before counting: twelve paths with three repeats are nine.
      {R"({"files":)" + paths(12, 4) + R"(,"base_branch":"main"})", "{}",
       R"({"changed_files":["f0","f4","f5","f6","f7","f8","f9","f10","f11"]})"},
      // The symbol's own file comes first and counts against the cap.
      {R"({"file":"a.py","files":["b.py","a.py"]})", "{}", R"({"changed_files":["a.py","b.py"]})"},
      {R"({"file":"own","affected_files":)" + first_ten + "}", "{}",
       R"({"changed_files":["own","f0","f1","f2","f3","f4","f5","f6","f7","f8"]})"},
      {R"({"affected_files":[{"path":"x"}],"files":["y"]})", "{}", R"({"changed_files":["x"]})"},
      {R"({"affected_files":[{"name":"x"},3,null,["x"]],"files":[{"path":"y"},"z"]})", "{}",
       R"({"changed_files":["y","z"]})"},
      {R"({"base_branch":"","files_omitted":true,"files":["a"]})", "{}", R"({"changed_files":["a"]})"},
      {R"({"base_branch":5})", "{}", "{}"},
      {"{}", R"({"path":"p"})", R"({"changed_files":["p"]})"},
      {R"({"file":"f"})", R"({"path":"p"})", R"({"changed_files":["f"]})"},
      {R"({"files":{"a":1}})", R"({"path":3})", "{}"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.answer + " " + c.arguments);
    EXPECT_EQ(compact(m, tests_scope(m, J(c.answer), J(c.arguments))), c.scope);
  }
}

TEST(HitCount, IntegerCountFieldElseFirstHitListElseNull) {
  NativeModel m;
  const std::pair<const char*, const char*> cases[] = {
      {"{}", "null"},
      {R"({"total_count":5,"symbols":[]})", "5"},
      {R"({"symbols":[],"files":[1,2]})", "0"},
      {R"({"total_count":"7","total":3})", "3"},
      {R"({"total_count":1.5,"results":[1]})", "1"},
      {R"({"total":true})", "1"},
      {R"({"total_count":-2})", "-2"},
      {R"({"symbols":{"a":1},"components":[1,2]})", "2"},
  };
  for (const auto& [answer, count] : cases) EXPECT_EQ(compact(m, hit_count(m, J(answer))), count) << answer;
}

struct SourceCase {
  const char* tool;
  const char* action;  // nullptr: none
  std::string answer, arguments, steps;
};

void check(const SourceCase (&cases)[], std::size_t n,
           Json (*source)(NativeModel&, const Json&, const Json&, const Json&, const Json&)) {
  for (std::size_t i = 0; i < n; ++i) {
    const SourceCase& c = cases[i];
    SCOPED_TRACE(std::string(c.tool) + ":" + (c.action ? c.action : "None") + " " + c.answer);
    NativeModel m;
    auto action = c.action ? json::str(c.action) : json::null();
    EXPECT_EQ(compact(m, source(m, J(c.answer), json::str(c.tool), action, J(c.arguments))), c.steps);
  }
}

#define STEP(tool, args, reason) R"({"tool":")" tool R"(","args":)" args R"(,"reason":")" reason R"("})"

TEST(Usual, RowOfTheToolAndActionWithEachArgumentTakenFromTheAnswer) {
  const std::string search_hit = R"({"total_count":1,"results":[{"path":"a.py","fqn":"a.f"}]})";
  const SourceCase cases[] = {
      // An action's own row replaces the tool's row, even when it is empty.
      {"search", "code", search_hit, "{}",
       "[" STEP("file", R"({"action":"symbols","path":"a.py"})", "Symbols of the first file") "]"},
      {"search", nullptr, search_hit, "{}",
       "[" STEP("symbol", R"({"action":"detail","fqn":"a.f"})", "Details of the best hit") "," STEP(
           "symbol", R"({"action":"callers","fqn":"a.f"})", "Who calls the best hit") "]"},
      {"search", "regex", R"({"fqn":"own","total_count":5,"symbols":[]})", "{}",
       "[" STEP("symbol", R"({"action":"detail","fqn":"own"})", "Details of the best hit") "," STEP(
           "symbol", R"({"action":"callers","fqn":"own"})", "Who calls the best hit") "]"},
      {"quality", "circular_deps", R"({"fqn":"x"})", "{}", "[]"},
      {"quality", nullptr, R"({"fqn":"x"})", "{}",
       "[" STEP("symbol", R"({"action":"references","fqn":"x"})", "Check it has no references") "]"},
      {"nope", "detail", R"({"fqn":"x"})", "{}", "[]"},
      {"symbol", "detail", R"({"fqn":"a.b.f","file":"a/b.py"})", "{}",
       "[" STEP("symbol", R"({"action":"callers","fqn":"a.b.f"})", "Who calls the best hit") "," STEP(
           "symbol", R"({"action":"references","fqn":"a.b.f"})", "Every use of it") "," STEP("tests", R"({"action":"for_file","path":"a/b.py"})", "Its file's tests") "]"},
      {"git", "log", R"({"files":["a","b","c"]})", "{}",
       "[" STEP("tests", R"({"action":"recommended","changed_files":["a","b","c"]})",
                "Tests to run for these files") "," STEP("context", R"({"action":"delta"})",
                                                         "Context for reviewing the changes") "]"},
      {"git", "log", "{}", "{}", "[" STEP("context", R"({"action":"delta"})", "Context for reviewing the changes") "]"},
      // No hits: nothing is taken from the answer or the request...
      {"symbol", "detail", R"({"fqn":"a.b.f","file":"a.py","total_count":0})", R"({"fqn":"x","path":"p"})", "[]"},
      // ...but a step that takes nothing, or the tests scope, still stands.
      {"status", nullptr, R"({"total_count":0})", "{}",
       "[" STEP("architecture", R"({"action":"components"})", "The components of the code") "]"},
      {"context", nullptr, R"({"total_count":0,"files":["a"]})", "{}",
       "[" STEP("tests", R"({"action":"recommended","changed_files":["a"]})", "Tests to run for these files") "]"},
      // Hit lists are searched in their fixed order; a bare string is a path in "files" only.
      {"architecture", nullptr, R"({"components":[{"name":"C"}],"symbols":[{"name":"S"}]})", "{}",
       "[" STEP("architecture", R"({"action":"dependencies","component":"S"})", "What it depends on") "]"},
      {"file", nullptr, R"({"results":["r.py"],"callers":[{"path":"c.py"}]})", "{}",
       "[" STEP("file", R"({"action":"imports","path":"c.py"})", "What it imports") "]"},
      {"file", nullptr, R"({"results":["r.py"]})", R"({"fqn":"req.f","path":"req.py"})",
       "[" STEP("symbol", R"({"action":"detail","fqn":"req.f"})", "Details of the best hit") "," STEP(
           "file", R"({"action":"imports","path":"req.py"})", "What it imports") "]"},
      // A falsy value is still a value.
      {"files", nullptr, R"({"file":""})", "{}",
       "[" STEP("file", R"({"action":"symbols","path":""})", "Symbols of the first file") "]"},
  };
  check(cases, std::size(cases), &usual<NativeModel>);
}

TEST(Usual, AHitTheSymbolModelRejectsGivesNoFqn) {
  NativeModel m;
  std::vector<std::string> asked;
  m.bind(Fn::is_code_symbol, [&](const std::vector<Json>& a) {
    asked.push_back(compact(m, json::list(a)));
    return json::boolean(asked.size() % 2 == 0);
  });
  auto answer = J(R"({"symbols":[{"fqn":"doc.intro","kind":"section","file":"README.md"},{"fqn":"pkg.f","kind":3}]})");
  auto steps = usual(m, answer, json::str("search"), json::null(), J("{}"));
  ASSERT_EQ(steps->items.size(), 2u);
  EXPECT_EQ(compact(m, steps->items[0]->entries[1].second), R"({"action":"detail","fqn":"pkg.f"})");
  // Each hint searches again; a kind or file that is not a string is handed on as null.
  EXPECT_EQ(asked, (std::vector<std::string>{R"(["section","README.md"])", "[null,null]", R"(["section","README.md"])",
                                             "[null,null]"}));
  EXPECT_NE(steps->items[0]->entries[1].second, steps->items[1]->entries[1].second) << "steps never share args";
}

TEST(Signals, FireOnNoHitsManyCallersOrAnUntestedFile) {
  const std::string thirty = R"({"fqn":"a.b.C","references":)" + paths(30) + "}";
  const SourceCase cases[] = {
      {"search", nullptr, R"({"total_count":0})", R"({"query":"q"})", "[]"},
      {"symbol", "detail", R"({"total_count":0})", R"({"query":"q"})", "[]"},
      {"search", "code", R"({"total_count":0})", R"({"query":"parse tokens"})",
       "[" STEP("search", R"({"action":"semantic","query":"parse tokens"})", "No hits: search by meaning") "]"},
      {"search", "symbols", R"({"total_count":0,"query":"Foo"})", "{}",
       "[" STEP("search", R"({"action":"semantic","query":"Foo"})", "No hits: search by meaning") "]"},
      {"search", "symbols", R"({"total_count":0})", R"({"query":""})", "[]"},
      {"search", "definition", R"({"total_count":1})", R"({"query":"q"})", "[]"},
      {"search", "definition", "{}", R"({"query":"q"})", "[]"},
      {"search", "semantic", R"({"results":[]})", R"({"query":"how are tokens refreshed"})",
       "[" STEP("explore", R"({"query":"how are tokens refreshed"})", "No close match: ask explore") "]"},
      {"symbol", "callers", R"({"total_count":8})", R"({"fqn":"pkg.mod.func"})",
       "[" STEP("quality", R"({"action":"impact","fqn":"pkg.mod.func"})", "8 callers: check the blast radius") "]"},
      {"symbol", "callers", R"({"total_count":7})", R"({"fqn":"pkg.mod.func"})", "[]"},
      {"symbol", "references", thirty, R"({"fqn":""})",
       "[" STEP("quality", R"({"action":"impact","fqn":"a.b.C"})", "30 references: check the blast radius") "]"},
      {"symbol", "callers", R"({"total_count":20})", "{}", "[]"},
      {"tests", "for_file", R"({"tests":[]})", R"({"path":"src/app/main.py"})",
       "[" STEP("tests", R"({"action":"recommended","changed_files":["src/app/main.py"]})",
                "No test covers it: tests for a change of it") "]"},
      {"tests", "for_file", R"({"total_count":0,"path":"x","file":"y"})", R"({"path":5})", "[]"},
      {"tests", "for_file", R"({"total_count":0})", R"({"path":""})",
       "[" STEP("tests", R"({"action":"recommended","changed_files":[""]})",
                "No test covers it: tests for a change of it") "]"},
  };
  check(cases, std::size(cases), &signals<NativeModel>);
}

}  // namespace
