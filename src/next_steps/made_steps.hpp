// The steps a call made itself, with the fields they were made of, so that
// the budget and the search for repeats need not walk them.
#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "next_steps/model.hpp"
#include "next_steps/text.hpp"

namespace next_steps {

// A step the module makes is a new dict that only the module's own code
// holds until the step list is handed on, and nothing of the module changes
// it: its fields when the budget measures the list are the ones it was made
// of.  A call makes a handful; they are told by identity, each held so that
// its identity names it for as long as it is known.  Steps handed to a
// function that is not the module's own could be changed there: they are
// forgotten then.
template <class V>
class MadeSteps {
 public:
  struct Fields {
    V tool, reason, args;
  };
  void remember(const void* id, const V& step, const V& tool, const V& reason, const V& args) {
    if (count_ < known_.size()) known_[count_++].emplace(Known{id, step, {tool, reason, args}});
  }
  const Fields* find(const void* id) const {
    for (std::size_t i = 0; i < count_; ++i)
      if (known_[i]->id == id) return &known_[i]->fields;
    return nullptr;
  }
  void forget() {
    for (std::size_t i = 0; i < count_; ++i) known_[i].reset();
    count_ = 0;
  }

 private:
  struct Known {
    const void* id;
    V step;
    Fields fields;
  };
  // Empty slots hold nothing, so that a call that makes no step pays for none.
  std::array<std::optional<Known>, 6> known_;
  std::size_t count_ = 0;
};

// The compact size of a step {"tool", "args", "reason"} whose tool and
// reason are exact BMP texts and whose args are a dict of such texts that
// walks without host code; none for any other step, or one holding a lone
// surrogate (the walk that measures it instead fails there as ever).
template <class M>
std::optional<std::size_t> made_step_bytes(M& m, const typename M::Value& tool, const typename M::Value& reason,
                                           const typename M::Value& args) {
  using V = typename M::Value;
  if (!m.is_exact_bmp_text(tool) || !m.is_exact_bmp_text(reason) || m.kind(args) != Kind::dict ||
      !m.walks_without_host_code(args))
    return std::nullopt;
  bool surrogate = false;
  auto text = [&](const V& v) { return m.token_bytes(v, surrogate); };
  std::size_t bytes =
      key_bytes(Name::tool) + text(tool) + key_bytes(Name::args) + key_bytes(Name::reason) + text(reason) + 1;
  std::size_t entries = 0;
  bool texts = true;
  m.lend_entries(args, [&](const V& k, const V& v) {
    texts = m.is_exact_bmp_text(k) && m.is_exact_bmp_text(v);
    if (texts) bytes += text(k) + 1 + text(v);
    ++entries;
    return texts;
  });
  if (!texts || surrogate) return std::nullopt;
  return bytes + 2 + (entries ? entries - 1 : 0);
}

}  // namespace next_steps
