// What the commands that start or stop something by its name have in common.
#pragma once

#include <cstdint>

#include "engine/function_base.h"
#include "support/string.h"

namespace tessel {

class FunctionNameAndWait : public FunctionRetError {
 public:
  bool Parse() override {
    const bool isNamed = ReadNonEmpty(u"name", &name_);
    ReadNumber(u"waittime", &waittime_);
    return isNamed;
  }

 protected:
  cvn::String name_;           // raw
  std::int32_t waittime_ = 0;  // in the command's own unit
};

}  // namespace tessel
