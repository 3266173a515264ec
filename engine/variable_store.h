// The variables of a script, and the expansion of references to them.
#pragma once

#include <functional>

#include "engine/object_store.h"
#include "support/containers.h"
#include "support/string.h"

namespace tessel {

// All variables are texts in one flat, case-sensitive namespace. A name of the form name[index]
// means an element of the array `name` in the object store; its index is expanded first, and an
// index of decimal digits only counts as a number, so that 1 and 01 are one element.
//
// References may nest in indices up to kDeepestReference levels; what lies deeper does not exist.
class VariableStore {
 public:
  static constexpr int kDeepestReference = 1024;

  explicit VariableStore(ObjectStore* arrays) : arrays_(arrays) {}

  // The text that a name stands for, to be read or changed in place; null when it is not defined.
  // Valid until the store is cleared.
  cvn::String* Find(cvn::StringView name);
  // The same, but defines the name as empty when it is free. Null only for an element of what is no
  // array.
  cvn::String* FindOrAdd(cvn::StringView name);

  void Clear() { values_.clear(); }

 private:
  cvn::Map<cvn::String, cvn::String> values_;
  ObjectStore* arrays_;
  int depth_ = 0;  // of array indices that are being expanded

  cvn::String ElementKey(cvn::StringView index);
};

// The stores of the process.
ObjectStore& ProcessObjects();
VariableStore& ProcessVariables();

void SetVariable(cvn::StringView name, cvn::String value, VariableStore* variables);

// Replaces each %name% in `text`: by the variable's value, else by a random number from 0 to 49999
// (%random%), else by the environment's value, in its long form when it is the path of something
// that exists. An unknown reference stays as it is, and %% gives one percent sign. A text that is
// one single reference shares the variable's memory.
cvn::String ExpandVariables(const cvn::String& text, VariableStore* variables);

// Shows `stands` the name of each reference that the expansion of `text` looks up, in their order.
// It tells whether the name stands for something: the percent sign behind one that doesn't may
// begin the next reference. The names are views into `text`, with the sign before and behind them.
void VisitReferences(cvn::StringView text, const std::function<bool(cvn::StringView name)>& stands);

}  // namespace tessel
