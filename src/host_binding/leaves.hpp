// How the walks read the host's texts and ints, wherever they meet them.
#pragma once

#include "host_binding/object.hpp"
#include "next_steps/tables.hpp"
#include "next_steps/text.hpp"

namespace host {

// A text's storage as the logic reads it.
[[gnu::always_inline]] inline next_steps::StrView view_of(PyObject* text) {
  return {PyUnicode_DATA(text), static_cast<std::size_t>(PyUnicode_GET_LENGTH(text)),
          static_cast<int>(PyUnicode_KIND(text))};
}

// Whether a key names a hint field: only an ASCII text can.
inline bool names_hint(PyObject* key) {
  return PyUnicode_Check(key) && PyUnicode_IS_ASCII(key) &&
         next_steps::is_hint_key_text(
             {static_cast<const char*>(PyUnicode_DATA(key)), static_cast<std::size_t>(PyUnicode_GET_LENGTH(key))});
}

// Within a double's range an int has at most 309 digits, far below the
// least digit limit the host lets be set (640): writing it cannot fail.
inline bool is_short_int(PyObject* v) {
  if (PyUnstable_Long_IsCompact(reinterpret_cast<PyLongObject*>(v))) return true;
  if (PyLong_AsDouble(v) != -1.0 || !PyErr_Occurred()) return true;
  PyErr_Clear();
  return false;
}

}  // namespace host
