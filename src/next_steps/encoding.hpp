// The two JSON texts of a value: the compact encoding, whose UTF-8 size is an
// answer's size as the server sends it, and the call key, the sorted,
// ASCII-escaped text of a step's [tool, args] that tells repeated calls.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "next_steps/fast/check_walk.hpp"
#include "next_steps/model.hpp"
#include "next_steps/shortcuts.hpp"
#include "next_steps/text.hpp"

namespace next_steps {

// Counts the UTF-8 bytes of the compact text.
struct SizeSink {
  static constexpr bool sorted = false;
  static constexpr bool counts = true;
  static constexpr std::string_view item_sep = ",", key_sep = ":";
  std::size_t bytes = 0;
  bool surrogate = false;
  void ascii(const char*, std::size_t n) { bytes += n; }
  void ascii(std::string_view s) { bytes += s.size(); }
  void token(const StrView& s) { bytes += compact_token_bytes(s, surrogate); }
};

// Writes the compact text as code points; only made to hand the host a text
// whose encoding fails, so that the error it reports is its own.
struct RawSink {
  static constexpr bool sorted = false;
  static constexpr bool counts = false;
  static constexpr std::string_view item_sep = ",", key_sep = ":";
  std::u32string text;
  void ascii(const char* p, std::size_t n) { text.append(p, p + n); }
  void ascii(std::string_view s) { ascii(s.data(), s.size()); }
  void token(const StrView& s) { append_raw_token(text, s); }
};

// Writes the call key's text: sorted keys, ASCII escapes, spaced separators.
struct KeySink {
  static constexpr bool sorted = true;
  static constexpr bool counts = false;
  static constexpr std::string_view item_sep = ", ", key_sep = ": ";
  std::string text;
  void ascii(const char* p, std::size_t n) { text.append(p, n); }
  void ascii(std::string_view s) { text.append(s); }
  void token(const StrView& s) { append_ascii_token(text, s); }
};

// Counts the bytes that the hint walk (budget.hpp) would count: the values
// of hint fields met on a path of dicts and lists from the top, outside
// every hint field's value; outside hint fields this check walk only looks
// for what fails to encode.  It runs no host code: where it would, it stops
// (WouldRunHostCode).
struct HintCheckSink : SizeSink {
  std::size_t hint_bytes = 0;
  // How many tuples and hint fields' values enclose what is being written:
  // the hint walk enters neither, so only at 0 is a value on its path.
  std::size_t nested_past_hint_walk = 0;
};

// Thrown by a walk that must not run host code where it would have to.
struct WouldRunHostCode {};

template <class Sink>
concept CountsHints = std::is_base_of_v<HintCheckSink, Sink>;

// The host's count of nested calls as a walk keeps it: raised a level only
// where the walk goes deeper than it has been, and let down to the walk's
// own depth before any host code runs and when the walk ends.  Between, the
// count stands at the deepest level reached, so the walk fails exactly where
// counting every container would (at the first container deeper than the
// host allows) while most containers cost no call into the host at all.
template <class M>
class Levels {
 public:
  explicit Levels(M& m) : m_(m) {}
  Levels(const Levels&) = delete;
  Levels& operator=(const Levels&) = delete;
  ~Levels() {
    depth_ = 0;
    settle();
  }
  void enter() {
    if (depth_ == held_) {
      m_.enter_level(" while encoding a JSON object");
      ++held_;
    }
    ++depth_;
  }
  void leave() { --depth_; }
  void settle() {
    for (; held_ > depth_; --held_) m_.leave_level();
  }

 private:
  M& m_;
  std::size_t depth_ = 0, held_ = 0;
};

// The containers being written, innermost last: a container met again
// inside itself is a circle, which the host refuses.  Most values nest a
// few levels, which are kept in place; only deeper ones take memory.
class OpenContainers {
 public:
  bool holds(const void* id) const {
    // A plain loop: the walks open a few levels, too few for an unrolled search.
    for (std::size_t i = 0, n = std::min(size_, near_levels); i < n; ++i)
      if (near_[i] == id) return true;
    return size_ > near_levels && std::find(deeper_.begin(), deeper_.end(), id) != deeper_.end();
  }
  void push(const void* id) {
    if (size_ < near_levels)
      near_[size_] = id;
    else
      deeper_.push_back(id);
    ++size_;
  }
  void pop() {
    if (--size_ >= near_levels) deeper_.pop_back();
  }
  std::size_t size() const { return size_; }

 private:
  static constexpr std::size_t near_levels = 16;
  const void* near_[near_levels];
  std::vector<const void*> deeper_;
  std::size_t size_ = 0;
};

template <class M, class Sink>
class Writer {
 public:
  using Value = typename M::Value;
  Writer(M& m, Sink& sink)
      : m_(m),
        sink_(sink),
        levels_(m) {}

  // Scalars are written in place; containers and other values, which may
  // run host code, in functions of their own.  The bodies of the loops over
  // entries and items, and the key and string reads in them, are inlined by
  // force: left to the compiler they become a call per entry, about one
  // instruction in twenty of a walk.
  [[gnu::always_inline]] void value(const Value& v) {
    const Kind kind = m_.kind(v);
    if constexpr (SkipsSafeValues<Sink>) {
      if (may_take_check_walk(m_, sink_, v, kind)) return;
    }
    switch (kind) {
      case Kind::null: return sink_.ascii("null");
      case Kind::boolean: return sink_.ascii(m_.bool_value(v) ? "true" : "false");
      case Kind::str: return sink_.token(m_.str_view(v));
      case Kind::integer: return integer(v);
      case Kind::real: return real(m_.float_value(v));
      case Kind::list: return sequence(v, false);
      case Kind::tuple: return sequence(v, true);
      case Kind::dict: return mapping(v);
      case Kind::other: return other(v);
    }
  }

 private:
  // Any value that is not a container or a scalar is written as its str().
  [[gnu::noinline]] void other(const Value& lent) {
    const Value v = lent;  // held: its str() is host code, which may drop it
    host_code_ran();
    const Value text = m_.text_form(v);
    sink_.token(m_.str_view(text));
  }

  void host_code_ran() {
    if constexpr (CountsHints<Sink>) throw WouldRunHostCode{};
    levels_.settle();
  }

  void integer(const Value& v) {
    if constexpr (Sink::counts) {
      sink_.bytes += m_.int_text_length(v);
    } else {
      scratch_.clear();
      m_.int_text(v, scratch_);
      sink_.ascii(scratch_);
    }
  }

  void real(double d) {
    if constexpr (Sink::counts) {
      sink_.bytes += float_text_length(d);
    } else {
      char buf[32];
      sink_.ascii(buf, float_text(d, buf));
    }
  }

  // A key is written as a string token whatever its kind.  For a sink that
  // counts hints, says whether the key names a hint field (only a string can).
  [[gnu::always_inline]] bool key(const Value& k) {
    if (m_.kind(k) == Kind::str) return str_key(k);
    other_key(k);
    return false;
  }

  [[gnu::always_inline]] bool str_key(const Value& k) {
    if constexpr (SkipsSafeValues<Sink>) {
      if (may_take_check_walk(m_, sink_, k, Kind::str)) return passed_key_names_hint(m_, passed_keys_, k);
    }
    sink_.token(m_.str_view(k));
    return names_hint(k);
  }

  bool names_hint(const Value& k) {
    if constexpr (CountsHints<Sink>) return m_.is_hint_key(k);
    return false;
  }

  void other_key(const Value& k) {
    switch (m_.kind(k)) {
      case Kind::null: return sink_.ascii("\"null\"");
      case Kind::boolean: return sink_.ascii(m_.bool_value(k) ? "\"true\"" : "\"false\"");
      case Kind::integer:
        if constexpr (Sink::counts) {
          sink_.bytes += m_.int_text_length(k) + 2;
          return;
        } else {
          sink_.ascii("\"");
          integer(k);
          return sink_.ascii("\"");
        }
      case Kind::real:
        sink_.ascii("\"");
        real(m_.float_value(k));
        return sink_.ascii("\"");
      default:
        m_.raise(ErrorKind::type, "keys must be str, int, float, bool or None, not " + m_.type_name(k));
    }
  }

  void enter(const Value& v) {
    const void* id = m_.identity(v);
    if (open_.holds(id)) m_.raise(ErrorKind::value, "Circular reference detected");
    open_.push(id);
    if (!m_.walks_without_host_code(v)) host_code_ran();
  }

  // The hint walk does not go into tuples.  A container's entries and items
  // are lent to the walk (see lend_entries), so the container itself is
  // held while it is written.
  [[gnu::noinline]] void sequence(const Value& lent, [[maybe_unused]] bool tuple) {
    const Value v = lent;
    levels_.enter();
    enter(v);
    if constexpr (CountsHints<Sink>) sink_.nested_past_hint_walk += tuple;
    sink_.ascii("[");
    bool first = true;
    m_.lend_items(v, [&](const Value& item) __attribute__((always_inline)) {
      if (!first) sink_.ascii(Sink::item_sep);
      first = false;
      value(item);
      return true;
    });
    sink_.ascii("]");
    if constexpr (CountsHints<Sink>) sink_.nested_past_hint_walk -= tuple;
    open_.pop();
    levels_.leave();
  }

  // An entry of a mapping after `written` others.  A sink that counts adds
  // the separators of a mapping's entries at its end, all at once.
  [[gnu::always_inline]] void entry(std::size_t written, const Value& k, const Value& item) {
    if constexpr (!Sink::counts) {
      if (written) sink_.ascii(Sink::item_sep);
    }
    const bool hint = key(k);
    if constexpr (!Sink::counts) sink_.ascii(Sink::key_sep);
    if constexpr (CountsHints<Sink>) {
      // A hint field's value counts whole, once: hint fields inside it do not.
      if (hint && sink_.nested_past_hint_walk == 0) return hint_field(item);
    }
    value(item);
  }

  void hint_field(const Value& item) {
    const std::size_t before = sink_.bytes;
    ++sink_.nested_past_hint_walk;
    value(item);
    --sink_.nested_past_hint_walk;
    sink_.hint_bytes += sink_.bytes - before;
  }

  [[gnu::noinline]] void mapping(const Value& lent) {
    const Value v = lent;
    levels_.enter();
    enter(v);
    sink_.ascii("{");
    std::size_t written = 0;
    if constexpr (Sink::sorted) {
      levels_.settle();  // the host's sort may compare keys by their own methods
      m_.sorted_entries(v, [&](const Value& k, const Value& item) {
        entry(written++, k, item);
        return true;
      });
    } else {
      m_.lend_entries(v, [&](const Value& k, const Value& item) __attribute__((always_inline)) {
        entry(written++, k, item);
        return true;
      });
    }
    if constexpr (Sink::counts) {
      if (written) sink_.bytes += written * Sink::key_sep.size() + (written - 1) * Sink::item_sep.size();
    }
    sink_.ascii("}");
    open_.pop();
    levels_.leave();
  }

  M& m_;
  Sink& sink_;
  OpenContainers open_;
  std::string scratch_;
  [[no_unique_address]] PassedKeys<Sink> passed_keys_;
  Levels<M> levels_;
};

// Counts the compact text of `v` into `sink`.  A lone surrogate fails only
// after the whole value was written, so that any other failure comes first.
template <class M, class Sink>
void count_compact(M& m, const typename M::Value& v, Sink& sink) {
  Writer<M, Sink>(m, sink).value(v);
  if (sink.surrogate) {
    RawSink raw;
    Writer<M, RawSink>(m, raw).value(v);
    m.raise_encode_error(raw.text);
  }
}

// UTF-8 bytes of the compact text of `v`.
template <class M>
std::int64_t encoded_size(M& m, const typename M::Value& v) {
  SizeSink sink;
  count_compact(m, v, sink);
  return static_cast<std::int64_t>(sink.bytes);
}

// The call key of a step: the text of [tool, args].
template <class M>
std::string call_key(M& m, const typename M::Value& tool, const typename M::Value& args) {
  KeySink sink;
  Writer<M, KeySink> writer(m, sink);
  sink.ascii("[");
  writer.value(tool);
  sink.ascii(", ");
  writer.value(args);
  sink.ascii("]");
  return std::move(sink.text);
}

}  // namespace next_steps
