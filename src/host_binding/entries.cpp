#include "host_binding/entries.hpp"

#include <new>

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

template <const Signature& S, auto Body>
constexpr PyMethodDef def(const char* doc) {
  return {S.function, reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&entry<S, Body>)),
          METH_FASTCALL | METH_KEYWORDS, doc};
}

constexpr Signature step_sig{"step", {"tool", "reason"}, {}, false, true};
constexpr Signature finish_sig{"finish_answer", {"response", "tool_name"}, {"action", "arguments", "freshness"}};
constexpr Signature value_sig_copy{"without_null_fields", {"value"}, {}};
constexpr Signature add_sig{"_add_next_steps", {"response", "tool_name"}, {"action", "arguments"}};
constexpr Signature signals_sig{"_signals", {"response", "tool", "action", "arguments"}, {}};
constexpr Signature meaning_sig{"_search_by_meaning", {"known"}, {}};
constexpr Signature explore_sig{"_ask_explore", {"known"}, {}};
constexpr Signature blast_sig{"_blast_radius", {"known"}, {}};
constexpr Signature untested_sig{"_untested", {"known"}, {}};
constexpr Signature usual_sig{"_usual", {"response", "tool", "action", "arguments"}, {}};
constexpr Signature hit_count_sig{"_hit_count", {"response"}, {}};
constexpr Signature taken_sig{"_taken", {"response", "takes", "arguments"}, {}};
constexpr Signature scope_sig{"_tests_scope", {"response", "arguments"}, {}};
constexpr Signature files_sig{"_answer_files", {"response", "arguments"}, {}};
constexpr Signature code_hit_sig{"_is_code_hit", {"item"}, {}};
constexpr Signature dedup_sig{"_deduplicated", {"steps"}, {}};
constexpr Signature share_sig{"_within_share", {"response", "steps"}, {"keep"}, true};
constexpr Signature hint_size_sig{"_hint_size", {"value"}, {}};
constexpr Signature size_sig{"_encoded_size", {"value"}, {}};
constexpr Signature symbols_sig{"suggest_symbols", {"response", "repository", "wanted", "action"}, {}};
constexpr Signature paths_sig{"suggest_paths", {"response", "repository", "wanted", "action"}, {}};

Object run_step(HostModel& m, Arguments& a) { return ns::make_step(m, a[0], a[1], a.keywords); }
Object run_finish(HostModel& m, Arguments& a) { return ns::finish_answer(m, a[0], a[1], a[2], a[3], a[4]); }
Object run_copy(HostModel& m, Arguments& a) { return ns::without_null_fields(m, a[0]); }
Object run_add(HostModel& m, Arguments& a) { return ns::add_next_steps(m, a[0], a[1], a[2], a[3]); }
Object run_signals(HostModel& m, Arguments& a) { return ns::signals(m, a[0], a[1], a[2], a[3]); }
// A signal function's one argument, read a field at a time.
ns::KnownMapping<HostModel> known(HostModel& m, Arguments& a) { return {m, a[0]}; }
Object run_meaning(HostModel& m, Arguments& a) { return ns::search_by_meaning(m, known(m, a)); }
Object run_explore(HostModel& m, Arguments& a) { return ns::ask_explore(m, known(m, a)); }
Object run_blast(HostModel& m, Arguments& a) { return ns::blast_radius(m, known(m, a)); }
Object run_untested(HostModel& m, Arguments& a) { return ns::untested(m, known(m, a)); }
Object run_usual(HostModel& m, Arguments& a) { return ns::usual(m, a[0], a[1], a[2], a[3]); }
Object run_hit_count(HostModel& m, Arguments& a) { return ns::hit_count(m, a[0]); }
Object run_taken(HostModel& m, Arguments& a) { return ns::taken(m, a[0], a[1], a[2]); }
Object run_scope(HostModel& m, Arguments& a) { return ns::tests_scope(m, a[0], a[1]); }
Object run_files(HostModel& m, Arguments& a) { return ns::answer_files(m, a[0], a[1]); }
Object run_code_hit(HostModel& m, Arguments& a) { return ns::is_code_hit(m, a[0]); }
Object run_dedup(HostModel& m, Arguments& a) { return ns::deduplicated(m, a[0]); }
Object run_share(HostModel& m, Arguments& a) { return ns::within_share(m, a[0], a[1], a[2]); }
Object run_hint_size(HostModel& m, Arguments& a) { return m.make_int(ns::hint_size(m, a[0])); }
Object run_size(HostModel& m, Arguments& a) { return m.make_int(ns::encoded_size(m, a[0])); }
Object run_symbols(HostModel& m, Arguments& a) { return ns::suggest_symbols(m, a[0], a[1], a[2], a[3]); }
Object run_paths(HostModel& m, Arguments& a) { return ns::suggest_paths(m, a[0], a[1], a[2], a[3]); }

PyMethodDef defs[] = {
    def<step_sig, run_step>(
        "step($module, /, tool, reason, **args)\n--\n\n"
        "One next step: the tool to call, the arguments to call it with, and why.\n\n"
        "Returns ``{\"tool\": tool, \"args\": args, \"reason\": reason}``, the keyword\n"
        "arguments collected as ``args`` in the order they were passed."),
    def<finish_sig, run_finish>(
        "finish_answer($module, /, response, tool_name, *, action=None, arguments=None, freshness=None)\n--\n\n"
        "The answer as every tool sends it (see the module's docstring).\n\n"
        "Returns a new answer: ``response`` without its None fields at any depth,\n"
        "with the index's ``freshness`` block and the ``next_steps`` an agent may\n"
        "take, kept within the hint budget.  ``response`` itself is not changed."),
    def<value_sig_copy, run_copy>(
        "without_null_fields($module, /, value)\n--\n\n"
        "A copy of a JSON-like value without the dict fields that are None, at any depth.\n\n"
        "A list keeps its None items: their places are part of the list.  Tuples\n"
        "come back as lists; every other value is returned as it is."),
    def<add_sig, run_add>(
        "_add_next_steps($module, /, response, tool_name, *, action=None, arguments=None)\n--\n\n"
        "Add the steps an agent may take after the answer (see the module's docstring).\n\n"
        "The steps the tool already gave for its own answer (a did-you-mean, an\n"
        "explore route) take the place of the usual ones.  The first step is\n"
        "always kept, and every signal.  Changes ``response`` and returns it."),
    def<signals_sig, run_signals>(
        "_signals($module, /, response, tool, action, arguments)\n--\n\n"
        "The steps the answer itself calls for (:data:`_SIGNALS`)."),
    def<meaning_sig, run_meaning>(
        "_search_by_meaning($module, /, known)\n--\n\n"
        "A search by name or text that found nothing: the same query, by meaning."),
    def<explore_sig, run_explore>(
        "_ask_explore($module, /, known)\n--\n\n"
        "A search by meaning that found nothing: the same question, to explore."),
    def<blast_sig, run_blast>(
        "_blast_radius($module, /, known)\n--\n\n"
        "A symbol with many callers or references: what a change of it would reach."),
    def<untested_sig, run_untested>(
        "_untested($module, /, known)\n--\n\n"
        "A file no test covers: the tests a change of it would call for (through what uses it)."),
    def<usual_sig, run_usual>(
        "_usual($module, /, response, tool, action, arguments)\n--\n\n"
        "The usual follow-ups of the tool and action, each with its argument from the answer."),
    def<hit_count_sig, run_hit_count>(
        "_hit_count($module, /, response)\n--\n\n"
        "How many hits the answer says it has, or None when it counts none."),
    def<taken_sig, run_taken>(
        "_taken($module, /, response, takes, arguments)\n--\n\n"
        "The value a step takes from the answer (or the request), or None when there is none."),
    def<scope_sig, run_scope>(
        "_tests_scope($module, /, response, arguments)\n--\n\n"
        "What a tests(recommended) step runs on: the answer's files when it lists\n"
        "them all (at most MAX_STEP_FILES), else the branch base it compared\n"
        "against, else its first files; empty when the answer names none."),
    def<files_sig, run_files>(
        "_answer_files($module, /, response, arguments)\n--\n\n"
        "The files an answer is about: its own file, then the affected (else the\n"
        "changed) files, else the request's path; without repeats."),
    def<code_hit_sig, run_code_hit>(
        "_is_code_hit($module, /, item)\n--\n\n"
        "Whether a hit is a code symbol, by the kind and the file it lists."),
    def<dedup_sig, run_dedup>(
        "_deduplicated($module, /, steps)\n--\n\n"
        "The steps without a repeat of the same call."),
    def<share_sig, run_share>(
        "_within_share($module, /, response, steps, *, keep)\n--\n\n"
        "The steps, dropped from the last while the answer's hints exceed their room.\n\n"
        "The room is HINT_SHARE of the answer with its steps, or HINT_FLOOR_BYTES\n"
        "when that is more.  The answer holds no ``next_steps`` here and its other\n"
        "hint fields count with the steps.  The first ``keep`` steps are never dropped."),
    def<hint_size_sig, run_hint_size>(
        "_hint_size($module, /, value)\n--\n\n"
        "The bytes of the hint fields (:data:`HINT_KEYS`) of a value, at any depth."),
    def<size_sig, run_size>(
        "_encoded_size($module, /, value)\n--\n\n"
        "The bytes of a value as an answer sends it (compact UTF-8 JSON, ``tool_result_text``)."),
    def<symbols_sig, run_symbols>(
        "suggest_symbols($module, /, response, repository, wanted, action)\n--\n\n"
        "Answer a name or fqn the index does not hold with the nearest symbols that it does.\n\n"
        "Returns ``response`` with ``found`` false, ``did_you_mean`` (the candidates,\n"
        "best first) and a next step that uses the best one, or a name search when\n"
        "nothing is near."),
    def<paths_sig, run_paths>(
        "suggest_paths($module, /, response, repository, wanted, action)\n--\n\n"
        "Answer a path the index does not hold with the nearest indexed paths.\n\n"
        "Returns ``response`` with ``found`` false, ``did_you_mean`` (the paths, best\n"
        "first) and a next step that uses the best one, or the list of files when\n"
        "nothing is near."),
};

}  // namespace

std::span<PyMethodDef> method_defs() { return defs; }

}  // namespace host
