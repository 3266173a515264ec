// The command that files and folders share: fileMove and dirMove.
#pragma once

#include "engine/command_description.h"
#include "engine/function_base.h"
#include "platform/error.h"
#include "support/string.h"

namespace tessel {

struct FunctionMove : FunctionRetError {
  void Execute() override;
  platform::Code Move(cvn::StringView from, cvn::StringView to) const;

  cvn::String src;
  cvn::String dest;
  bool failIfExists;
  bool afterReboot;
};

extern const CommandDescription kMove;

}  // namespace tessel
