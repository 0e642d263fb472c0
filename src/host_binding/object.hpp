// An owning reference to a host object, so that no early return or thrown
// error can leak one, and the one way errors travel out of the logic.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <utility>

namespace host {

// Thrown when the host's error indicator is set; caught at every entry from
// the host, which then returns NULL.
struct HostError {};

[[noreturn]] inline void fail() { throw HostError{}; }

class Object {
 public:
  Object() = default;
  static Object steal(PyObject* p) {
    if (!p) fail();
    return Object(p);
  }
  static Object borrow(PyObject* p) {
    Py_XINCREF(p);
    return Object(p);
  }
  Object(const Object& o) : p_(o.p_) { Py_XINCREF(p_); }
  Object(Object&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  Object& operator=(Object o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }
  // Inlined: a call per release would cost more than the release itself.
  [[gnu::always_inline]] ~Object() {
    if (p_) Py_DECREF(p_);
  }

  PyObject* get() const { return p_; }
  PyObject* release() { return std::exchange(p_, nullptr); }
  explicit operator bool() const { return p_ != nullptr; }

 private:
  friend class Lent;
  explicit Object(PyObject* p) : p_(p) {}
  PyObject* p_ = nullptr;
};

// A reference lent for a while by whoever holds the object, seen as an
// Object: made and dropped without touching the object's count.
class Lent {
 public:
  explicit Lent(PyObject* p) : o_(p) {}  // never null: it is the lender's
  ~Lent() { o_.release(); }
  Lent(const Lent&) = delete;
  Lent& operator=(const Lent&) = delete;
  const Object& operator*() const { return o_; }

 private:
  Object o_;
};

// Checks a status code of the C API.
inline void check(int status) {
  if (status < 0) fail();
}

}  // namespace host
