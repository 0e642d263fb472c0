// The module's functions as the host calls them.
#pragma once

#include <span>

#include "host_binding/object.hpp"

namespace host {

// Method definitions in the order the namespace lists the functions; they
// live as long as the process, as the host requires of a PyMethodDef.
std::span<PyMethodDef> method_defs();

}  // namespace host
