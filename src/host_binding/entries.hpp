// The module's functions as the host calls them.
#pragma once

#include <optional>
#include <span>

#include "host_binding/arguments.hpp"
#include "host_binding/object.hpp"
#include "next_steps/tables.hpp"
#include "next_steps/vocabulary.hpp"

namespace host {

// A function of the namespace: its definition for the host (name, docstring
// with the text signature inspect reads), the parameters its calls are
// parsed by, and what the logic knows it as.
struct Function {
  PyMethodDef* def;  // lives as long as the process, as the host requires
  const Signature* signature;
  std::optional<next_steps::Fn> fn;          // the logic calls it through the namespace
  std::optional<next_steps::Signal> signal;  // it runs a signal (a value of _SIGNALS)
};

// The functions in the order the namespace lists them.
std::span<const Function> functions();

}  // namespace host
