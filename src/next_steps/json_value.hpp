// The native value model: a value tree owned by C++, so the logic builds and
// runs without the host.  Values are shared by pointer as the host shares
// objects, so identity and in-place changes mean what they mean there.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "next_steps/functions.hpp"
#include "next_steps/model.hpp"

namespace next_steps {

struct JsonValue;
using Json = std::shared_ptr<JsonValue>;

struct JsonValue {
  Kind kind = Kind::null;
  bool boolean = false;
  double number = 0;
  std::string integer;     // canonical decimal digits, with a leading '-'
  std::u32string text;     // a string, or the text form of an other value
  bool text_fails = false; // an other value whose text form cannot be made
  std::vector<Json> items;
  std::vector<std::pair<Json, Json>> entries;
};

// An error the logic raised, of the kind the host would raise.
struct NativeError : std::runtime_error {
  ErrorKind kind;
  NativeError(ErrorKind k, const std::string& message) : std::runtime_error(message), kind(k) {}
};

namespace json {

inline Json make(Kind k) {
  auto v = std::make_shared<JsonValue>();
  v->kind = k;
  return v;
}
inline Json null() { return make(Kind::null); }
inline Json boolean(bool b) {
  auto v = make(Kind::boolean);
  v->boolean = b;
  return v;
}
inline Json integer(std::string digits) {
  auto v = make(Kind::integer);
  v->integer = std::move(digits);
  return v;
}
inline Json integer(long long n) { return integer(std::to_string(n)); }
inline Json real(double d) {
  auto v = make(Kind::real);
  v->number = d;
  return v;
}
inline Json str32(std::u32string s) {
  auto v = make(Kind::str);
  v->text = std::move(s);
  return v;
}
// UTF-8 in, code points out (the input is trusted to be valid UTF-8).
inline std::u32string decode(std::string_view s) {
  std::u32string out;
  for (std::size_t i = 0; i < s.size();) {
    const auto c = static_cast<unsigned char>(s[i]);
    const int n = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
    char32_t cp = n == 1 ? c : c & (0xFF >> (n + 1));
    for (int k = 1; k < n; ++k) cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    out.push_back(cp);
    i += n;
  }
  return out;
}
inline Json str(std::string_view s) { return str32(decode(s)); }
inline Json list(std::vector<Json> items = {}) {
  auto v = make(Kind::list);
  v->items = std::move(items);
  return v;
}
inline Json tuple(std::vector<Json> items = {}) {
  auto v = make(Kind::tuple);
  v->items = std::move(items);
  return v;
}
inline Json dict(std::vector<std::pair<Json, Json>> entries = {}) {
  auto v = make(Kind::dict);
  v->entries = std::move(entries);
  return v;
}
inline Json other(std::string_view text_form) {
  auto v = make(Kind::other);
  v->text = decode(text_form);
  return v;
}
inline Json failing_other() {
  auto v = make(Kind::other);
  v->text_fails = true;
  return v;
}

}  // namespace json

// Collaborators are plain callables; each defaults to the stand-in
// behaviour.  Own functions may be replaced too, as a host name may be
// rebound.
class NativeModel {
 public:
  using Value = Json;
  using Function = std::function<Json(const std::vector<Json>&)>;

  std::size_t max_depth = 500;
  Settings settings;  // every shortcut
  std::vector<std::string> warnings;
  std::array<Function, function_names.size()> bound{};  // by Fn; empty: the own function

  // The stand-in collaborators: the freshness block stored under one field,
  // every hit a code symbol, nothing near, no guessed name.
  NativeModel() {
    bind(Fn::add_freshness, [this](const std::vector<Json>& a) {
      if (!is_null(a[1])) set_item(a[0], json::str("freshness"), a[1]);
      return null();
    });
    bind(Fn::is_code_symbol, [](const std::vector<Json>&) { return json::boolean(true); });
    bind(Fn::nearest_symbols, [](const std::vector<Json>&) { return json::list(); });
    bind(Fn::nearest_paths, [](const std::vector<Json>&) { return json::list(); });
    bind(Fn::guessed_name, [](const std::vector<Json>&) { return json::null(); });
  }
  void bind(Fn f, Function function) { bound[static_cast<std::size_t>(f)] = std::move(function); }

  // --- kinds and scalars
  Kind kind(const Json& v) const { return v->kind; }
  bool is_null(const Json& v) const { return v->kind == Kind::null; }
  bool shortcut(Shortcut s) const { return settings.shortcuts.on(s); }
  const void* identity(const Json& v) const { return v.get(); }
  bool truthy(const Json& v) const {
    switch (v->kind) {
      case Kind::null: return false;
      case Kind::boolean: return v->boolean;
      case Kind::integer: return v->integer != "0";
      case Kind::real: return v->number != 0;
      case Kind::str: return !v->text.empty();
      case Kind::list:
      case Kind::tuple: return !v->items.empty();
      case Kind::dict: return !v->entries.empty();
      case Kind::other: return true;
    }
    return true;
  }
  bool bool_value(const Json& v) const { return v->boolean; }
  double float_value(const Json& v) const { return v->number; }
  std::size_t int_text_length(const Json& v) const { return v->integer.size(); }
  void int_text(const Json& v, std::string& out) const { out += v->integer; }
  bool int_is_short(const Json& v) const { return v->integer.size() <= 309; }
  StrView str_view(const Json& v) const { return {v->text.data(), v->text.size(), 4}; }
  int str_width(const Json&) const { return 4; }
  std::size_t token_bytes(const Json& v, bool& surrogate) const {
    return compact_token_bytes(str_view(v), surrogate);
  }
  std::string type_name(const Json& v) const {
    static constexpr const char* names[] = {"NoneType", "bool", "int", "float", "str", "list", "tuple", "dict", "object"};
    return names[static_cast<int>(v->kind)];
  }
  Json text_form(const Json& v) {
    switch (v->kind) {
      case Kind::str: return v;
      case Kind::other:
        if (v->text_fails) raise(ErrorKind::value, "text form failed");
        return json::str32(v->text);
      case Kind::null: return json::str("None");
      case Kind::boolean: return json::str(v->boolean ? "True" : "False");
      case Kind::integer: return json::str(v->integer);
      default: {
        // Containers' text forms are not needed by the logic beyond this.
        KeySink sink;
        Writer<NativeModel, KeySink>(*this, sink).value(v);
        return json::str(sink.text);
      }
    }
  }
  std::string key_text(const Json& v) {
    const Json text = text_form(v);
    std::string out;
    for (char32_t c : text->text) encode_utf8(out, c);
    return out;
  }
  bool str_equals(const Json& v, std::string_view s) const { return v->kind == Kind::str && v->text == json::decode(s); }
  bool equals_int(const Json& v, long long n) const { return numeric(v) && compare(v, n) == 0; }
  bool less_than_int(const Json& v, long long n) {
    if (!numeric(v)) raise(ErrorKind::type, "'<' not supported between instances of '" + type_name(v) + "' and 'int'");
    return compare(v, n) < 0;
  }
  bool size_greater(std::size_t n, const Json& v) {
    if (!numeric(v)) raise(ErrorKind::type, "'>' not supported between instances of 'int' and '" + type_name(v) + "'");
    return compare(v, static_cast<long long>(n)) < 0;
  }
  Json as_int(const Json& v) const {
    return v->kind == Kind::boolean ? json::integer(v->boolean ? 1 : 0) : v;
  }
  Json make_int(long long n) const { return json::integer(n); }
  Json null() const { return json::null(); }
  Json make_bool(bool b) const { return json::boolean(b); }
  Json literal(std::string_view s) const { return json::str(s); }
  Json name(Name n) const { return json::str(text_of(n)); }
  Json join(std::initializer_list<Json> parts) const {
    std::u32string out;
    for (const Json& p : parts) out += p->text;
    return json::str32(std::move(out));
  }

  // --- containers
  std::size_t length(const Json& v) {
    switch (v->kind) {
      case Kind::list:
      case Kind::tuple: return v->items.size();
      case Kind::dict: return v->entries.size();
      case Kind::str: return v->text.size();
      default: raise(ErrorKind::type, "object of type '" + type_name(v) + "' has no len()");
    }
  }
  template <class F>
  void for_each_entry(const Json& v, F&& f) {
    const auto entries = v->entries;  // a snapshot: f may change the dict
    for (const auto& [k, item] : entries)
      if (!f(k, item)) return;
  }
  template <class F>
  void for_each_item(const Json& v, F&& f) {
    if (v->kind == Kind::dict) {
      const auto entries = v->entries;
      for (const auto& entry : entries)
        if (!f(entry.first)) return;
      return;
    }
    if (v->kind == Kind::str) {  // its characters, as one-character strings
      const std::u32string text = v->text;
      for (char32_t c : text)
        if (!f(json::str32(std::u32string(1, c)))) return;
      return;
    }
    if (v->kind != Kind::list && v->kind != Kind::tuple)
      raise(ErrorKind::type, "'" + type_name(v) + "' object is not iterable");
    const auto items = v->items;
    for (const Json& item : items)
      if (!f(item)) return;
  }
  // Both walks above hold what they hand out: lending is holding here.
  template <class F>
  void lend_entries(const Json& v, F&& f) {
    for_each_entry(v, f);
  }
  template <class F>
  void lend_items(const Json& v, F&& f) {
    for_each_item(v, f);
  }
  Json get(const Json& mapping, Name key) {
    if (mapping->kind != Kind::dict)
      raise(ErrorKind::attribute, "'" + type_name(mapping) + "' object has no attribute 'get'");
    const auto* found = find(mapping, key);
    return found ? found->second : null();
  }
  Json get_item(const Json& mapping, Name key) {
    if (mapping->kind != Kind::dict) raise(ErrorKind::type, "'" + type_name(mapping) + "' object is not subscriptable");
    const auto* found = find(mapping, key);
    if (!found) raise(ErrorKind::key, "'" + std::string(text_of(key)) + "'");
    return found->second;
  }
  Json pop(const Json& dict, Name key) {
    auto& entries = dict->entries;
    for (auto it = entries.begin(); it != entries.end(); ++it)
      if (it->first->kind == Kind::str && it->first->text == json::decode(text_of(key))) {
        Json value = it->second;
        entries.erase(it);
        return value;
      }
    return null();
  }
  void set_item(const Json& dict, Name key, const Json& value) { set_item(dict, name(key), value); }
  void set_item(const Json& dict, const Json& key, const Json& value) {
    for (auto& entry : dict->entries)
      if (equal_keys(entry.first, key)) {
        entry.second = value;
        return;
      }
    dict->entries.emplace_back(key, value);
  }
  void append(const Json& list, const Json& item) const { list->items.push_back(item); }
  std::optional<Json> plain_copy(const Json& v) const {
    if (v->kind == Kind::dict) return json::dict(v->entries);
    return json::list(v->items);
  }
  void del_item(const Json& dict, const Json& key) const {
    std::erase_if(dict->entries, [&](const auto& e) { return equal_keys(e.first, key); });
  }
  void set_index(const Json& list, std::size_t i, const Json& item) const { list->items[i] = item; }
  Json new_dict() const { return json::dict(); }
  Json new_list() const { return json::list(); }
  Json list_of(const Json& v) {
    std::vector<Json> items;
    for_each_item(v, [&](const Json& item) {
      items.push_back(item);
      return true;
    });
    return json::list(std::move(items));
  }
  Json head(const Json& v, std::size_t n) const {
    const auto& items = v->items;
    return json::list({items.begin(), items.begin() + static_cast<std::ptrdiff_t>(std::min(n, items.size()))});
  }
  Json cut(const Json& list, std::size_t n) const {
    if (list->items.size() > n) list->items.resize(n);
    return list;
  }
  Json but_last(const Json& v) const { return head(v, v->items.empty() ? 0 : v->items.size() - 1); }
  Json without_repeats(const Json& list) const {
    std::vector<Json> kept;
    for (const Json& item : list->items)
      if (std::none_of(kept.begin(), kept.end(), [&](const Json& k) { return equal_keys(k, item); }))
        kept.push_back(item);
    return json::list(std::move(kept));
  }
  template <class F>
  void sorted_entries(const Json& dict, F&& f) {
    auto entries = dict->entries;
    std::stable_sort(entries.begin(), entries.end(),
                     [&](const auto& a, const auto& b) { return key_less(a.first, b.first); });
    for (const auto& [k, item] : entries)
      if (!f(k, item)) return;
  }
  bool is_hint_key(const Json& key) const {
    if (key->kind != Kind::str || std::any_of(key->text.begin(), key->text.end(), [](char32_t c) { return c > 0x7F; }))
      return false;
    return is_hint_key_text(std::string(key->text.begin(), key->text.end()));
  }
  // This model learns nothing from its copies: every field is walked.
  bool walks_without_host_code(const Json&) const { return true; }
  bool held_once(const Json&) const { return false; }
  bool reads_without_host_code(const Json& v) const { return v->kind == Kind::dict; }
  bool is_exact_bmp_text(const Json& v) const {
    return v->kind == Kind::str && std::all_of(v->text.begin(), v->text.end(), [](char32_t c) { return c <= 0xFFFF; });
  }
  std::size_t text_hash(const Json& v) const { return std::hash<std::u32string>{}(v->text); }
  bool equal_without_host_code(const Json& a, const Json& b) const {
    if (a->kind != b->kind) return false;
    if (a->kind == Kind::str) return a->text == b->text;
    if (a->kind == Kind::list)
      return std::equal(a->items.begin(), a->items.end(), b->items.begin(), b->items.end(),
                        [&](const Json& x, const Json& y) { return equal_without_host_code(x, y); });
    return a->entries.size() == b->entries.size() &&
           std::all_of(a->entries.begin(), a->entries.end(), [&](const auto& e) {
             return std::any_of(b->entries.begin(), b->entries.end(), [&](const auto& f) {
               return equal_without_host_code(e.first, f.first) && equal_without_host_code(e.second, f.second);
             });
           });
  }
  Json first(const Json& seq) {
    if (seq->items.empty()) raise(ErrorKind::value, "list index out of range");
    return seq->items.front();
  }
  // A symbol record is a dict here: its own dict, and its "fqn" field.
  Json attr(const Json& record, Name field) { return get_item(record, field); }
  Json call_method(const Json& record, Name) const { return record; }

  // --- errors and depth
  [[noreturn]] void raise(ErrorKind kind, const std::string& message) const { throw NativeError(kind, message); }
  [[noreturn]] void raise_key(const Json& key) { raise(ErrorKind::key, key_text(key)); }
  [[noreturn]] void raise_encode_error(const std::u32string& text) const {
    const auto at = std::find_if(text.begin(), text.end(), [](char32_t c) { return is_surrogate(c); });
    raise(ErrorKind::unicode_encode, "'utf-8' codec can't encode character in position " +
                                         std::to_string(at - text.begin()) + ": surrogates not allowed");
  }
  struct DepthGuard {
    std::size_t& depth;
    ~DepthGuard() { --depth; }
  };
  DepthGuard recursion_guard(const char* where) {
    enter_level(where);
    return DepthGuard{depth_};
  }
  void enter_level(const char* where) {
    if (depth_ >= max_depth) raise(ErrorKind::recursion, std::string("maximum recursion depth exceeded") + where);
    ++depth_;
  }
  void leave_level() { --depth_; }

  // --- calls through the namespace
  template <Fn F>
  struct Bound {
    bool own;
  };
  template <Fn F>
  Bound<F> resolve() const {
    return {is_own(F) && !bound[static_cast<std::size_t>(F)]};
  }
  template <Fn F>
  bool holds_own() const {
    return resolve<F>().own;
  }
  template <Fn F, class... A>
  CallResult<F, Json> invoke(const Bound<F>& b, const A&... a) {
    if constexpr (is_own(F)) {
      if (b.own) return FnImpl<F>::run(*this, a...);
    }
    const Function& f = bound[static_cast<std::size_t>(F)];
    if (!f) raise(ErrorKind::type, "nothing bound to " + std::string(text_of(F)));
    Json result = f(std::vector<Json>{a...});
    if constexpr (returns_size<F>)
      return std::stoll(result->integer);
    else
      return result;
  }
  template <Fn F, class... A>
  CallResult<F, Json> call(const A&... a) {
    return invoke(resolve<F>(), a...);
  }
  template <Fn F, class... A>
  std::optional<Json> try_call(const A&... a) {
    try {
      return call<F>(a...);
    } catch (const NativeError&) {
      return std::nullopt;
    }
  }
  void warn_failure(const char* message, const Json& wanted) {
    warnings.push_back(std::string(message) + " " + key_text(wanted));
  }
  MadeSteps<Json>& made_steps() { return made_steps_; }
  Json call_step(const Json& tool, const Json& reason, std::initializer_list<std::pair<Name, Json>> args) {
    auto dict = new_dict();
    for (const auto& [k, v] : args) set_item(dict, k, v);
    return make_step(*this, tool, reason, dict);
  }

 private:
  static void encode_utf8(std::string& out, char32_t c) {
    if (c < 0x80) {
      out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (c >> 6)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (c >> 12)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (c >> 18)));
      out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
  const std::pair<Json, Json>* find(const Json& dict, Name key) const {
    const auto text = json::decode(text_of(key));
    for (const auto& entry : dict->entries)
      if (entry.first->kind == Kind::str && entry.first->text == text) return &entry;
    return nullptr;
  }
  static bool numeric(const Json& v) {
    return v->kind == Kind::integer || v->kind == Kind::boolean || v->kind == Kind::real;
  }
  static std::string digits_of(const Json& v) {
    return v->kind == Kind::boolean ? (v->boolean ? "1" : "0") : v->integer;
  }
  // Sign of (a - b) for two canonical decimal texts, exactly at any size.
  static int compare_digits(const std::string& a, const std::string& b) {
    const bool a_neg = a[0] == '-', b_neg = b[0] == '-';
    if (a_neg != b_neg) return a_neg ? -1 : 1;
    const int magnitude = a.size() != b.size() ? (a.size() < b.size() ? -1 : 1) : a.compare(b) < 0 ? -1 : a.compare(b) > 0;
    return a_neg ? -magnitude : magnitude;
  }
  // Sign of (a - b) for two numbers; a float against an integer is compared
  // in long double, which holds every integer the tests meet exactly.
  static int compare_numbers(const Json& a, const Json& b) {
    if (a->kind != Kind::real && b->kind != Kind::real) return compare_digits(digits_of(a), digits_of(b));
    auto value = [](const Json& v) {
      return v->kind == Kind::real ? static_cast<long double>(v->number) : std::strtold(digits_of(v).c_str(), nullptr);
    };
    const long double x = value(a), y = value(b);
    return x < y ? -1 : x > y;
  }
  static int compare(const Json& v, long long n) { return compare_numbers(v, json::integer(n)); }
  static bool equal_keys(const Json& a, const Json& b) {
    if (a == b) return true;
    if (a->kind != b->kind) return false;
    switch (a->kind) {
      case Kind::str: return a->text == b->text;
      case Kind::integer: return a->integer == b->integer;
      case Kind::boolean: return a->boolean == b->boolean;
      case Kind::real: return a->number == b->number;
      case Kind::null: return true;
      default: return false;
    }
  }
  bool key_less(const Json& a, const Json& b) {
    if (a->kind == Kind::str && b->kind == Kind::str) return a->text < b->text;
    if (numeric(a) && numeric(b)) return compare_numbers(a, b) < 0;
    raise(ErrorKind::type, "'<' not supported between instances of '" + type_name(a) + "' and '" + type_name(b) + "'");
  }

  std::size_t depth_ = 0;
  MadeSteps<Json> made_steps_;
};

static_assert(ValueModel<NativeModel>);

}  // namespace next_steps
