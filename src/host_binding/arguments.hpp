// Argument parsing for METH_FASTCALL | METH_KEYWORDS functions, by hand and
// on the public API only, with the messages the host gives for a function
// defined in Python with the same parameters.
#pragma once

#include <array>
#include <initializer_list>
#include <string_view>

#include "host_binding/object.hpp"

namespace host {

struct Signature {
  const char* function;
  std::initializer_list<const char*> positional;  // positional-or-keyword, all required
  std::initializer_list<const char*> keyword_only;
  bool keyword_only_required = false;  // else each defaults to None
  const char* collected_keywords = nullptr;  // the name of **kwargs, if any
};

inline constexpr std::size_t max_parameters = 6;

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
