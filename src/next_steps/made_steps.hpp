// The steps a call made itself, with the fields they were made of, so that
// the budget need not walk them (fast/made_step_sizes.hpp).
#pragma once

#include <array>
#include <cstddef>
#include <optional>

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

}  // namespace next_steps
