// Commands that steer a run or talk about it.
#pragma once

#include "engine/function_base.h"

namespace tessel {

// Carries a label, or is a handler's only command.
class FunctionNothing : public FunctionBase {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;
};

class FunctionExit : public FunctionRetExit {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;
};

// Writes a text to the trace, and to a standard stream when `std` is "err" or "out".
class FunctionTrace : public FunctionBase {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String value_;
  cvn::String std_;
};

// Retired: it changes nothing, but scripts still have it.
class FunctionTraceSetFile : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;
};

class FunctionSleep : public FunctionBase {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  std::int32_t milliseconds_ = 0;
};

// The run loop jumps by itself; the command only holds the target.
class FunctionGoTo : public FunctionBase {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override {}
};

// Sets the label for failures that no handler takes, from this point of the run on.
class FunctionOnErrorGoTo : public FunctionBase {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String target_;
};

}  // namespace tessel
