// Loading: the one exported entry and the execution slot that fills the
// namespace, in the order a reader of the module meets its names.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "host_binding/entries.hpp"
#include "host_binding/host_model.hpp"
#include "host_binding/module_state.hpp"

namespace host {
namespace {

namespace ns = next_steps;

constexpr const char* module_doc =
    "Follow-up hints that the tools add to their results, and the last step of every answer.\n"
    "\n"
    "Every answer of every tool passes through :func:`finish_answer` last, just before it\n"
    "is sent: the answer comes back as a new dict without its None fields, with the\n"
    "index's freshness block (``velquorn.tool_handlers.freshness.freshness_block`` says\n"
    "when the index the answer came from, or a wiki page it reads, is not current) and\n"
    "with ``next_steps``, the calls an agent may make next.  This module is a leaf of the\n"
    "package: every tool family imports it and it imports none of them.\n"
    "\n"
    "Every step has one shape, ``{\"tool\", \"args\", \"reason\"}`` (see :func:`step`).  The\n"
    "signals come first: the steps the answer itself calls for (no hits, a symbol with\n"
    "many callers, a file no test covers, :data:`_SIGNALS`).  The usual follow-ups of\n"
    "the tool and action come second (:data:`NEXT_STEPS`), each taking its argument from\n"
    "the answer and left out when the answer has none.  Steps a tool put into its own\n"
    "answer (a did-you-mean) take the place of both.  At most MAX_STEPS are assembled,\n"
    "without repeats of the same call.\n"
    "\n"
    "Hints stay a small part of an answer: steps are dropped from the last while all\n"
    "hint fields (:data:`HINT_KEYS`) together take more than HINT_SHARE of the answer's\n"
    "compact UTF-8 JSON bytes, or HINT_FLOOR_BYTES when that is more.  The first step\n"
    "always stays.";

constexpr const char* hint_doc =
    "A usual follow-up of a tool's answer.\n"
    "\n"
    "Attributes:\n"
    "    tool: The tool to call.\n"
    "    reason: Why, in a few words.\n"
    "    action: The action to run, for a tool with actions.\n"
    "    takes: The argument it takes from the answer; the hint is left out when\n"
    "        the answer has none to give.";

class Loader {
 public:
  explicit Loader(PyObject* module) : module_(module), dict_(PyModule_GetDict(module)) {}

  void run() {
    state_slot(module_) = new State();
    read_settings();
    intern_names();
    module_name_ = Object::steal(PyModule_GetNameObject(module_));
    check(PyModule_SetDocString(module_, module_doc));
    annotations_ = Object::steal(PyDict_New());
    bind("__annotations__", annotations_);
    if (!PyDict_GetItemString(dict_, "__builtins__")) bind("__builtins__", Object::borrow(PyEval_GetBuiltins()));
    if (!PyDict_GetItemString(dict_, "__cached__")) bind("__cached__", Object::borrow(Py_None));
    import_names();
    bind("logger", call(attr("logging", "getLogger"), {module_name_}));
    bind_constants();
    bind_tables();
    bind_functions();
    bind_annotations();
    watch_namespace();
  }

 private:
  // Which shortcuts this module object takes, as the environment says now
  // (a later change reaches only module objects made after it).
  void read_settings() {
    const std::string shortcuts(ns::shortcuts_variable);
    const ns::SettingsRead read = ns::read_settings(std::getenv(shortcuts.c_str()));
    if (!read.error.empty()) {
      PyErr_SetString(PyExc_ValueError, read.error.c_str());
      fail();
    }
    state_slot(module_)->settings = read.settings;
  }

  void intern_names() {
    State& s = *state_slot(module_);
    for (std::size_t i = 0; i < ns::name_texts.size(); ++i) {
      s.names[i] = intern(ns::name_texts[i]);
      s.constant_sizes.remember(s.names[i]);
    }
    for (std::size_t i = 0; i < ns::function_names.size(); ++i) s.function_names[i] = intern(ns::function_names[i]);
    s.get = intern("get");
    s.items = intern("items");
    s.pop = intern("pop");
    s.warning = intern("warning");
    s.exc_info = tuple({intern("exc_info")});
  }

  // from module import names, each bound under its own name
  void from_import(const char* module_name, std::initializer_list<const char*> names) {
    Object module = Object::steal(PyImport_ImportModule(module_name));
    for (const char* name : names) {
      PyObject* value = PyObject_GetAttrString(module.get(), name);
      if (!value) {
        if (!PyErr_ExceptionMatches(PyExc_AttributeError)) fail();
        PyErr_Clear();
        PyObject* path = PyObject_GetAttrString(module.get(), "__file__");
        if (!path) PyErr_Clear();
        Object file = path ? Object::steal(path) : Object::borrow(Py_None);
        Object message = Object::steal(
            path ? PyUnicode_FromFormat("cannot import name '%s' from '%s' (%S)", name, module_name, path)
                 : PyUnicode_FromFormat("cannot import name '%s' from '%s' (unknown location)", name, module_name));
        PyErr_SetImportError(message.get(), Object::steal(PyUnicode_FromString(module_name)).get(), file.get());
        fail();
      }
      bind(name, Object::steal(value));
    }
  }

  void import_names() {
    from_import("__future__", {"annotations"});
    bind("json", Object::steal(PyImport_ImportModule("json")));
    bind("logging", Object::steal(PyImport_ImportModule("logging")));
    from_import("dataclasses", {"dataclass"});
    from_import("typing", {"TYPE_CHECKING", "Any", "Literal"});
    bind("TYPE_CHECKING", Object::borrow(Py_False));
    from_import("velquorn.models.symbol", {"is_code_symbol"});
    from_import("velquorn.tool_handlers.freshness", {"add_freshness"});
    from_import("velquorn.tool_handlers.freshness", {"freshness_block"});
    from_import("velquorn.workers.name_lookup", {"guessed_name", "nearest_paths", "nearest_symbols"});
  }

  void bind_constants() {
    bind("HINT_SHARE", Object::steal(PyFloat_FromDouble(ns::hint_share)));
    bind("HINT_FLOOR_BYTES", integer(ns::hint_floor_bytes));
    Object keys = Object::steal(PyFrozenSet_New(nullptr));
    for (std::string_view key : ns::hint_keys) check(PySet_Add(keys.get(), intern(key).get()));
    bind("HINT_KEYS", keys);
    bind("_STEPS_KEY_BYTES", integer(ns::steps_key_bytes));
    bind("MAX_STEPS", integer(ns::max_steps));
    bind("FAN_IN_FOR_IMPACT", integer(ns::fan_in_for_impact));
    bind("MAX_STEP_FILES", integer(ns::max_step_files));
  }

  void bind_tables() {
    std::vector<Object> takes;
    for (std::string_view t : ns::takes_texts) takes.push_back(text(t));
    Object takes_type = Object::steal(PyObject_GetItem(lookup("Literal").get(), tuple(takes).get()));
    bind("Takes", takes_type);
    Object hint = make_hint_class();
    bind("Hint", hint);
    std::vector<Object> records;
    for (const ns::HintRecord& r : ns::hint_records) {
      Object action = r.action.empty() ? Object::borrow(Py_None) : text(r.action);
      Object takes_text = r.takes == ns::Takes::none ? Object::borrow(Py_None) : text(ns::text_of(r.takes));
      records.push_back(call(hint, {text(r.tool), text(r.reason), action, takes_text}));
    }
    for (std::size_t i = 0; i < ns::shared_hint_count; ++i)
      bind(std::string(ns::hint_records[i].shared_name).c_str(), records[i]);
    Object rows = Object::steal(PyDict_New());
    for (const ns::Row& row : ns::next_steps_rows) {
      std::vector<Object> hints;
      for (unsigned char index : row.items()) hints.push_back(records[index]);
      check(PyDict_SetItem(rows.get(), text(row.key).get(), tuple(hints).get()));
    }
    bind("NEXT_STEPS", rows);
    std::vector<Object> hit_lists;
    for (ns::Name n : ns::hit_lists) hit_lists.push_back(state_slot(module_)->names[static_cast<std::size_t>(n)]);
    bind("_HIT_LISTS", tuple(hit_lists));
  }

  // class Hint, made a frozen dataclass by the host's own dataclasses, its
  // declared types kept as text.
  Object make_hint_class() {
    Object body = Object::steal(PyDict_New());
    Object types = Object::steal(PyDict_New());
    for (auto [field, type] : {std::pair{"tool", "str"}, {"reason", "str"}, {"action", "str | None"},
                               {"takes", "Takes | None"}})
      check(PyDict_SetItemString(types.get(), field, text(type).get()));
    check(PyDict_SetItemString(body.get(), "__module__", module_name_.get()));
    check(PyDict_SetItemString(body.get(), "__qualname__", text("Hint").get()));
    check(PyDict_SetItemString(body.get(), "__doc__", text(hint_doc).get()));
    check(PyDict_SetItemString(body.get(), "__annotations__", types.get()));
    check(PyDict_SetItemString(body.get(), "action", Py_None));
    check(PyDict_SetItemString(body.get(), "takes", Py_None));
    Object bases = Object::steal(PyTuple_New(0));
    Object cls = call(Object::borrow(reinterpret_cast<PyObject*>(&PyType_Type)), {text("Hint"), bases, body});
    Object dataclass = lookup("dataclass");
    PyObject* args[] = {nullptr, cls.get(), Py_True};
    Object keywords = tuple({text("frozen")});
    return Object::steal(
        PyObject_Vectorcall(dataclass.get(), args + 1, 1 | PY_VECTORCALL_ARGUMENTS_OFFSET, keywords.get()));
  }

  // The functions in their order, _SIGNALS right after the last one that
  // runs a signal.  The own ones are kept, so that a call can tell whether a
  // name still holds them, with the keyword names the logic calls them with.
  void bind_functions() {
    State& s = *state_slot(module_);
    const auto functions = host::functions();
    auto signals_left = std::ranges::count_if(functions, [](const Function& f) { return f.signal.has_value(); });
    for (const Function& f : functions) {
      Object function = Object::steal(PyCFunction_NewEx(f.def, module_, module_name_.get()));
      if (f.fn) {
        const auto i = static_cast<std::size_t>(*f.fn);
        s.own[i] = function;
        std::vector<Object> keywords;
        for (const char* name : f.signature->keyword_only) keywords.push_back(intern(name));
        if (!keywords.empty()) s.keywords[i] = tuple(keywords);
      }
      bind(f.def->ml_name, function);
      if (f.signal && --signals_left == 0) bind_signals(functions);
    }
  }

  void bind_signals(std::span<const Function> functions) {
    Object table = Object::steal(PyDict_New());
    for (const ns::SignalRow& row : ns::signal_rows) {
      const Function& runs = *std::ranges::find(functions, std::optional(row.signal), &Function::signal);
      check(PyDict_SetItem(table.get(), text(row.key).get(), lookup(runs.def->ml_name).get()));
    }
    bind("_SIGNALS", table);
  }

  // Without a free watcher slot the module works all the same, looking its
  // names up at every read.
  void watch_namespace() {
    State& s = *state_slot(module_);
    const int watcher = PyDict_AddWatcher(&watched_dict_changed);
    if (watcher < 0) {
      PyErr_Clear();
      return;
    }
    if (PyDict_Watch(watcher, dict_) < 0) {
      PyErr_Clear();
      PyDict_ClearWatcher(watcher);
      return;
    }
    s.watcher = watcher;
  }

  static int watched_dict_changed(PyDict_WatchEvent, PyObject*, PyObject*, PyObject*) {
    watched_changes.fetch_add(1, std::memory_order_relaxed);
    return 0;
  }

  void bind_annotations() {
    check(PyDict_SetItemString(annotations_.get(), "NEXT_STEPS", text("dict[str, tuple[Hint, ...]]").get()));
    check(PyDict_SetItemString(annotations_.get(), "_SIGNALS",
                               text("dict[str, Callable[[Mapping[str, Any]], dict[str, Any] | None]]").get()));
  }

  // --- small helpers
  void bind(const char* name, const Object& value) { check(PyDict_SetItemString(dict_, name, value.get())); }
  Object lookup(const char* name) {
    PyObject* found = PyDict_GetItemString(dict_, name);
    if (!found) {
      PyErr_Format(PyExc_NameError, "name '%s' is not defined", name);
      fail();
    }
    return Object::borrow(found);
  }
  Object attr(const char* name, const char* attribute) {
    return Object::steal(PyObject_GetAttrString(lookup(name).get(), attribute));
  }
  static Object call(const Object& function, std::initializer_list<Object> args) {
    std::vector<PyObject*> stack{nullptr};
    for (const Object& a : args) stack.push_back(a.get());
    return Object::steal(
        PyObject_Vectorcall(function.get(), stack.data() + 1, args.size() | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr));
  }
  static Object text(std::string_view s) {
    return Object::steal(PyUnicode_FromStringAndSize(s.data(), static_cast<Py_ssize_t>(s.size())));
  }
  static Object intern(std::string_view s) {
    PyObject* t = PyUnicode_FromStringAndSize(s.data(), static_cast<Py_ssize_t>(s.size()));
    if (t) PyUnicode_InternInPlace(&t);
    return Object::steal(t);
  }
  static Object integer(long long n) { return Object::steal(PyLong_FromLongLong(n)); }
  static Object tuple(const std::vector<Object>& items) {
    Object t = Object::steal(PyTuple_New(static_cast<Py_ssize_t>(items.size())));
    for (std::size_t i = 0; i < items.size(); ++i)
      PyTuple_SET_ITEM(t.get(), static_cast<Py_ssize_t>(i), Object(items[i]).release());
    return t;
  }
  static Object tuple(std::initializer_list<Object> items) { return tuple(std::vector<Object>(items)); }

  PyObject* module_;
  PyObject* dict_;
  Object module_name_;
  Object annotations_;
};

int exec_module(PyObject* module) {
  try {
    Loader(module).run();
    return 0;
  } catch (const HostError&) {
    return -1;
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
    return -1;
  } catch (const std::exception& e) {
    PyErr_SetString(PyExc_SystemError, e.what());
    return -1;
  }
}

int traverse(PyObject* module, visitproc visit, void* arg) {
  if (State* s = state_slot(module)) {
    int status = 0;
    s->for_each_object([&](Object& o) {
      if (!status && o) status = visit(o.get(), arg);
    });
    return status;
  }
  return 0;
}

// Gives the watcher slot back to the interpreter, so that a later watcher on
// that slot gets no events of this namespace.  The namespace is still there:
// the collector clears a module (m_clear) before it drops the namespace, and
// a module freed without being cleared drops it after m_free.  The count
// moves, as no event would tell of a change from now on; a host error
// raised while the module goes (a dealloc may run in an unwind) stays.
void stop_watching(PyObject* module, State& s) {
  if (s.watcher < 0) return;
  PyObject* raised = PyErr_GetRaisedException();
  if (PyDict_Unwatch(s.watcher, PyModule_GetDict(module)) < 0) PyErr_Clear();
  if (PyDict_ClearWatcher(s.watcher) < 0) PyErr_Clear();
  PyErr_SetRaisedException(raised);
  s.watcher = -1;
  watched_changes.fetch_add(1, std::memory_order_relaxed);
}

int clear(PyObject* module) {
  if (State* s = state_slot(module)) {
    stop_watching(module, *s);
    s->for_each_object([](Object& o) { o = Object(); });
  }
  return 0;
}

void free_module(void* module) {
  State*& s = state_slot(static_cast<PyObject*>(module));
  if (s) stop_watching(static_cast<PyObject*>(module), *s);
  delete s;
  s = nullptr;
}

// Every interpreter, those with a GIL of their own too, makes its own
// module objects: what a call reads or writes is its module object's State
// and that interpreter's objects, or is immutable (the logic's constexpr
// tables), but for the one count of watched changes, which is atomic.  The host objects that interpreters
// share (None, True, the static types, texts interned for all) are
// immortal, so no reference count of theirs is written from two at once.
PyModuleDef_Slot slots[] = {
    {Py_mod_exec, reinterpret_cast<void*>(&exec_module)},
    {Py_mod_multiple_interpreters, Py_MOD_PER_INTERPRETER_GIL_SUPPORTED},
    {0, nullptr},
};

// Mutable only for the host's sake: the host fills in its head the first
// time an interpreter loads the module, as it does for its own modules'
// definitions, and only reads it and the slots from then on.
PyModuleDef definition = {
    PyModuleDef_HEAD_INIT,
    "next_steps",
    nullptr,
    sizeof(State*),
    nullptr,
    slots,
    traverse,
    clear,
    free_module,
};

}  // namespace
}  // namespace host

extern "C" __attribute__((visibility("default"))) PyObject* PyInit_next_steps() {
  return PyModuleDef_Init(&host::definition);
}
