// The host value model: a thin view of the host's own objects.  No value is
// converted: copies are built of new host dicts and lists that share every
// leaf, in-place changes land on the caller's objects, and every operation
// is the one Python code would run (exact types on fast paths, subclasses
// through their own methods).
#pragma once

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host_binding/module_state.hpp"
#include "host_binding/object.hpp"
#include "next_steps/functions.hpp"
#include "next_steps/model.hpp"

namespace host {

using next_steps::ErrorKind;
using next_steps::Fn;
using next_steps::Kind;
using next_steps::Name;
using next_steps::Shortcut;
using next_steps::StrView;

class HostModel {
 public:
  using Value = Object;

  explicit HostModel(PyObject* module) : state_(*state_slot(module)), dict_(PyModule_GetDict(module)) {}

  // --- what the module object was made with
  bool shortcut(Shortcut s) const { return state_.settings.shortcuts.on(s); }

  // --- kinds and scalars
  // Strings first: they are most of what an answer holds, keys included.
  // Then the type's flags, one load, tell the other families apart (their
  // layouts exclude each other, so a type is of one family at most), where
  // a test of each exact type would load the address of each.
  [[gnu::always_inline]] Kind kind(const Object& v) const {
    PyObject* o = v.get();
    PyTypeObject* t = Py_TYPE(o);
    if (t == &PyUnicode_Type) return Kind::str;
    if (PyType_FastSubclass(t, Py_TPFLAGS_DICT_SUBCLASS)) return Kind::dict;
    if (PyType_FastSubclass(t, Py_TPFLAGS_LIST_SUBCLASS)) return Kind::list;
    if (PyType_FastSubclass(t, Py_TPFLAGS_LONG_SUBCLASS)) return t == &PyBool_Type ? Kind::boolean : Kind::integer;
    if (PyType_FastSubclass(t, Py_TPFLAGS_UNICODE_SUBCLASS)) return Kind::str;
    if (PyType_FastSubclass(t, Py_TPFLAGS_TUPLE_SUBCLASS)) return Kind::tuple;
    if (o == Py_None) return Kind::null;
    if (PyFloat_Check(o)) return Kind::real;
    return Kind::other;
  }
  bool is_null(const Object& v) const { return v.get() == Py_None; }
  const void* identity(const Object& v) const { return v.get(); }
  bool truthy(const Object& v) const {
    PyObject* o = v.get();
    if (o == Py_None || o == Py_False) return false;
    if (o == Py_True) return true;
    const int r = PyObject_IsTrue(o);
    check(r);
    return r == 1;
  }
  bool bool_value(const Object& v) const { return v.get() == Py_True; }
  double float_value(const Object& v) const { return PyFloat_AS_DOUBLE(v.get()); }

  std::size_t int_text_length(const Object& v) const {
    // Most ints of an answer (lines, counts) fit in one digit of the int's
    // own storage, readable without a call.
    auto* small = reinterpret_cast<PyLongObject*>(v.get());
    if (PyUnstable_Long_IsCompact(small)) return next_steps::int_text_length(PyUnstable_Long_CompactValue(small));
    int overflow = 0;
    const long long n = PyLong_AsLongLongAndOverflow(v.get(), &overflow);
    if (!overflow) return next_steps::int_text_length(n);
    return static_cast<std::size_t>(PyUnicode_GET_LENGTH(int_repr(v).get()));
  }
  void int_text(const Object& v, std::string& out) const {
    int overflow = 0;
    const long long n = PyLong_AsLongLongAndOverflow(v.get(), &overflow);
    if (!overflow) {
      out += std::to_string(n);
      return;
    }
    Object text = int_repr(v);
    out += PyUnicode_AsUTF8(text.get());
  }
  bool int_is_short(const Object& v) const { return is_short_int(v.get()); }
  [[gnu::always_inline]] StrView str_view(const Object& v) const { return view_of(v.get()); }
  [[gnu::always_inline]] int str_width(const Object& v) const { return static_cast<int>(PyUnicode_KIND(v.get())); }
  Object text_form(const Object& v) const {
    if (PyUnicode_CheckExact(v.get())) return v;
    if (PyLong_CheckExact(v.get())) return compact_int_text(v);
    return Object::steal(PyObject_Str(v.get()));
  }
  std::string type_name(const Object& v) const { return Py_TYPE(v.get())->tp_name; }
  // The text of a tool or action as a table key; a text the host cannot
  // write as UTF-8 names no row.
  std::string key_text(const Object& v) const {
    // An exact ASCII text, as tools and actions are, is its own UTF-8.
    PyObject* o = v.get();
    if (PyUnicode_CheckExact(o) && PyUnicode_IS_ASCII(o))
      return {static_cast<const char*>(PyUnicode_DATA(o)), static_cast<std::size_t>(PyUnicode_GET_LENGTH(o))};
    Object text = text_form(v);
    Py_ssize_t size = 0;
    const char* utf8 = PyUnicode_AsUTF8AndSize(text.get(), &size);
    if (!utf8) {
      PyErr_Clear();
      return "\xff";
    }
    return {utf8, static_cast<std::size_t>(size)};
  }
  bool str_equals(const Object& v, std::string_view s) const {
    PyObject* o = v.get();
    return PyUnicode_Check(o) && PyUnicode_IS_ASCII(o) && static_cast<std::size_t>(PyUnicode_GET_LENGTH(o)) == s.size() &&
           std::memcmp(PyUnicode_DATA(o), s.data(), s.size()) == 0;
  }
  bool equals_int(const Object& v, long long n) const { return compare_int(v, n, Py_EQ); }
  bool less_than_int(const Object& v, long long n) const { return compare_int(v, n, Py_LT); }
  bool size_greater(std::size_t n, const Object& v) const {
    if (PyLong_CheckExact(v.get()))
      if (const auto k = exact_int_value(v.get())) return static_cast<long long>(n) > *k;
    Object size = make_int(static_cast<long long>(n));
    const int r = PyObject_RichCompareBool(size.get(), v.get(), Py_GT);
    check(r);
    return r == 1;
  }
  Object as_int(const Object& v) const {
    if (PyLong_CheckExact(v.get())) return v;
    return Object::steal(PyNumber_Long(v.get()));
  }
  Object make_int(long long n) const { return Object::steal(PyLong_FromLongLong(n)); }
  Object null() const { return Object::borrow(Py_None); }
  Object make_bool(bool b) const { return Object::borrow(b ? Py_True : Py_False); }
  Object make_str(std::string_view s) const {
    return Object::steal(PyUnicode_FromStringAndSize(s.data(), static_cast<Py_ssize_t>(s.size())));
  }
  Object name(Name n) const { return state_.names[static_cast<std::size_t>(n)]; }
  // A constant text of the logic, made once per module (with the
  // constant_texts shortcut; else made anew each time).
  Object literal(std::string_view s) {
    if (!shortcut(Shortcut::constant_texts)) return make_str(s);
    Literals::Slot* slot = state_.literals.slot_for(s);
    if (slot && slot->text) return slot->text;
    PyObject* text = PyUnicode_FromStringAndSize(s.data(), static_cast<Py_ssize_t>(s.size()));
    if (text) PyUnicode_InternInPlace(&text);
    Object made = Object::steal(text);
    if (slot) {
      *slot = {s.data(), s.size(), made};
      state_.constant_sizes.remember(made);  // known by address only while the slot holds it
    }
    return made;
  }
  // The compact token size of a text, known for a name or a literal.
  std::size_t token_bytes(const Object& text, bool& surrogate) const {
    if (may_take_constant_texts(state_.settings, state_.constant_sizes, text.get()))
      return state_.constant_sizes.bytes(text.get());
    return next_steps::compact_token_bytes(str_view(text), surrogate);
  }
  // "".join(parts) of texts (literals and str() results), made at its final
  // size and width at once, without a tuple to hand to the host's join.
  Object join(std::initializer_list<Object> parts) const {
    Py_ssize_t length = 0;
    Py_UCS4 widest = 0;
    for (const Object& p : parts) {
      length += PyUnicode_GET_LENGTH(p.get());
      widest = std::max(widest, PyUnicode_MAX_CHAR_VALUE(p.get()));
    }
    Object text = Object::steal(PyUnicode_New(length, widest));
    const int width = PyUnicode_KIND(text.get());
    auto* data = static_cast<char*>(PyUnicode_DATA(text.get()));
    Py_ssize_t at = 0;
    for (const Object& p : parts) {
      const Py_ssize_t n = PyUnicode_GET_LENGTH(p.get());
      // A part stored as wide as the text is copied as it is; a narrower
      // one is widened by the host.
      if (PyUnicode_KIND(p.get()) == width)
        std::memcpy(data + at * width, PyUnicode_DATA(p.get()), static_cast<std::size_t>(n * width));
      else if (PyUnicode_CopyCharacters(text.get(), at, p.get(), 0, n) < 0)
        fail();
      at += n;
    }
    return text;
  }

  // --- containers
  std::size_t length(const Object& v) const {
    if (PyList_CheckExact(v.get())) return static_cast<std::size_t>(PyList_GET_SIZE(v.get()));
    const Py_ssize_t n = PyObject_Size(v.get());
    if (n < 0) fail();
    return static_cast<std::size_t>(n);
  }

  // Entries in the dict's order: an exact dict directly, any other through
  // its own items().  Both are held strongly while `f` runs, since `f` may
  // run host code that changes the dict.
  template <class F>
  void for_each_entry(const Object& dict, F&& f) {
    if (PyDict_CheckExact(dict.get())) {
      Py_ssize_t pos = 0;
      PyObject *key, *value;
      while (PyDict_Next(dict.get(), &pos, &key, &value)) {
        Object k = Object::borrow(key), v = Object::borrow(value);
        if (!f(k, v)) return;
      }
      return;
    }
    Object items = Object::steal(PyObject_CallMethodNoArgs(dict.get(), state_.items.get()));
    for_each_item(items, [&](const Object& item) {
      auto [k, v] = unpack_pair(item);
      return f(k, v);
    });
  }

  // Items in order: an exact list or tuple by index (its size read anew at
  // every step), anything else through iteration.
  template <class F>
  void for_each_item(const Object& seq, F&& f) {
    PyObject* o = seq.get();
    if (PyList_CheckExact(o)) {
      for (Py_ssize_t i = 0; i < PyList_GET_SIZE(o); ++i)
        if (!f(Object::borrow(PyList_GET_ITEM(o, i)))) return;
      return;
    }
    if (PyTuple_CheckExact(o)) {
      for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(o); ++i)
        if (!f(Object::borrow(PyTuple_GET_ITEM(o, i)))) return;
      return;
    }
    Object it = Object::steal(PyObject_GetIter(o));
    while (PyObject* item = PyIter_Next(it.get()))
      if (!f(Object::steal(item))) return;
    if (PyErr_Occurred()) fail();
  }

  // for_each_entry and for_each_item for a walk that takes its own hold on
  // any value it may run host code with: the keys and values of an exact
  // dict and the items of an exact list or tuple are lent to `f`, not held
  // (the container's own hold keeps them while no host code runs).  A dict
  // is read as the host's JSON writer reads it.
  template <class F>
  [[gnu::always_inline]] void lend_entries(const Object& dict, F&& f) {
    if (!PyDict_CheckExact(dict.get())) {
      if (PyDict_GET_SIZE(dict.get()) == 0) return;
      return for_each_written_item(Object::steal(PyMapping_Items(dict.get())), f);
    }
    Py_ssize_t pos = 0;
    PyObject *key, *value;
    while (PyDict_Next(dict.get(), &pos, &key, &value)) {
      const Lent k(key), v(value);
      if (!f(*k, *v)) return;
    }
  }
  template <class F>
  [[gnu::always_inline]] void lend_items(const Object& seq, F&& f) {
    PyObject* o = seq.get();
    if (PyList_CheckExact(o)) {
      for (Py_ssize_t i = 0; i < PyList_GET_SIZE(o); ++i)
        if (const Lent item(PyList_GET_ITEM(o, i)); !f(*item)) return;
      return;
    }
    if (PyTuple_CheckExact(o)) {
      for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(o); ++i)
        if (const Lent item(PyTuple_GET_ITEM(o, i)); !f(*item)) return;
      return;
    }
    for_each_item(seq, f);
  }

  // mapping.get(key): an exact dict directly, anything else through its own
  // get(), so a read-only mapping works and a missing one fails as the host's.
  Object get(const Object& mapping, Name key) const {
    PyObject* k = state_.names[static_cast<std::size_t>(key)].get();
    if (PyDict_CheckExact(mapping.get())) {
      PyObject* found = PyDict_GetItemWithError(mapping.get(), k);
      if (!found && PyErr_Occurred()) fail();
      return Object::borrow(found ? found : Py_None);
    }
    return Object::steal(PyObject_CallMethodOneArg(mapping.get(), state_.get.get(), k));
  }
  Object get_item(const Object& mapping, Name key) const {
    return Object::steal(PyObject_GetItem(mapping.get(), state_.names[static_cast<std::size_t>(key)].get()));
  }
  // d.pop(key, None)
  Object pop(const Object& dict, Name key) const {
    PyObject* k = state_.names[static_cast<std::size_t>(key)].get();
    if (PyDict_CheckExact(dict.get())) {
      PyObject* found = PyDict_GetItemWithError(dict.get(), k);
      if (!found) {
        if (PyErr_Occurred()) fail();
        return null();
      }
      Object value = Object::borrow(found);
      check(PyDict_DelItem(dict.get(), k));
      return value;
    }
    PyObject* args[] = {dict.get(), k, Py_None};
    return Object::steal(
        PyObject_VectorcallMethod(state_.pop.get(), args, 3 | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr));
  }
  void set_item(const Object& dict, Name key, const Object& value) const {
    set_item(dict, state_.names[static_cast<std::size_t>(key)], value);
  }
  void set_item(const Object& dict, const Object& key, const Object& value) const {
    if (PyDict_CheckExact(dict.get()))
      check(PyDict_SetItem(dict.get(), key.get(), value.get()));
    else
      check(PyObject_SetItem(dict.get(), key.get(), value.get()));
  }
  // A new plain dict or list with the same entries or items, made without
  // host code for an exact dict, list or tuple; none for a subclass, whose
  // own items() or iteration must be honoured.
  std::optional<Object> plain_copy(const Object& v) const {
    PyObject* o = v.get();
    if (PyDict_CheckExact(o)) return Object::steal(PyDict_Copy(o));
    if (PyList_CheckExact(o)) return Object::steal(PyList_GetSlice(o, 0, PyList_GET_SIZE(o)));
    if (PyTuple_CheckExact(o)) return Object::steal(PySequence_List(o));
    return std::nullopt;
  }
  void del_item(const Object& dict, const Object& key) const { check(PyDict_DelItem(dict.get(), key.get())); }
  void set_index(const Object& list, std::size_t i, const Object& item) const {
    check(PyList_SetItem(list.get(), static_cast<Py_ssize_t>(i), Object(item).release()));
  }
  void append(const Object& list, const Object& item) const { check(PyList_Append(list.get(), item.get())); }
  Object new_dict() const { return Object::steal(PyDict_New()); }
  Object new_list() const { return Object::steal(PyList_New(0)); }
  Object list_of(const Object& v) const { return Object::steal(PySequence_List(v.get())); }
  // seq[:n] and seq[:-1]: anything but an exact list is handed the slice as
  // written, since a container's own length and cut need not agree with its
  // storage, and its __getitem__ may look at the slice.
  Object head(const Object& v, std::size_t n) const {
    const auto end = static_cast<Py_ssize_t>(n);
    if (PyList_CheckExact(v.get())) return Object::steal(PyList_GetSlice(v.get(), 0, end));
    return cut_at(v, end);
  }
  Object cut(const Object& list, std::size_t n) const {
    const auto end = static_cast<Py_ssize_t>(n);
    const Py_ssize_t size = PyList_GET_SIZE(list.get());
    if (size > end) check(PyList_SetSlice(list.get(), end, size, nullptr));
    return list;
  }
  Object but_last(const Object& v) const {
    if (PyList_CheckExact(v.get()))
      return Object::steal(PyList_GetSlice(v.get(), 0, std::max<Py_ssize_t>(PyList_GET_SIZE(v.get()) - 1, 0)));
    return cut_at(v, -1);
  }
  Object cut_at(const Object& v, Py_ssize_t end) const {
    const Object stop = Object::steal(PyLong_FromSsize_t(end));
    const Object cut = Object::steal(PySlice_New(nullptr, stop.get(), nullptr));
    return Object::steal(PyObject_GetItem(v.get(), cut.get()));
  }
  // list(dict.fromkeys(items))
  Object without_repeats(const Object& list) const {
    Object seen = new_dict();
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list.get()); ++i)
      check(PyDict_SetItem(seen.get(), PyList_GET_ITEM(list.get(), i), Py_None));
    return Object::steal(PyDict_Keys(seen.get()));
  }
  // The entries in the order the host's sort gives them: plain string keys
  // are ordered here by code point; any other dict is sorted by the host as
  // its JSON writer sorts it, so that keys it cannot compare fail with its
  // own error.
  template <class F>
  void sorted_entries(const Object& dict, F&& f) {
    if (PyDict_GET_SIZE(dict.get()) == 0) return;
    if (PyDict_CheckExact(dict.get())) {
      std::vector<std::pair<Object, Object>> entries;
      Py_ssize_t pos = 0;
      PyObject *key, *value;
      bool plain = true;
      while (plain && PyDict_Next(dict.get(), &pos, &key, &value)) {
        plain = PyUnicode_CheckExact(key);
        entries.emplace_back(Object::borrow(key), Object::borrow(value));
      }
      if (plain) {
        std::sort(entries.begin(), entries.end(),
                  [](const auto& a, const auto& b) { return PyUnicode_Compare(a.first.get(), b.first.get()) < 0; });
        for (const auto& [k, v] : entries)
          if (!f(k, v)) return;
        return;
      }
    }
    Object items = Object::steal(PyMapping_Items(dict.get()));
    check(PyList_Sort(items.get()));
    for_each_written_item(items, f);
  }
  // The items of a mapping as the host's JSON writer takes them from the
  // list it makes of its items(): each a tuple of two (a tuple subclass's
  // too), looked at when it is reached.  It writes a dict with no storage of
  // its own as {} without asking its items(): the callers look first.
  template <class F>
  void for_each_written_item(const Object& items, F&& f) {
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(items.get()); ++i) {
      PyObject* item = PyList_GET_ITEM(items.get(), i);
      if (!PyTuple_Check(item) || PyTuple_GET_SIZE(item) != 2) {
        PyErr_SetString(PyExc_ValueError, "items must return 2-tuples");
        fail();
      }
      const Object k = Object::borrow(PyTuple_GET_ITEM(item, 0)), v = Object::borrow(PyTuple_GET_ITEM(item, 1));
      if (!f(k, v)) return;
    }
  }
  // key in HINT_KEYS: only a string can be one, and the hint keys are ASCII.
  bool is_hint_key(const Object& key) const { return names_hint(key.get()); }
  // An exact dict, list, tuple or int: walking or comparing it runs no host
  // code, unlike a subclass's items(), iteration or comparison.
  bool walks_without_host_code(const Object& v) const {
    PyObject* o = v.get();
    return PyDict_CheckExact(o) || PyList_CheckExact(o) || PyTuple_CheckExact(o) || PyLong_CheckExact(o);
  }
  // Whether the one reference to the object is its container's: host code
  // can reach it only through that container.
  bool held_once(const Object& v) const { return Py_REFCNT(v.get()) == 1; }
  // An exact dict keyed by exact texts, holding no int (bool aside) or list
  // of a subclass: looking a name up in it hashes and compares nothing but
  // texts, and int() or len() of what it finds is the host's own, so reading
  // it runs no host code and cannot fail.
  bool reads_without_host_code(const Object& v) const {
    if (!PyDict_CheckExact(v.get())) return false;
    Py_ssize_t pos = 0;
    PyObject *key, *value;
    while (PyDict_Next(v.get(), &pos, &key, &value)) {
      if (!PyUnicode_CheckExact(key)) return false;
      if (PyLong_Check(value) && !PyLong_CheckExact(value) && !PyBool_Check(value)) return false;
      if (PyList_Check(value) && !PyList_CheckExact(value)) return false;
    }
    return true;
  }
  // An exact str without code points above U+FFFF: the call key writes
  // such a character as two surrogate escapes, as it writes those two code
  // points, so only without them are two texts written alike when equal.
  bool is_exact_bmp_text(const Object& v) const {
    PyObject* o = v.get();
    return PyUnicode_CheckExact(o) && PyUnicode_KIND(o) != PyUnicode_4BYTE_KIND;
  }
  // A text keeps its hash once worked out (the host's keys, and any text
  // it hashed before), which is then read without a call.
  std::size_t text_hash(const Object& v) const {
#if PY_VERSION_HEX >= 0x030F0000
    const Py_hash_t kept = PyUnstable_Unicode_GET_CACHED_HASH(v.get());
#else
    const Py_hash_t kept = _PyASCIIObject_CAST(v.get())->hash;
#endif
    return static_cast<std::size_t>(kept != -1 ? kept : PyObject_Hash(v.get()));
  }
  bool equal_without_host_code(const Object& a, const Object& b) const {
    const int r = PyObject_RichCompareBool(a.get(), b.get(), Py_EQ);
    check(r);
    return r == 1;
  }
  Object first(const Object& seq) const {
    Object zero = make_int(0);
    return Object::steal(PyObject_GetItem(seq.get(), zero.get()));
  }
  Object attr(const Object& v, Name field) const {
    return Object::steal(PyObject_GetAttr(v.get(), state_.names[static_cast<std::size_t>(field)].get()));
  }
  Object call_method(const Object& v, Name method) const {
    return Object::steal(PyObject_CallMethodNoArgs(v.get(), state_.names[static_cast<std::size_t>(method)].get()));
  }

  // --- errors and depth
  [[noreturn]] void raise(ErrorKind kind, const std::string& message) const {
    PyObject* type = PyExc_TypeError;
    switch (kind) {
      case ErrorKind::type: type = PyExc_TypeError; break;
      case ErrorKind::value: type = PyExc_ValueError; break;
      case ErrorKind::key: type = PyExc_KeyError; break;
      case ErrorKind::attribute: type = PyExc_AttributeError; break;
      case ErrorKind::recursion: type = PyExc_RecursionError; break;
      case ErrorKind::unicode_encode: type = PyExc_UnicodeEncodeError; break;
    }
    PyErr_SetString(type, message.c_str());
    fail();
  }
  [[noreturn]] void raise_key(const Object& key) const {
    Object args = Object::steal(PyTuple_Pack(1, key.get()));
    PyErr_SetObject(PyExc_KeyError, args.get());
    fail();
  }
  // Hands the host the compact text so that it reports the encoding error
  // (position and all) exactly as it would have for that text.
  [[noreturn]] void raise_encode_error(const std::u32string& text) const {
    Object str = Object::steal(PyUnicode_FromKindAndData(PyUnicode_4BYTE_KIND, text.data(), static_cast<Py_ssize_t>(text.size())));
    Object bytes = Object::steal(PyUnicode_AsUTF8String(str.get()));
    PyErr_SetString(PyExc_SystemError, "a text with a lone surrogate was encoded");
    fail();
  }
  // A level deeper in the host's own count of nested calls, which fails
  // with its RecursionError past its limit; and a level back.
  void enter_level(const char* where) const {
    if (Py_EnterRecursiveCall(where)) fail();
  }
  void leave_level() const { Py_LeaveRecursiveCall(); }
  struct RecursionGuard {
    ~RecursionGuard() { Py_LeaveRecursiveCall(); }
  };
  RecursionGuard recursion_guard(const char* where) const {
    enter_level(where);
    return {};
  }

  // --- calls through the namespace
  template <Fn F>
  struct Bound {
    Object function;
    bool own;
  };
  template <Fn F>
  Bound<F> resolve() const {
    constexpr auto f = static_cast<std::size_t>(F);
    PyObject* bound = state_.bound_to(dict_, f);
    if (!bound) {
      if (!PyErr_Occurred()) PyErr_Format(PyExc_NameError, "name '%U' is not defined", state_.function_names[f].get());
      fail();
    }
    return {Object::borrow(bound), bound == state_.own[f].get()};
  }
  // A name that is missing (or whose lookup fails) holds no own function;
  // the call through the namespace then reports it.
  template <Fn F>
  bool holds_own() const {
    constexpr auto f = static_cast<std::size_t>(F);
    PyObject* bound = state_.bound_to(dict_, f);
    if (!bound) PyErr_Clear();
    return bound && bound == state_.own[f].get();
  }
  template <Fn F, class... A>
  next_steps::CallResult<F, Object> invoke(const Bound<F>& b, const A&... a) {
    if constexpr (next_steps::is_own(F)) {
      if (b.own) return next_steps::FnImpl<F>::run(*this, a...);
    }
    PyObject* args[] = {nullptr, a.get()...};
    PyObject* keywords = state_.keywords[static_cast<std::size_t>(F)].get();
    const std::size_t positional = sizeof...(A) - (keywords ? static_cast<std::size_t>(PyTuple_GET_SIZE(keywords)) : 0);
    Object result = Object::steal(
        PyObject_Vectorcall(b.function.get(), args + 1, positional | PY_VECTORCALL_ARGUMENTS_OFFSET, keywords));
    if constexpr (next_steps::returns_size<F>) {
      const long long n = PyLong_AsLongLong(result.get());
      if (n == -1 && PyErr_Occurred()) fail();
      return n;
    } else {
      return result;
    }
  }
  template <Fn F, class... A>
  next_steps::CallResult<F, Object> call(const A&... a) {
    return invoke(resolve<F>(), a...);
  }
  // A call whose ordinary failure (an Exception) is kept for the warning
  // that reports it; interrupts and exits pass through.
  template <Fn F, class... A>
  std::optional<Object> try_call(const A&... a) {
    try {
      return call<F>(a...);
    } catch (const HostError&) {
      if (!PyErr_ExceptionMatches(PyExc_Exception)) throw;
      failure_ = Object::steal(PyErr_GetRaisedException());
      return std::nullopt;
    }
  }
  // logger.warning(message, wanted, exc_info=failure), the logger read from
  // the namespace now; a failure of the warning itself has the lookup's
  // failure as its context, as in an except block.
  void warn_failure(const char* message, const Object& wanted) {
    Object failure = std::exchange(failure_, Object());
    try {
      Object logger = resolve<Fn::logger>().function;
      Object text = make_str(message);
      PyObject* args[] = {logger.get(), text.get(), wanted.get(), failure.get()};
      Object done = Object::steal(PyObject_VectorcallMethod(state_.warning.get(), args,
                                                            3 | PY_VECTORCALL_ARGUMENTS_OFFSET, state_.exc_info.get()));
    } catch (const HostError&) {
      PyObject* raised = PyErr_GetRaisedException();
      PyException_SetContext(raised, failure.release());
      PyErr_SetRaisedException(raised);
      throw;
    }
  }
  next_steps::MadeSteps<Object>& made_steps() { return made_steps_; }
  Object call_step(const Object& tool, const Object& reason, std::initializer_list<std::pair<Name, Object>> args) {
    auto bound = resolve<Fn::step>();
    if (bound.own) {
      Object dict = new_dict();
      for (const auto& [k, v] : args) set_item(dict, k, v);
      return next_steps::make_step(*this, tool, reason, dict);
    }
    std::vector<PyObject*> stack = {nullptr, tool.get(), reason.get()};
    Object keywords = Object::steal(PyTuple_New(static_cast<Py_ssize_t>(args.size())));
    Py_ssize_t i = 0;
    for (const auto& [k, v] : args) {
      stack.push_back(v.get());
      PyTuple_SET_ITEM(keywords.get(), i++, Object(name(k)).release());
    }
    return Object::steal(PyObject_Vectorcall(bound.function.get(), stack.data() + 1, 2 | PY_VECTORCALL_ARGUMENTS_OFFSET,
                                             args.size() ? keywords.get() : nullptr));
  }

 private:
  Object int_repr(const Object& v) const { return Object::steal(PyLong_Type.tp_repr(v.get())); }
  // str() of an exact int: a count in a reason is written from its one
  // digit of storage, without the host's general conversion.
  Object compact_int_text(const Object& v) const {
    auto* small = reinterpret_cast<PyLongObject*>(v.get());
    if (!PyUnstable_Long_IsCompact(small)) return int_repr(v);
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, PyUnstable_Long_CompactValue(small)).ptr;
    return Object::steal(PyUnicode_FromStringAndSize(digits, end - digits));
  }

  // The value of an exact int, if it fits a long long.  The ints the logic
  // compares (counts, limits) fit one digit of the int's own storage, which
  // is read without a call.
  static std::optional<long long> exact_int_value(PyObject* o) {
    auto* small = reinterpret_cast<PyLongObject*>(o);
    if (PyUnstable_Long_IsCompact(small)) return PyUnstable_Long_CompactValue(small);
    int overflow = 0;
    const long long k = PyLong_AsLongLongAndOverflow(o, &overflow);
    if (overflow) return std::nullopt;
    return k;
  }

  bool compare_int(const Object& v, long long n, int op) const {
    PyObject* o = v.get();
    if (o == Py_None) {
      if (op == Py_EQ) return false;
    } else if (PyLong_CheckExact(o)) {
      if (const auto k = exact_int_value(o)) return op == Py_EQ ? *k == n : *k < n;
    }
    Object other = make_int(n);
    const int r = PyObject_RichCompareBool(o, other.get(), op);
    check(r);
    return r == 1;
  }

  // Unpacks a (key, value) item as `for k, v in items` would.
  std::pair<Object, Object> unpack_pair(const Object& item) const {
    if (PyTuple_CheckExact(item.get()) && PyTuple_GET_SIZE(item.get()) == 2)
      return {Object::borrow(PyTuple_GET_ITEM(item.get(), 0)), Object::borrow(PyTuple_GET_ITEM(item.get(), 1))};
    Object it = Object::steal(PyObject_GetIter(item.get()));
    std::vector<Object> got;
    while (got.size() < 3) {
      PyObject* next = PyIter_Next(it.get());
      if (!next) break;
      got.push_back(Object::steal(next));
    }
    if (PyErr_Occurred()) fail();
    if (got.size() > 2) {
      PyErr_SetString(PyExc_ValueError, "too many values to unpack (expected 2)");
      fail();
    }
    if (got.size() < 2) {
      PyErr_Format(PyExc_ValueError, "not enough values to unpack (expected 2, got %zu)", got.size());
      fail();
    }
    return {got[0], got[1]};
  }

  State& state_;
  PyObject* dict_;
  Object failure_;
  next_steps::MadeSteps<Object> made_steps_;
};

static_assert(next_steps::ValueModel<HostModel>);

}  // namespace host
