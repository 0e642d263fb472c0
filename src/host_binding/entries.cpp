#include "host_binding/entries.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <new>
#include <string>
#include <string_view>

#include "host_binding/arguments.hpp"
#include "host_binding/host_model.hpp"

namespace host {
namespace {

namespace ns = next_steps;

// Runs a body with the host's error indicator as the only way out.
template <class Body>
PyObject* guarded(Body&& body) noexcept {
  try {
    return body().release();
  } catch (const HostError&) {
    return nullptr;
  } catch (const std::bad_alloc&) {
    return PyErr_NoMemory();
  } catch (const std::exception& e) {
    PyErr_SetString(PyExc_SystemError, e.what());
    return nullptr;
  }
}

template <const Signature& S, auto Body>
PyObject* entry(PyObject* module, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  Arguments a;
  if (!parse(S, args, nargs, kwnames, a)) return nullptr;
  return guarded([&] {
    HostModel m(module);
    return Body(m, a);
  });
}

// A name the logic calls the function by, as the signature's name.
constexpr const char* named(ns::Fn f) { return ns::text_of(f).data(); }

constexpr Signature step_sig{named(ns::Fn::step), {"tool", "reason"}, {}, false, "args"};
constexpr Signature finish_sig{"finish_answer", {"response", "tool_name"}, {"action", "arguments", "freshness"}};
constexpr Signature value_sig_copy{named(ns::Fn::without_null_fields), {"value"}, {}};
constexpr Signature add_sig{named(ns::Fn::add_next_steps), {"response", "tool_name"}, {"action", "arguments"}};
constexpr Signature signals_sig{named(ns::Fn::signals), {"response", "tool", "action", "arguments"}, {}};
constexpr Signature meaning_sig{"_search_by_meaning", {"known"}, {}};
constexpr Signature explore_sig{"_ask_explore", {"known"}, {}};
constexpr Signature blast_sig{"_blast_radius", {"known"}, {}};
constexpr Signature untested_sig{"_untested", {"known"}, {}};
constexpr Signature usual_sig{named(ns::Fn::usual), {"response", "tool", "action", "arguments"}, {}};
constexpr Signature hit_count_sig{named(ns::Fn::hit_count), {"response"}, {}};
constexpr Signature taken_sig{named(ns::Fn::taken), {"response", "takes", "arguments"}, {}};
constexpr Signature scope_sig{named(ns::Fn::tests_scope), {"response", "arguments"}, {}};
constexpr Signature files_sig{named(ns::Fn::answer_files), {"response", "arguments"}, {}};
constexpr Signature code_hit_sig{named(ns::Fn::is_code_hit), {"item"}, {}};
constexpr Signature dedup_sig{named(ns::Fn::deduplicated), {"steps"}, {}};
constexpr Signature share_sig{named(ns::Fn::within_share), {"response", "steps"}, {"keep"}, true};
constexpr Signature hint_size_sig{named(ns::Fn::hint_size), {"value"}, {}};
constexpr Signature size_sig{named(ns::Fn::encoded_size), {"value"}, {}};
constexpr Signature symbols_sig{"suggest_symbols", {"response", "repository", "wanted", "action"}, {}};
constexpr Signature paths_sig{"suggest_paths", {"response", "repository", "wanted", "action"}, {}};

Object run_step(HostModel& m, Arguments& a) { return ns::make_step(m, *a[0], *a[1], a.keywords); }
Object run_finish(HostModel& m, Arguments& a) { return ns::finish_answer(m, *a[0], *a[1], *a[2], *a[3], *a[4]); }
Object run_copy(HostModel& m, Arguments& a) { return ns::without_null_fields(m, *a[0]); }
Object run_add(HostModel& m, Arguments& a) { return ns::add_next_steps(m, *a[0], *a[1], *a[2], *a[3]); }
Object run_signals(HostModel& m, Arguments& a) { return ns::signals(m, *a[0], *a[1], *a[2], *a[3]); }
// A signal function's one argument, read a field at a time.
ns::KnownMapping<HostModel> known(HostModel& m, Arguments& a) { return {m, *a[0]}; }
Object run_meaning(HostModel& m, Arguments& a) { return ns::search_by_meaning(m, known(m, a)); }
Object run_explore(HostModel& m, Arguments& a) { return ns::ask_explore(m, known(m, a)); }
Object run_blast(HostModel& m, Arguments& a) { return ns::blast_radius(m, known(m, a)); }
Object run_untested(HostModel& m, Arguments& a) { return ns::untested(m, known(m, a)); }
Object run_usual(HostModel& m, Arguments& a) { return ns::usual(m, *a[0], *a[1], *a[2], *a[3]); }
Object run_hit_count(HostModel& m, Arguments& a) { return ns::hit_count(m, *a[0]); }
Object run_taken(HostModel& m, Arguments& a) { return ns::taken(m, *a[0], *a[1], *a[2]); }
Object run_scope(HostModel& m, Arguments& a) { return ns::tests_scope(m, *a[0], *a[1]); }
Object run_files(HostModel& m, Arguments& a) { return ns::answer_files(m, *a[0], *a[1]); }
Object run_code_hit(HostModel& m, Arguments& a) { return ns::is_code_hit(m, *a[0]); }
Object run_dedup(HostModel& m, Arguments& a) { return ns::deduplicated(m, *a[0]); }
Object run_share(HostModel& m, Arguments& a) { return ns::within_share(m, *a[0], *a[1], *a[2]); }
Object run_hint_size(HostModel& m, Arguments& a) { return m.make_int(ns::hint_size(m, *a[0])); }
Object run_size(HostModel& m, Arguments& a) { return m.make_int(ns::encoded_size(m, *a[0])); }
Object run_symbols(HostModel& m, Arguments& a) { return ns::suggest_symbols(m, *a[0], *a[1], *a[2], *a[3]); }
Object run_paths(HostModel& m, Arguments& a) { return ns::suggest_paths(m, *a[0], *a[1], *a[2], *a[3]); }

// A function's line of the table: the signature its calls are parsed by,
// what it runs, its docstring (the signature line is added from the
// signature) and the signal it runs, if it runs one.
struct Entry {
  const Signature& signature;
  PyObject* (*call)(PyObject*, PyObject* const*, Py_ssize_t, PyObject*);
  const char* doc;
  std::optional<ns::Signal> signal;
};

template <const Signature& S, auto Body>
constexpr Entry def(const char* doc, std::optional<ns::Signal> signal = std::nullopt) {
  return {S, &entry<S, Body>, doc, signal};
}

// The module's functions, in the order the namespace lists them.
constexpr Entry table[] = {
    def<step_sig, run_step>(
        "One next step: the tool to call, the arguments to call it with, and why.\n\n"
        "Returns ``{\"tool\": tool, \"args\": args, \"reason\": reason}``, the keyword\n"
        "arguments collected as ``args`` in the order they were passed."),
    def<finish_sig, run_finish>(
        "The answer as every tool sends it (see the module's docstring).\n\n"
        "Returns a new answer: ``response`` without its None fields at any depth,\n"
        "with the index's ``freshness`` block and the ``next_steps`` an agent may\n"
        "take, kept within the hint budget.  ``response`` itself is not changed."),
    def<value_sig_copy, run_copy>(
        "A copy of a JSON-like value without the dict fields that are None, at any depth.\n\n"
        "A list keeps its None items: their places are part of the list.  Tuples\n"
        "come back as lists; every other value is returned as it is."),
    def<add_sig, run_add>(
        "Add the steps an agent may take after the answer (see the module's docstring).\n\n"
        "The steps the tool already gave for its own answer (a did-you-mean, an\n"
        "explore route) take the place of the usual ones.  The first step is\n"
        "always kept, and every signal.  Changes ``response`` and returns it."),
    def<signals_sig, run_signals>(
        "The steps the answer itself calls for (:data:`_SIGNALS`)."),
    def<meaning_sig, run_meaning>(
        "A search by name or text that found nothing: the same query, by meaning.", ns::Signal::search_by_meaning),
    def<explore_sig, run_explore>(
        "A search by meaning that found nothing: the same question, to explore.", ns::Signal::ask_explore),
    def<blast_sig, run_blast>(
        "A symbol with many callers or references: what a change of it would reach.", ns::Signal::blast_radius),
    def<untested_sig, run_untested>(
        "A file no test covers: the tests a change of it would call for (through what uses it).", ns::Signal::untested),
    def<usual_sig, run_usual>(
        "The usual follow-ups of the tool and action, each with its argument from the answer."),
    def<hit_count_sig, run_hit_count>(
        "How many hits the answer says it has, or None when it counts none."),
    def<taken_sig, run_taken>(
        "The value a step takes from the answer (or the request), or None when there is none."),
    def<scope_sig, run_scope>(
        "What a tests(recommended) step runs on: the answer's files when it lists\n"
        "them all (at most MAX_STEP_FILES), else the branch base it compared\n"
        "against, else its first files; empty when the answer names none."),
    def<files_sig, run_files>(
        "The files an answer is about: its own file, then the affected (else the\n"
        "changed) files, else the request's path; without repeats."),
    def<code_hit_sig, run_code_hit>(
        "Whether a hit is a code symbol, by the kind and the file it lists."),
    def<dedup_sig, run_dedup>(
        "The steps without a repeat of the same call."),
    def<share_sig, run_share>(
        "The steps, dropped from the last while the answer's hints exceed their room.\n\n"
        "The room is HINT_SHARE of the answer with its steps, or HINT_FLOOR_BYTES\n"
        "when that is more.  The answer holds no ``next_steps`` here and its other\n"
        "hint fields count with the steps.  The first ``keep`` steps are never dropped."),
    def<hint_size_sig, run_hint_size>(
        "The bytes of the hint fields (:data:`HINT_KEYS`) of a value, at any depth."),
    def<size_sig, run_size>(
        "The bytes of a value as an answer sends it (compact UTF-8 JSON, ``tool_result_text``)."),
    def<symbols_sig, run_symbols>(
        "Answer a name or fqn the index does not hold with the nearest symbols that it does.\n\n"
        "Returns ``response`` with ``found`` false, ``did_you_mean`` (the candidates,\n"
        "best first) and a next step that uses the best one, or a name search when\n"
        "nothing is near."),
    def<paths_sig, run_paths>(
        "Answer a path the index does not hold with the nearest indexed paths.\n\n"
        "Returns ``response`` with ``found`` false, ``did_you_mean`` (the paths, best\n"
        "first) and a next step that uses the best one, or the list of files when\n"
        "nothing is near."),
};

// The function of the logic's vocabulary that an entry defines, by name.
constexpr std::optional<ns::Fn> own_function(const Entry& e) {
  for (std::size_t f = 0; f < ns::function_names.size(); ++f)
    if (ns::is_own(ns::Fn(f)) && ns::function_names[f] == e.signature.function) return ns::Fn(f);
  return std::nullopt;
}

// Every name the logic calls as the module's own function, and every signal
// a row names, is defined by exactly one entry: a function missing here
// would leave the logic calling it through the host, or _SIGNALS without it.
constexpr bool one_entry_each() {
  for (std::size_t f = 0; f < ns::function_names.size(); ++f)
    if (ns::is_own(ns::Fn(f)) && std::ranges::count(table, std::optional(ns::Fn(f)), own_function) != 1) return false;
  for (const ns::SignalRow& row : ns::signal_rows)
    if (std::ranges::count(table, std::optional(row.signal), &Entry::signal) != 1) return false;
  return true;
}
static_assert(one_entry_each(), "an entry for each own function and each signal");

// The signatures above are written beside the table, not in it: each must
// be one entry's, under a name of its own, with no more parameters than a
// call is parsed into.
constexpr bool a_signature_each() {
  for (std::size_t i = 0; i < std::size(table); ++i) {
    const Signature& s = table[i].signature;
    if (s.positional.size() + s.keyword_only.size() > max_parameters) return false;
    for (std::size_t j = 0; j < i; ++j)
      if (&table[j].signature == &s || std::string_view(table[j].signature.function) == s.function) return false;
  }
  return true;
}
static_assert(a_signature_each(), "a signature of its own for each entry, within max_parameters");

// The docstring the host shows, after the line inspect reads the text
// signature from.
std::string docstring(const Entry& e) {
  const Signature& s = e.signature;
  std::string text = std::string(s.function) + "($module, /";
  for (const char* name : s.positional) (text += ", ") += name;
  if (s.keyword_only.size()) text += ", *";
  for (const char* name : s.keyword_only) {
    (text += ", ") += name;
    if (!s.keyword_only_required) text += "=None";
  }
  if (s.collected_keywords) (text += ", **") += s.collected_keywords;
  return text + ")\n--\n\n" + e.doc;
}

}  // namespace

std::span<const Function> functions() {
  constexpr std::size_t count = std::size(table);
  // Made once and never freed: the host keeps pointers to the definitions.
  // The first interpreter to load the module makes them (a static is made
  // once however many threads ask at once) and every interpreter's function
  // objects then only read them.
  struct Made {
    std::array<std::string, count> docs;
    std::array<PyMethodDef, count> defs;
    std::array<Function, count> functions;
  };
  static const Made* made = [] {
    auto* m = new Made;
    for (std::size_t i = 0; i < count; ++i) {
      const Entry& e = table[i];
      m->docs[i] = docstring(e);
      m->defs[i] = {e.signature.function, reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(e.call)),
                    METH_FASTCALL | METH_KEYWORDS, m->docs[i].c_str()};
      m->functions[i] = {&m->defs[i], &e.signature, own_function(e), e.signal};
    }
    return m;
  }();
  return made->functions;
}

}  // namespace host
