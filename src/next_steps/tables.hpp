// The fixed vocabulary of follow-ups: the usual follow-up records, their rows
// by tool and action, the signal rows, the hit lists, the hint fields and the
// limits.  The host binding publishes the same data as host objects.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string_view>

#include "next_steps/vocabulary.hpp"

namespace next_steps {

inline constexpr double hint_share = 0.15;
inline constexpr std::int64_t hint_floor_bytes = 320;
inline constexpr auto steps_key_bytes = static_cast<std::int64_t>(key_bytes(Name::next_steps));  // ,"next_steps":
inline constexpr std::int64_t max_steps = 3;
inline constexpr std::int64_t fan_in_for_impact = 8;
inline constexpr std::int64_t max_step_files = 10;

// The argument a usual follow-up takes from the answer, in the order of the
// host's literal type: the text `_taken` is asked for it by, which the stub
// lists.
enum class Takes : unsigned char { fqn, path, query, component, changed_files, none };
inline constexpr auto takes_texts =
    std::to_array<std::string_view>({"fqn", "path", "query", "component", "changed_files"});
static_assert(takes_texts.size() == static_cast<std::size_t>(Takes::none), "a text for each Takes but none");
constexpr std::string_view text_of(Takes t) { return takes_texts[static_cast<std::size_t>(t)]; }

// The key of the step's args that holds what a follow-up took (a tests
// step's scope brings its own keys).  It is the text it is taken by: a
// step's argument is named as the answer names what it holds.
constexpr std::string_view argument_key(Takes t) { return text_of(t); }

struct HintRecord {
  std::string_view tool;
  std::string_view reason;
  std::string_view action;  // empty: no action
  Takes takes;
  std::string_view shared_name;  // the module constant that holds it, if any
};

// Every distinct record, each with the name the rows give its index by;
// rows refer to them by index, so a shared record is the same object
// wherever it stands.
//   index name, tool, reason, action, what it takes, module constant
#define NEXT_STEPS_HINT_RECORDS(X)                                                             \
  X(detail, "symbol", "Details of the best hit", "detail", fqn, "_DETAIL")                     \
  X(callers, "symbol", "Who calls the best hit", "callers", fqn, "_CALLERS")                   \
  X(references, "symbol", "Every use of it", "references", fqn, "_REFERENCES")                 \
  X(file_symbols, "file", "Symbols of the first file", "symbols", path, "_FILE_SYMBOLS")       \
  X(changed_tests, "tests", "Tests to run for these files", "recommended", changed_files,      \
    "_CHANGED_TESTS")                                                                          \
  X(components, "architecture", "The components of the code", "components", none, "")         \
  X(file_tests, "tests", "Its file's tests", "for_file", path, "")                             \
  X(imports, "file", "What it imports", "imports", path, "")                                   \
  X(dependencies, "architecture", "What it depends on", "dependencies", component, "")         \
  X(delta, "context", "Context for reviewing the changes", "delta", none, "")                  \
  X(no_references, "symbol", "Check it has no references", "references", fqn, "")

inline constexpr auto hint_records = std::to_array<HintRecord>({
#define NEXT_STEPS_HINT_RECORD(index, tool, reason, action, takes, shared) {tool, reason, action, Takes::takes, shared},
    NEXT_STEPS_HINT_RECORDS(NEXT_STEPS_HINT_RECORD)
#undef NEXT_STEPS_HINT_RECORD
});

namespace hint_index {
enum : unsigned char {
#define NEXT_STEPS_HINT_INDEX(index, ...) index,
  NEXT_STEPS_HINT_RECORDS(NEXT_STEPS_HINT_INDEX)
#undef NEXT_STEPS_HINT_INDEX
};
}

// The records held by module constants, which come first.
constexpr bool is_shared(const HintRecord& r) { return !r.shared_name.empty(); }
inline constexpr auto shared_hint_count =
    static_cast<std::size_t>(std::ranges::find_if_not(hint_records, is_shared) - hint_records.begin());
static_assert(std::ranges::none_of(hint_records.begin() + shared_hint_count, hint_records.end(), is_shared),
              "the shared records come first");

struct Row {
  // The size is the count of the hints given.
  constexpr Row(std::string_view row_key, std::initializer_list<unsigned char> row_hints)
      : key(row_key), hints{}, size(row_hints.size()) {
    if (size > hints.size()) throw "more hints than a row holds";
    std::copy(row_hints.begin(), row_hints.end(), hints.begin());
  }
  std::string_view key;
  std::array<unsigned char, 3> hints;
  std::size_t size;
  std::span<const unsigned char> items() const { return {hints.data(), size}; }
};

inline constexpr auto next_steps_rows = std::to_array<Row>({
    {"status", {hint_index::components}},
    {"search", {hint_index::detail, hint_index::callers}},
    {"search:code", {hint_index::file_symbols}},
    {"symbol", {hint_index::references, hint_index::callers}},
    {"symbol:detail", {hint_index::callers, hint_index::references, hint_index::file_tests}},
    {"symbol:callers", {hint_index::references}},
    {"symbol:references", {hint_index::callers}},
    {"file", {hint_index::detail, hint_index::imports}},
    {"file:imports", {hint_index::file_symbols}},
    {"file:related", {hint_index::file_symbols}},
    {"files", {hint_index::file_symbols}},
    {"architecture", {hint_index::dependencies}},
    {"git", {hint_index::changed_tests, hint_index::delta}},
    {"git:hotspots", {hint_index::file_symbols}},
    {"quality", {hint_index::no_references}},
    {"quality:impact", {hint_index::changed_tests}},
    {"quality:circular_deps", {}},
    {"quality:duplicates", {hint_index::detail}},
    {"context", {hint_index::changed_tests}},
    {"tests", {hint_index::file_symbols}},
});

inline const Row* find_row(std::string_view key) {
  for (const Row& row : next_steps_rows)
    if (row.key == key) return &row;
  return nullptr;
}

enum class Signal : unsigned char { search_by_meaning, ask_explore, blast_radius, untested };

struct SignalRow {
  std::string_view key;
  Signal signal;
};

inline constexpr auto signal_rows = std::to_array<SignalRow>({
    {"search:symbols", Signal::search_by_meaning},
    {"search:code", Signal::search_by_meaning},
    {"search:definition", Signal::search_by_meaning},
    {"search:semantic", Signal::ask_explore},
    {"symbol:callers", Signal::blast_radius},
    {"symbol:references", Signal::blast_radius},
    {"tests:for_file", Signal::untested},
});

inline std::optional<Signal> find_signal(std::string_view key) {
  for (const SignalRow& row : signal_rows)
    if (row.key == key) return row.signal;
  return std::nullopt;
}

inline constexpr std::array hit_lists = {Name::symbols, Name::results,      Name::matches, Name::definitions,
                                         Name::callers, Name::references,   Name::dead_symbols, Name::files,
                                         Name::tests,   Name::components};

inline constexpr auto hint_keys =
    std::to_array<std::string_view>({"tip", "next_steps", "note", "notes", "tips", "hints", "hint"});

// The lengths of the hint fields' names, a bit each.
constexpr std::uint64_t hint_key_lengths() {
  std::uint64_t lengths = 0;
  for (std::string_view key : hint_keys) lengths |= std::uint64_t{1} << key.size();
  return lengths;
}
static_assert(std::ranges::all_of(hint_keys, [](std::string_view key) { return key.size() < 64; }));

// Whether a key's text is a hint field's; most keys differ in length alone,
// which one test of a bit tells.
constexpr bool is_hint_key_text(std::string_view text) {
  if (text.size() >= 64 || !(hint_key_lengths() >> text.size() & 1)) return false;
  for (std::string_view key : hint_keys)
    if (key.size() == text.size() && key == text) return true;
  return false;
}

}  // namespace next_steps
