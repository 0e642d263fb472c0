// Shared helpers of the native tests: values written as JSON text, and the
// compact text of a value, so that expectations read as the agent sees them.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>

#include "next_steps/json_value.hpp"

namespace next_steps::testing {

// Reads JSON text (without blanks) into native values.  Integers stay
// integers, dict keys may be any value, and a \uXXXX escape is one code
// point, so that a lone surrogate can be written as a host string may hold one.
class Reader {
 public:
  explicit Reader(std::string_view s) : s_(s) {}
  Json value() {
    if (s_[i_] == '{' || s_[i_] == '[') return container(s_[i_++] == '{');
    if (s_[i_] == '"') return json::str32(string());
    for (auto [word, v] : {std::pair{"null", json::null()}, {"true", json::boolean(true)}, {"false", json::boolean(false)}})
      if (s_.substr(i_).starts_with(word)) return i_ += std::strlen(word), v;
    const std::size_t start = i_;
    while (i_ < s_.size() && std::string_view("+-.0123456789eE").find(s_[i_]) != std::string_view::npos) ++i_;
    const std::string number(s_.substr(start, i_ - start));
    if (number.empty()) throw std::invalid_argument("not JSON at " + std::string(s_.substr(i_)));
    return number.find_first_of(".eE") != std::string::npos ? json::real(std::stod(number)) : json::integer(number);
  }

 private:
  std::u32string string() {
    std::u32string out;
    std::string raw;
    for (++i_; s_[i_] != '"';) {
      if (s_[i_] != '\\') {
        raw.push_back(s_[i_++]);
        continue;
      }
      out += json::decode(raw);
      raw.clear();
      const char e = s_[i_ + 1];
      const bool hex = e == 'u';
      out.push_back(hex ? static_cast<char32_t>(std::stoul(std::string(s_.substr(i_ + 2, 4)), nullptr, 16))
                        : e == 't' ? U'\t' : static_cast<char32_t>(e));
      i_ += hex ? 6 : 2;
    }
    ++i_;
    return out + json::decode(raw);
  }
  Json container(bool dict) {
    auto v = dict ? json::dict() : json::list();
    while (s_[i_] != (dict ? '}' : ']')) {
      Json item = value();
      if (dict) v->entries.emplace_back(item, (++i_, value()));  // past ':'
      else v->items.push_back(item);
      if (s_[i_] == ',') ++i_;
    }
    ++i_;
    return v;
  }

  std::string_view s_;
  std::size_t i_ = 0;
};

inline Json J(std::string_view text) { return Reader(text).value(); }

// The text of a step as JSON, for literal expectations.
#define STEP(tool, args, reason) R"({"tool":")" tool R"(","args":)" args R"(,"reason":")" reason R"("})"

// The compact text of a value as UTF-8 (the text whose bytes are counted).
inline std::string compact(NativeModel& m, const Json& v) {
  RawSink sink;
  Writer<NativeModel, RawSink>(m, sink).value(v);
  return m.key_text(json::str32(sink.text));
}

// The error kind and message that `f` raises, or a failure when it raises none.
template <class F>
std::pair<ErrorKind, std::string> raised(F&& f) {
  try {
    f();
  } catch (const NativeError& e) {
    return {e.kind, e.what()};
  }
  ADD_FAILURE() << "no error raised";
  return {ErrorKind::attribute, ""};
}

// A test run with every shortcut and again with none, each function on its
// plain path: both must give the same.
class BothModes : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (!GetParam()) m.settings = {Shortcuts::none()};
  }
  NativeModel m;
};

inline std::string mode_name(const ::testing::TestParamInfo<bool>& info) {
  return info.param ? "shortcuts" : "plain";
}

#define NEXT_STEPS_BOTH_MODES(Suite) \
  INSTANTIATE_TEST_SUITE_P(Modes, Suite, ::testing::Bool(), next_steps::testing::mode_name)

}  // namespace next_steps::testing
