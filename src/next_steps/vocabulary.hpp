// The words the logic and its value models share: kinds of value, kinds of
// error, the names the module reads or writes, and the functions that are
// called through the module's namespace.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace next_steps {

enum class Kind { null, boolean, integer, real, str, list, tuple, dict, other };

// The host's exception kinds that the logic raises itself.
enum class ErrorKind { type, value, key, attribute, recursion, unicode_encode };

// Every string the logic looks up, writes or calls by name.  The host model
// interns each once per module; the order here is the order of that table.
#define NEXT_STEPS_NAMES(X)                                                    \
  X(tool) X(args) X(reason) X(action) X(query) X(fqn) X(path) X(file)          \
  X(files) X(affected_files) X(files_omitted) X(base_branch) X(changed_files)  \
  X(found) X(did_you_mean) X(next_steps) X(total_count) X(total) X(name)       \
  X(kind) X(hits) X(what) X(symbols) X(results) X(matches) X(definitions)      \
  X(callers) X(references) X(dead_symbols) X(tests) X(components) X(semantic)  \
  X(impact) X(recommended) X(search) X(explore) X(quality) X(to_dict)

enum class Name : unsigned char {
#define NEXT_STEPS_ENUM(n) n,
  NEXT_STEPS_NAMES(NEXT_STEPS_ENUM)
#undef NEXT_STEPS_ENUM
};

inline constexpr std::array name_texts = {
#define NEXT_STEPS_TEXT(n) std::string_view(#n),
    NEXT_STEPS_NAMES(NEXT_STEPS_TEXT)
#undef NEXT_STEPS_TEXT
};

constexpr std::string_view text_of(Name n) { return name_texts[static_cast<std::size_t>(n)]; }

// The compact bytes of a dict key named n with what stands around it: the
// quotes, the '{' or ',' before it and the ':' after it.
constexpr std::size_t key_bytes(Name n) { return text_of(n).size() + 4; }

// The names the logic reads from the module's namespace at each call, so
// that a name rebound by the host (a test double, a patched collaborator) is
// what the next call uses: first the module's own functions, then the
// collaborators of the sibling modules and the logger.
#define NEXT_STEPS_FUNCTIONS(X)                                                 \
  X(step, "step") X(without_null_fields, "without_null_fields")                 \
  X(add_next_steps, "_add_next_steps") X(signals, "_signals")                   \
  X(usual, "_usual") X(hit_count, "_hit_count") X(taken, "_taken")              \
  X(tests_scope, "_tests_scope") X(answer_files, "_answer_files")               \
  X(is_code_hit, "_is_code_hit") X(deduplicated, "_deduplicated")               \
  X(within_share, "_within_share") X(hint_size, "_hint_size")                   \
  X(encoded_size, "_encoded_size")                                              \
  X(add_freshness, "add_freshness") X(is_code_symbol, "is_code_symbol")         \
  X(nearest_symbols, "nearest_symbols") X(nearest_paths, "nearest_paths")       \
  X(guessed_name, "guessed_name") X(logger, "logger")

enum class Fn : unsigned char {
#define NEXT_STEPS_FN_ENUM(id, text) id,
  NEXT_STEPS_FUNCTIONS(NEXT_STEPS_FN_ENUM)
#undef NEXT_STEPS_FN_ENUM
};

inline constexpr std::array function_names = {
#define NEXT_STEPS_FN_TEXT(id, text) std::string_view(text),
    NEXT_STEPS_FUNCTIONS(NEXT_STEPS_FN_TEXT)
#undef NEXT_STEPS_FN_TEXT
};

constexpr std::string_view text_of(Fn f) { return function_names[static_cast<std::size_t>(f)]; }

// The first collaborator: functions before it are the module's own.
inline constexpr Fn first_collaborator = Fn::add_freshness;
constexpr bool is_own(Fn f) { return f < first_collaborator; }

// Maps a function of the module to its implementation in the logic; each
// specialisation has `run(model, args...)`.  Defined in functions.hpp.
template <Fn F>
struct FnImpl;

}  // namespace next_steps
