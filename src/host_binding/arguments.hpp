// Argument parsing for METH_FASTCALL | METH_KEYWORDS functions, by hand and
// on the public API only, with the messages the host gives for a function
// defined in Python with the same parameters.
#pragma once

#include <array>
#include <initializer_list>
#include <string>
#include <string_view>

#include "host_binding/object.hpp"

namespace host {

inline constexpr std::size_t max_parameters = 6;

struct Signature;
constexpr std::array<std::size_t, max_parameters> name_lengths(const Signature& s);

struct Signature {
  const char* function;
  std::initializer_list<const char*> positional;  // positional-or-keyword, all required
  std::initializer_list<const char*> keyword_only;
  bool keyword_only_required = false;  // else each defaults to None
  const char* collected_keywords = nullptr;  // the name of **kwargs, if any
  // The parameters' names' lengths, the positional ones first: a keyword
  // of another length is not the parameter.
  std::array<std::size_t, max_parameters> lengths = name_lengths(*this);
};

constexpr std::array<std::size_t, max_parameters> name_lengths(const Signature& s) {
  std::array<std::size_t, max_parameters> lengths{};
  std::size_t i = 0;
  for (auto names : {s.positional, s.keyword_only})
    for (const char* name : names)
      if (i < max_parameters) lengths[i++] = std::char_traits<char>::length(name);
  return lengths;
}

struct Arguments {
  std::array<PyObject*, max_parameters> values{};  // borrowed; None for an absent optional
  Object keywords;                                 // the **kwargs dict, when collected

  // Lent, as the caller lends them: it holds its arguments until the call
  // returns, so no host code run meanwhile can free one.
  Lent operator[](std::size_t i) const { return Lent(values[i]); }
};

// Fills `out` from a vectorcall; raises the host's TypeError and returns
// false when the call does not fit the signature.
bool parse(const Signature& sig, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames, Arguments& out);

}  // namespace host
