// Whoever watches a script's run from within. A run of the product has nobody.
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/string.h"

namespace tessel {

// Where an element stands in its author's script, both counted from 1 as TinyXML counts them; zeros
// when nobody watches. The commands that a loop is rewritten to stand where the loop does.
struct ScriptPlace {
  std::uint32_t line = 0;
  std::uint32_t column : 31 = 0;
  // One of a loop's commands but the first: the loop was entered before.
  std::uint32_t isWithinLoop : 1 = 0;
};

class FunctionBase;

class RunObserver {
 public:
  // The text of the script, before anything is done with it.
  virtual void Parsing(cvn::StringView text) = 0;
  // A command is about to be executed.
  virtual void Entering(const FunctionBase& command) = 0;
  // It has failed, with the error text that handlers see; `isHandled` when one of its own, or an
  // onErrorGoTo, takes that.
  virtual void Failed(const FunctionBase& command, const cvn::String& error, bool isHandled) = 0;

 protected:
  ~RunObserver() = default;
};

}  // namespace tessel
