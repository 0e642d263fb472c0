// The seam between the logic and the values it works on.  The logic is
// written once against this concept; the native model (json_value.hpp) owns
// its values in C++, the host model (host_binding/host_model.hpp) is a thin
// view of the host's own objects.  Every operation behaves as the host's
// would on the same value: lookups, iteration, truth, comparison, errors.
#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "next_steps/shortcuts.hpp"
#include "next_steps/text.hpp"
#include "next_steps/vocabulary.hpp"

namespace next_steps {

// Every operation the logic asks of a model.  A model that lacks one fails
// here, naming it, rather than deep inside the template that calls it.
// Template members are asked for one representative function each; a walk
// for a callable of any type, so a generic lambda stands for the logic's.
template <class M>
concept ValueModel = requires(M& m, const typename M::Value& v, std::string& text, std::u32string& raw, bool& flag) {
  // An owning handle; copying shares the value (no deep copy).
  typename M::Value;

  // --- kinds and scalars
  { m.kind(v) } -> std::same_as<Kind>;
  { m.is_null(v) } -> std::same_as<bool>;
  { m.identity(v) } -> std::same_as<const void*>;
  { m.truthy(v) } -> std::same_as<bool>;  // the host's own truth test
  { m.bool_value(v) } -> std::same_as<bool>;
  { m.float_value(v) } -> std::same_as<double>;
  { m.int_text_length(v) } -> std::same_as<std::size_t>;
  m.int_text(v, text);
  { m.int_is_short(v) } -> std::same_as<bool>;  // short enough that its text never fails
  { m.str_view(v) } -> std::same_as<StrView>;
  { m.str_width(v) } -> std::same_as<int>;  // str_view(v).width
  { m.token_bytes(v, flag) } -> std::same_as<std::size_t>;  // compact_token_bytes of a text's str_view
  { m.text_form(v) } -> std::same_as<typename M::Value>;  // str() of any value
  { m.key_text(v) } -> std::same_as<std::string>;          // its text form as a table key, in UTF-8
  { m.str_equals(v, std::string_view{}) } -> std::same_as<bool>;  // a str equal to an ASCII text
  { m.type_name(v) } -> std::same_as<std::string>;
  { m.equals_int(v, 0) } -> std::same_as<bool>;     // value == n
  { m.less_than_int(v, 0) } -> std::same_as<bool>;  // value < n
  { m.size_greater(std::size_t{}, v) } -> std::same_as<bool>;  // n > value
  { m.as_int(v) } -> std::same_as<typename M::Value>;  // int(value)
  { m.null() } -> std::same_as<typename M::Value>;
  { m.make_bool(true) } -> std::same_as<typename M::Value>;
  { m.make_int(std::int64_t{}) } -> std::same_as<typename M::Value>;
  { m.name(Name::tool) } -> std::same_as<typename M::Value>;
  { m.literal(std::string_view{}) } -> std::same_as<typename M::Value>;  // a constant text of the logic
  { m.join({v, v}) } -> std::same_as<typename M::Value>;                // "".join(texts)

  // --- containers
  { m.length(v) } -> std::same_as<std::size_t>;
  { m.get(v, Name::tool) } -> std::same_as<typename M::Value>;       // mapping.get(key)
  { m.get_item(v, Name::tool) } -> std::same_as<typename M::Value>;  // mapping[key]
  { m.pop(v, Name::tool) } -> std::same_as<typename M::Value>;       // d.pop(key, None)
  { m.first(v) } -> std::same_as<typename M::Value>;                 // seq[0]
  { m.attr(v, Name::fqn) } -> std::same_as<typename M::Value>;       // getattr(record, name)
  { m.call_method(v, Name::to_dict) } -> std::same_as<typename M::Value>;  // record.name()
  m.set_item(v, Name::tool, v);
  m.set_item(v, v, v);
  m.del_item(v, v);
  m.set_index(v, std::size_t{}, v);
  m.append(v, v);
  { m.new_dict() } -> std::same_as<typename M::Value>;
  { m.new_list() } -> std::same_as<typename M::Value>;
  { m.list_of(v) } -> std::same_as<typename M::Value>;         // list(iterable)
  { m.head(v, std::size_t{}) } -> std::same_as<typename M::Value>;  // seq[:n]
  // del list[n:] of an exact list that this call made and alone holds, which it returns
  { m.cut(v, std::size_t{}) } -> std::same_as<typename M::Value>;
  { m.but_last(v) } -> std::same_as<typename M::Value>;  // seq[:-1]
  { m.without_repeats(v) } -> std::same_as<typename M::Value>;  // list(dict.fromkeys(list))
  // A new dict or list with the same entries or items, or none where the
  // container's own items() or iteration must be asked.
  { m.plain_copy(v) } -> std::same_as<std::optional<typename M::Value>>;
  // for_each_entry(dict, f(key, value) -> bool), for_each_item(seq, f(item) -> bool):
  // in order, stopping when f returns false, as `for k, v in d.items()` and
  // `for x in seq` read them; lend_entries and lend_items the same, for a
  // walk that holds whatever it may run host code with, reading a dict as
  // the host's JSON writer does, and sorted_entries as it does with sorted keys.
  m.for_each_entry(v, [](const auto&, const auto&) { return true; });
  m.for_each_item(v, [](const auto&) { return true; });
  m.lend_entries(v, [](const auto&, const auto&) { return true; });
  m.sorted_entries(v, [](const auto&, const auto&) { return true; });
  m.lend_items(v, [](const auto&) { return true; });

  // --- what a value is known to be
  { m.is_hint_key(v) } -> std::same_as<bool>;
  { m.walks_without_host_code(v) } -> std::same_as<bool>;  // walking or comparing it runs no host code
  { m.held_once(v) } -> std::same_as<bool>;  // only its one container holds it: no host code reaches it but through that
  // A dict whose get() of a name, and int() or len() of what it holds, run no host code
  { m.reads_without_host_code(v) } -> std::same_as<bool>;
  // A str of the exact type with no code point past U+FFFF: two such texts
  // are equal exactly when their call-key texts are.
  { m.is_exact_bmp_text(v) } -> std::same_as<bool>;
  { m.text_hash(v) } -> std::same_as<std::size_t>;  // of an exact BMP text
  // == of exact BMP texts, of lists of them, or of dicts of both, all of
  // which walk without host code
  { m.equal_without_host_code(v, v) } -> std::same_as<bool>;

  // --- the module object's settings: whether a shortcut is on
  { m.shortcut(Shortcut::deferred_size) } -> std::same_as<bool>;

  // --- finishing an answer
  m.made_steps().forget();  // the steps this call made, with their fields (made_steps.hpp)
  { m.call_step(v, v, {{Name::action, v}}) } -> std::same_as<typename M::Value>;  // step(tool, reason, **args)

  // --- calls through the module's namespace
  // resolve<F>() reads the name once; .own says it still holds the module's
  // own function, which invoke() then runs directly.  Sizes come back as
  // machine integers, everything else as a value.
  { m.template resolve<Fn::encoded_size>().own } -> std::convertible_to<bool>;
  { m.invoke(m.template resolve<Fn::encoded_size>(), v) } -> std::same_as<std::int64_t>;
  { m.invoke(m.template resolve<Fn::signals>(), v, v, v, v) } -> std::same_as<typename M::Value>;
  { m.template call<Fn::hint_size>(v) } -> std::same_as<std::int64_t>;
  { m.template call<Fn::guessed_name>(v) } -> std::same_as<typename M::Value>;
  // Whether the name still holds the module's own function, without failing.
  { m.template holds_own<Fn::encoded_size>() } -> std::same_as<bool>;
  // A call whose failure is kept, for warn_failure to log with its message.
  { m.template try_call<Fn::nearest_symbols>(v, v) } -> std::same_as<std::optional<typename M::Value>>;
  m.warn_failure("", v);

  // --- errors and depth
  m.raise(ErrorKind::type, text);  // never returns
  m.raise_key(v);                  // KeyError(key), never returns
  m.raise_encode_error(raw);
  m.recursion_guard(" while encoding a JSON object");  // a level deeper until the guard ends
  m.enter_level(" while encoding a JSON object");      // a level deeper until leave_level()
  m.leave_level();
};

}  // namespace next_steps
