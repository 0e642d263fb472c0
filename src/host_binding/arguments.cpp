#include "host_binding/arguments.hpp"

#include <cstring>
#include <string>
#include <vector>

namespace host {
namespace {

std::string quoted_list(const std::vector<const char*>& names) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i) text += names.size() == 2 ? " and " : (i + 1 == names.size() ? ", and " : ", ");
    text += "'";
    text += names[i];
    text += "'";
  }
  return text;
}

bool missing(const Signature& sig, const std::vector<const char*>& names, const char* what) {
  PyErr_Format(PyExc_TypeError, "%s() missing %zu required %s argument%s: %s", sig.function, names.size(), what,
               names.size() == 1 ? "" : "s", quoted_list(names).c_str());
  return false;
}

// Whether a keyword of the call is the parameter `name` of `length`
// characters.  The names are ASCII, so only an ASCII key can equal one, and
// then its length and bytes say it: the answer the host's comparison gives,
// without its call (most keys differ from a name in length).
bool is_named(PyObject* key, const char* name, std::size_t length) {
  if (static_cast<std::size_t>(PyUnicode_GET_LENGTH(key)) != length || !PyUnicode_IS_ASCII(key)) return false;
  const char* text = static_cast<const char*>(PyUnicode_DATA(key));
  return text[0] == name[0] && std::memcmp(text, name, length) == 0;
}

}  // namespace

bool parse(const Signature& sig, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames, Arguments& out) {
  const std::size_t npos = sig.positional.size();
  const Py_ssize_t given_keywords = kwnames ? PyTuple_GET_SIZE(kwnames) : 0;
  const Py_ssize_t copied = std::min<Py_ssize_t>(nargs, static_cast<Py_ssize_t>(npos));
  for (Py_ssize_t i = 0; i < copied; ++i) out.values[static_cast<std::size_t>(i)] = args[i];
  std::size_t keyword_only_given = 0;

  for (Py_ssize_t k = 0; k < given_keywords; ++k) {
    PyObject* key = PyTuple_GET_ITEM(kwnames, k);
    PyObject* value = args[nargs + k];
    std::size_t slot = 0;
    bool found = false;
    for (const char* name : sig.positional) {
      if (is_named(key, name, sig.lengths[slot])) {
        if (out.values[slot]) {
          PyErr_Format(PyExc_TypeError, "%s() got multiple values for argument '%s'", sig.function, name);
          return false;
        }
        found = true;
        break;
      }
      ++slot;
    }
    if (!found)
      for (const char* name : sig.keyword_only) {
        if (is_named(key, name, sig.lengths[slot])) {
          found = true;
          ++keyword_only_given;
          break;
        }
        ++slot;
      }
    if (found) {
      out.values[slot] = value;
      continue;
    }
    if (!sig.collected_keywords) {
      PyErr_Format(PyExc_TypeError, "%s() got an unexpected keyword argument '%U'", sig.function, key);
      return false;
    }
    if (!out.keywords) out.keywords = Object::steal(PyDict_New());
    check(PyDict_SetItem(out.keywords.get(), key, value));
  }

  if (static_cast<std::size_t>(nargs) > npos) {
    if (keyword_only_given)
      PyErr_Format(PyExc_TypeError,
                   "%s() takes %zu positional argument%s but %zd positional argument%s (and %zu keyword-only "
                   "argument%s) were given",
                   sig.function, npos, npos == 1 ? "" : "s", nargs, nargs == 1 ? "" : "s", keyword_only_given,
                   keyword_only_given == 1 ? "" : "s");
    else
      PyErr_Format(PyExc_TypeError, "%s() takes %zu positional argument%s but %zd %s given", sig.function, npos,
                   npos == 1 ? "" : "s", nargs, nargs == 1 ? "was" : "were");
    return false;
  }
  std::vector<const char*> absent;
  std::size_t slot = 0;
  for (const char* name : sig.positional)
    if (!out.values[slot++]) absent.push_back(name);
  if (!absent.empty()) return missing(sig, absent, "positional");
  for (const char* name : sig.keyword_only) {
    if (!out.values[slot]) {
      if (sig.keyword_only_required)
        absent.push_back(name);
      else
        out.values[slot] = Py_None;
    }
    ++slot;
  }
  if (!absent.empty()) return missing(sig, absent, "keyword-only");
  if (sig.collected_keywords && !out.keywords) out.keywords = Object::steal(PyDict_New());
  return true;
}

}  // namespace host
