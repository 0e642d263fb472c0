// The setting a module object reads from its environment when it is made:
// which shortcuts it takes.
#include <gtest/gtest.h>

#include "next_steps/shortcuts.hpp"

using namespace next_steps;

namespace {

Shortcuts without(std::initializer_list<Shortcut> off) {
  Shortcuts on = Shortcuts::all();
  for (Shortcut s : off) on.turn_off(s);
  return on;
}

TEST(Settings, AreReadFromTheVariable) {
  const struct {
    const char* shortcuts;
    Shortcuts on;
  } cases[] = {
      {nullptr, Shortcuts::all()},
      {"", Shortcuts::all()},
      {"on", Shortcuts::all()},
      {"off", Shortcuts::none()},
      {"check_walk,made_step_sizes", without({Shortcut::check_walk, Shortcut::made_step_sizes})},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.shortcuts ? c.shortcuts : "(unset)");
    const SettingsRead read = read_settings(c.shortcuts);
    EXPECT_EQ(read.error, "");
    EXPECT_TRUE(read.settings.shortcuts == c.on);
  }
}

TEST(Settings, RefuseWhatTheyCannotBeWithTheValuesTheyTake) {
  // An unknown word and "off" in a list: their messages are checked in test_modes.py.
  for (const char* shortcuts : {"check_walk,", "Check_Walk"}) {
    SCOPED_TRACE(shortcuts);
    EXPECT_TRUE(read_settings(shortcuts).error.starts_with("VELQUORN_NEXT_STEPS_SHORTCUTS must be"))
        << read_settings(shortcuts).error;
  }
}

}  // namespace
