// The shortcuts: work the module skips where it can show that doing it would
// change nothing.  This table is the one place that says which exist.  Each
// one's guard sits beside its plain path, the work it skips, and a module
// object can be made with any of them off (VELQUORN_NEXT_STEPS_SHORTCUTS,
// read when the object is made), so that each can be compared with what it
// replaces and weighed on the bench.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace next_steps {

// name, what is skipped (and where)
#define NEXT_STEPS_SHORTCUTS(X)                                                                                        \
  X(deferred_size, "the answer's size not measured before the budget needs it (fast/deferred_size.hpp)")                           \
  X(check_walk, "values that cannot fail not looked at while the size waits (fast/check_walk.hpp)")                           \
  X(made_step_sizes, "the steps a call made measured from their fields, not walked (fast/made_step_sizes.hpp)")                 \
  X(constant_texts, "constant texts and their sizes kept by address (host_binding/fast/constant_texts.hpp)")                               \
  X(value_told_repeats, "repeated calls told by value, not by their key texts (fast/value_told_repeats.hpp)")          \
  X(skipped_hit_count, "the hit count not worked out for a row that takes nothing from hits (fast/skipped_hit_count.hpp)") \
  X(namespace_cache, "the module's names kept until its namespace changes (host_binding/fast/namespace_cache.hpp)")

enum class Shortcut : std::uint8_t {
#define NEXT_STEPS_ENUM(name, skips) name,
  NEXT_STEPS_SHORTCUTS(NEXT_STEPS_ENUM)
#undef NEXT_STEPS_ENUM
};

struct ShortcutRow {
  std::string_view name, skips;
};

inline constexpr ShortcutRow shortcut_rows[] = {
#define NEXT_STEPS_ROW(name, skips) {#name, skips},
    NEXT_STEPS_SHORTCUTS(NEXT_STEPS_ROW)
#undef NEXT_STEPS_ROW
};

// Which shortcuts are on.
class Shortcuts {
 public:
  static constexpr Shortcuts all() { return Shortcuts((std::uint32_t{1} << std::size(shortcut_rows)) - 1); }
  static constexpr Shortcuts none() { return Shortcuts(0); }
  constexpr bool on(Shortcut s) const { return bits_ >> static_cast<unsigned>(s) & 1; }
  constexpr void turn_off(Shortcut s) { bits_ &= ~(std::uint32_t{1} << static_cast<unsigned>(s)); }
  constexpr bool operator==(const Shortcuts&) const = default;

 private:
  constexpr explicit Shortcuts(std::uint32_t bits) : bits_(bits) {}
  std::uint32_t bits_;
};
static_assert(std::size(shortcut_rows) <= 32);

// What a module object runs with.
struct Settings {
  Shortcuts shortcuts = Shortcuts::all();
};

inline constexpr std::string_view shortcuts_variable = "VELQUORN_NEXT_STEPS_SHORTCUTS";

// The settings the environment value asks for (null or empty: unset), or
// why they cannot be had: "on", every shortcut; "off", none; else a
// comma-separated list of the shortcuts to turn off.
struct SettingsRead {
  Settings settings;
  std::string error;  // empty when read
};

inline std::optional<Shortcuts> parse_shortcuts(std::string_view text) {
  if (text.empty() || text == "on") return Shortcuts::all();
  if (text == "off") return Shortcuts::none();
  Shortcuts on = Shortcuts::all();
  while (true) {
    const std::size_t comma = text.find(',');
    const std::string_view name = text.substr(0, comma);
    std::size_t i = 0;
    while (i < std::size(shortcut_rows) && shortcut_rows[i].name != name) ++i;
    if (i == std::size(shortcut_rows)) return std::nullopt;
    on.turn_off(static_cast<Shortcut>(i));
    if (comma == std::string_view::npos) return on;
    text.remove_prefix(comma + 1);
  }
}

inline SettingsRead read_settings(const char* shortcuts_text) {
  const std::string_view shortcuts_value = shortcuts_text ? shortcuts_text : "";
  SettingsRead read;
  const auto shortcuts = parse_shortcuts(shortcuts_value);
  if (!shortcuts) {
    read.error = std::string(shortcuts_variable) + " must be 'on', 'off' or a comma-separated list of shortcuts to turn off (";
    for (const ShortcutRow& row : shortcut_rows) read.error += std::string(row.name) + ", ";
    read.error.resize(read.error.size() - 2);
    read.error += "), not '" + std::string(shortcuts_value) + "'";
    return read;
  }
  read.settings = {*shortcuts};
  return read;
}

}  // namespace next_steps
