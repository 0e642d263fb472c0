// What finishing an answer learns while it copies it, so that measuring the
// copy later may pass over most of it.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "host_binding/leaves.hpp"
#include "host_binding/module_state.hpp"
#include "host_binding/object.hpp"
#include "next_steps/encoding.hpp"

namespace host {

// The fields of the copy (the values of its top dict that are containers)
// whose text holds no hint field and cannot fail to encode: exact dicts,
// lists and tuples of exact texts without a lone surrogate, ints short
// enough to write, floats, bools and nulls, keyed by such texts that name
// no hint field.  The hint walk would count nothing in such a field and find
// nothing wrong, so it passes over it while the field is as it was copied.
//
// Host code runs between the copy and that walk (add_freshness and the
// step sources' collaborators), and may change anything it can reach.  So
// every dict of a quiet field is watched, and every list is kept with its
// items: the fields are passed over only while no watched dict changed and
// every list still holds the same items.  Those dicts, lists and items are
// held until the finishing ends, so that none can be freed and its address
// taken by another object meanwhile.  A copy that ran host code itself
// (a subclass's iteration, a rebound copy, a key that hashes by its own
// method) leaves no quiet field at all.
class CopySurvey {
  // Room for the containers of an 8 KB answer or so, kept in place: a field
  // with more is not passed over, and the walk that then goes through it
  // costs little beside the rest of so large an answer.
  template <class T, std::size_t N>
  class Bounded {
   public:
    bool push(const T& t) {
      if (size_ == N) return false;
      items_[size_++] = t;
      return true;
    }
    void resize(std::size_t n) { size_ = n; }
    std::size_t size() const { return size_; }
    const T& operator[](std::size_t i) const { return items_[i]; }
    const T* begin() const { return items_.data(); }
    const T* end() const { return items_.data() + size_; }

   private:
    std::array<T, N> items_;  // only the first size_ are set
    std::size_t size_ = 0;
  };

 public:
  CopySurvey(int watcher, next_steps::Counting counting)
      : watcher_(watcher), counting_(counting), nothing_quiet_(watcher < 0) {}
  CopySurvey(const CopySurvey&) = delete;
  CopySurvey& operator=(const CopySurvey&) = delete;
  ~CopySurvey() { release(); }

  // --- told by the copy (copy_without_nulls)
  void open(const Object& source) {
    if (++depth_ == 1) top_is_dict_ = PyDict_CheckExact(source.get());
    if (depth_ == 2) {
      quiet_ = top_is_dict_;
      marks_ = {dicts_.size(), lists_.size(), items_.size()};
    }
  }
  [[gnu::always_inline]] void entry(const Object& key, const Object& value) {
    PyObject* k = key.get();
    if (!PyUnicode_CheckExact(k)) return host_code();  // its hash and == may be its own
    if (depth_ < 2 || !quiet_ || value.get() == Py_None) return;
    if (!plain_keys_.holds(k)) {
      if (!quiet_text(k) || names_hint(k)) {
        quiet_ = false;
        return;
      }
      plain_keys_.add(k);
    }
    item(value);
  }
  [[gnu::always_inline]] void item(const Object& value) {
    if (depth_ >= 2 && quiet_ && !quiet_leaf(value.get())) quiet_ = false;
  }
  void close(const Object& copy) {
    if (depth_ >= 2 && quiet_) record_container(copy.get());
    if (--depth_ == 0) {
      top_ = copy.get();
    } else if (depth_ == 1) {
      if (quiet_ && !nothing_quiet_)
        keep_field(copy.get());
      else
        drop_field();
    }
  }
  void host_code() { nothing_quiet_ = true; }

  // The quiet fields of `top`, the copy, while they are as they were copied;
  // none if the copy was another or anything changed.
  std::span<const void* const> quiet_fields(const Object& top) const {
    if (nothing_quiet_ || fields_.size() == 0 || top.get() != top_) return {};
    if (watched_changes.load(std::memory_order_relaxed) != changes_ || !lists_unchanged()) return {};
    return {fields_.begin(), fields_.end()};
  }

 private:
  struct ListItems {
    PyObject* list;
    std::size_t first, size;
  };
  struct Marks {
    std::size_t dicts, lists, items;
  };

  bool quiet_text(PyObject* text) const {
    if (PyUnicode_KIND(text) == PyUnicode_1BYTE_KIND) return true;
    bool surrogate = false;
    next_steps::compact_token_bytes(view_of(text), surrogate, counting_);
    return !surrogate;
  }
  // Containers are looked at when the copy opens them.
  bool quiet_leaf(PyObject* v) const {
    PyTypeObject* type = Py_TYPE(v);
    if (type == &PyUnicode_Type) return quiet_text(v);
    if (type == &PyLong_Type) return is_short_int(v);
    return type == &PyDict_Type || type == &PyList_Type || type == &PyTuple_Type || type == &PyFloat_Type ||
           type == &PyBool_Type || v == Py_None;
  }

  // A container of a field that is quiet so far, with its copy complete: a
  // dict to watch, a list to keep with its items, once the field is kept.
  // Without room for it the field is not quiet.
  void record_container(PyObject* copy) {
    if (PyDict_CheckExact(copy)) {
      quiet_ = dicts_.push(copy);
      return;
    }
    const auto size = static_cast<std::size_t>(PyList_GET_SIZE(copy));
    quiet_ = lists_.push({copy, items_.size(), size});
    for (std::size_t i = 0; quiet_ && i < size; ++i)
      quiet_ = items_.push(PyList_GET_ITEM(copy, static_cast<Py_ssize_t>(i)));
  }

  void keep_field(PyObject* field) {
    for (std::size_t i = marks_.dicts; i < dicts_.size(); ++i) {
      Py_INCREF(dicts_[i]);
      if (PyDict_Watch(watcher_, dicts_[i]) < 0) {
        PyErr_Clear();
        nothing_quiet_ = true;
      }
    }
    for (std::size_t i = marks_.lists; i < lists_.size(); ++i) Py_INCREF(lists_[i].list);
    for (std::size_t i = marks_.items; i < items_.size(); ++i) Py_INCREF(items_[i]);
    if (!fields_.push(field)) nothing_quiet_ = true;  // a top dict of more fields than any answer has
    changes_ = watched_changes.load(std::memory_order_relaxed);
  }
  void drop_field() {
    dicts_.resize(marks_.dicts);
    lists_.resize(marks_.lists);
    items_.resize(marks_.items);
  }

  bool lists_unchanged() const {
    for (const ListItems& l : lists_) {
      if (static_cast<std::size_t>(PyList_GET_SIZE(l.list)) != l.size) return false;
      for (std::size_t i = 0; i < l.size; ++i)
        if (PyList_GET_ITEM(l.list, static_cast<Py_ssize_t>(i)) != items_[l.first + i]) return false;
    }
    return true;
  }

  // Everything recorded is held but a field still being copied (the copy
  // failed inside it).  A dealloc may run in an unwind: the error being
  // raised stays.
  void release() {
    if (depth_ >= 2) drop_field();
    if (dicts_.size() == 0 && lists_.size() == 0) return;
    PyObject* raised = PyErr_GetRaisedException();
    for (PyObject* dict : dicts_) {
      if (PyDict_Unwatch(watcher_, dict) < 0) PyErr_Clear();
      Py_DECREF(dict);
    }
    for (const ListItems& l : lists_) Py_DECREF(l.list);
    for (PyObject* item : items_) Py_DECREF(item);
    PyErr_SetRaisedException(raised);
  }

  int watcher_;
  next_steps::Counting counting_;
  // No field may be passed over: there is no dict watcher, the copy ran
  // host code, a dict could not be watched, or the top dict has more
  // fields than there is room for.
  bool nothing_quiet_;
  bool top_is_dict_ = false, quiet_ = false;
  std::size_t depth_ = 0;
  Marks marks_{};
  Bounded<PyObject*, 128> dicts_;
  Bounded<ListItems, 128> lists_;
  Bounded<PyObject*, 256> items_;
  Bounded<const void*, 32> fields_;
  const void* top_ = nullptr;
  std::uint64_t changes_ = 0;
  next_steps::PlainKeys plain_keys_;
};

}  // namespace host
