// Commands that start, wait for and end programs, change who the run is, and call into a library.
#pragma once

#include "engine/function_base.h"
#include "support/string.h"

namespace tessel {

// A command whose failure may be that a time ran out.
class FunctionWithTimeout : public FunctionRetError {
 protected:
  // As ReportCode, with a word for that failure.
  void ReportStatus(std::uint32_t status);
};

// Starts a program, and waits for its end for up to `waittime` milliseconds; not at all when that
// is 0, and without a limit when it is -1.
class FunctionProcessStart : public FunctionWithTimeout {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String path_;
  cvn::String args_;
  cvn::String wkdir_;
  std::int32_t waittime_ = 0;
};

// Waits for all processes of a name, or of a path, to end. They are waited for in batches as large
// as the platform takes, and each batch gets the full time.
class FunctionProcessWait : public FunctionWithTimeout {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String name_;
  std::int32_t waittime_ = 0;
};

// Ends all processes of a name, or of a path.
class FunctionProcessKill : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String name_;
};

// Lets the run go on as another user.
class FunctionProcessImpersonateUser : public FunctionWithTimeout {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String domain_;
  cvn::String username_;
  cvn::String password_;
};

// Ends that.
class FunctionProcessRevertToSelf : public FunctionWithTimeout {
 public:
  static const CommandDescription kDescription;

  bool Parse() override { return true; }
  void Execute() override;
};

// Calls a function of a library: std::int32_t (*)(std::int32_t, const char16_t*) in the platform's
// default calling convention, with 0 for success. The text is zero-ended and never null.
class FunctionProcessEntrypoint : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String path_;
  cvn::String entrypoint_;
  cvn::String dllTextArgument_;
  std::int32_t dllIntArgument_ = 0;
};

}  // namespace tessel
