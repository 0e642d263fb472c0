// The steps a call made itself, with the fields they were made of, so that
// the budget need not walk them (fast/made_step_sizes.hpp).
#pragma once

#include <array>
#include <cstddef>
#include <optional>

namespace next_steps {

// A figure worked out from a known step's fields, kept once worked out: the
// fields do not change while the step is known, so a guard and the variant
// it lets in read one working out.  None where the figure cannot be had.
class KeptFigure {
 public:
  template <class F>
  std::optional<std::size_t> get(F&& work_out) {
    if (!worked_out_) {
      value_ = work_out();
      worked_out_ = true;
    }
    return value_;
  }

 private:
  std::optional<std::size_t> value_;
  bool worked_out_ = false;
};

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
    KeptFigure bytes, call_hash;  // fast/made_step_sizes.hpp, fast/value_told_repeats.hpp
  };
  void remember(const void* id, const V& step, const V& tool, const V& reason, const V& args) {
    if (count_ < known_.size()) known_[count_++].emplace(Known{id, step, {tool, reason, args, {}, {}}});
  }
  Fields* find(const void* id) {
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
