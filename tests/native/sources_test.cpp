// Where steps come from: the test scope of a tests step, the usual
// follow-ups of a tool and action with the argument each takes from the
// answer, and the signals the answer itself calls for.
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
  const struct {
    std::string answer, arguments, scope;
  } cases[] = {
      {R"({"files":)" + paths(11) + "}", "{}", R"({"changed_files":)" + paths(10) + "}"},
      // Repeats go before counting: twelve paths with three repeats are nine.
      {R"({"files":)" + paths(12, 4) + R"(,"base_branch":"main"})", "{}",
       R"({"changed_files":["f0","f4","f5","f6","f7","f8","f9","f10","f11"]})"},
      {R"({"files":{"a":1}})", R"({"path":3})", "{}"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.answer + " " + c.arguments);
    EXPECT_EQ(compact(m, tests_scope(m, J(c.answer), J(c.arguments))), c.scope);
  }
}

struct SourceCase {
  const char* tool;
  const char* action;  // nullptr: none
  std::string answer, arguments, steps;
};

template <std::size_t N>
void check(const SourceCase (&cases)[N], Json (*source)(NativeModel&, const Json&, const Json&, const Json&, const Json&)) {
  for (const SourceCase& c : cases) {
    SCOPED_TRACE(std::string(c.tool) + ":" + (c.action ? c.action : "None") + " " + c.answer);
    NativeModel m;
    auto action = c.action ? json::str(c.action) : json::null();
    EXPECT_EQ(compact(m, source(m, J(c.answer), json::str(c.tool), action, J(c.arguments))), c.steps);
  }
}

TEST(Usual, RowOfTheToolAndActionWithEachArgumentTakenFromTheAnswer) {
  const SourceCase cases[] = {
      // No hits: nothing is taken from the answer or the request.
      {"symbol", "detail", R"({"fqn":"a.b.f","file":"a.py","total_count":0})", R"({"fqn":"x","path":"p"})", "[]"},
      // A bare string is a path in "files" only; the request fills what the answer lacks.
      {"file", nullptr, R"({"results":["r.py"]})", R"({"fqn":"req.f","path":"req.py"})",
       "[" STEP("symbol", R"({"action":"detail","fqn":"req.f"})", "Details of the best hit") "," STEP(
           "file", R"({"action":"imports","path":"req.py"})", "What it imports") "]"},
  };
  check(cases, &usual<NativeModel>);
}

TEST(Signals, FireOnNoHitsManyCallersOrAnUntestedFile) {
  const SourceCase cases[] = {
      {"search", "symbols", R"({"total_count":0,"query":"Foo"})", "{}",
       "[" STEP("search", R"({"action":"semantic","query":"Foo"})", "No hits: search by meaning") "]"},
      {"symbol", "references", R"({"fqn":"a.b.C","references":)" + paths(30) + "}", R"({"fqn":""})",
       "[" STEP("quality", R"({"action":"impact","fqn":"a.b.C"})", "30 references: check the blast radius") "]"},
      {"tests", "for_file", R"({"total_count":0})", R"({"path":""})",
       "[" STEP("tests", R"({"action":"recommended","changed_files":[""]})",
                "No test covers it: tests for a change of it") "]"},
  };
  check(cases, &signals<NativeModel>);
}

}  // namespace
