// The settings a module object reads from its environment when it is made:
// which shortcuts it takes, and how it counts strings.
#include <gtest/gtest.h>

#include "next_steps/shortcuts.hpp"

using namespace next_steps;

namespace {

Shortcuts without(std::initializer_list<Shortcut> off) {
  Shortcuts on = Shortcuts::all();
  for (Shortcut s : off) on.turn_off(s);
  return on;
}

TEST(Settings, AreReadFromTheTwoVariables) {
  const struct {
    const char *shortcuts, *counting;
    Counting widest;
    Settings settings;
  } cases[] = {
      {nullptr, nullptr, Counting::avx2, {Shortcuts::all(), Counting::avx2}},
      {"", "", Counting::sse2, {Shortcuts::all(), Counting::sse2}},
      {"on", "plain", Counting::avx2, {Shortcuts::all(), Counting::plain}},
      {"on", "sse2", Counting::avx2, {Shortcuts::all(), Counting::sse2}},
      // Without the vector count the level is plain, whatever is asked.
      {"off", nullptr, Counting::avx2, {Shortcuts::none(), Counting::plain}},
      {"off", "avx2", Counting::avx2, {Shortcuts::none(), Counting::plain}},
      {"simd_counts", nullptr, Counting::avx2, {without({Shortcut::simd_counts}), Counting::plain}},
      {"check_walk,made_step_sizes", nullptr, Counting::sse2,
       {without({Shortcut::check_walk, Shortcut::made_step_sizes}), Counting::sse2}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.shortcuts ? c.shortcuts : "(unset)") + " / " + (c.counting ? c.counting : "(unset)"));
    const SettingsRead read = read_settings(c.shortcuts, c.counting, c.widest);
    EXPECT_EQ(read.error, "");
    EXPECT_TRUE(read.settings.shortcuts == c.settings.shortcuts);
    EXPECT_EQ(read.settings.counting, c.settings.counting);
  }
}

TEST(Settings, RefuseWhatTheyCannotBeWithTheValuesTheyTake) {
  const struct {
    const char *shortcuts, *counting;
    Counting widest;
    const char* error_starts;
  } cases[] = {
      // An unknown word, "off" in a list and an unknown level: their messages are checked in test_modes.py.
      {"check_walk,", nullptr, Counting::avx2, "VELQUORN_NEXT_STEPS_SHORTCUTS must be"},
      {"Quiet_Fields", nullptr, Counting::avx2, "VELQUORN_NEXT_STEPS_SHORTCUTS must be"},
      {nullptr, "avx2", Counting::sse2,
       "VELQUORN_NEXT_STEPS_STRING_COUNTING is 'avx2', which this CPU does not run; it runs up to 'sse2'"},
      {"off", "sse2", Counting::plain, "VELQUORN_NEXT_STEPS_STRING_COUNTING is 'sse2'"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.shortcuts ? c.shortcuts : "(unset)") + " / " + (c.counting ? c.counting : "(unset)"));
    EXPECT_TRUE(read_settings(c.shortcuts, c.counting, c.widest).error.starts_with(c.error_starts))
        << read_settings(c.shortcuts, c.counting, c.widest).error;
  }
}

}  // namespace
