// Commands that manage services through the service manager.
#pragma once

#include "commands/system/name_and_wait.h"
#include "engine/function_base.h"
#include "support/string.h"

namespace tessel {

// What tells a start from a stop.
struct ServiceChange;

// What serviceStart and serviceStop share: bring a service to a state and, with a waiting time in
// milliseconds, see it arrive there. The time counts pauses and not the clock.
class FunctionServiceChange : public FunctionNameAndWait {
 protected:
  void Change(const ServiceChange& change);
};

class FunctionServiceStart : public FunctionServiceChange {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionServiceStop : public FunctionServiceChange {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

// Deletes a service without stopping it; one that runs stays until it stops.
class FunctionServiceDelete : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String name_;
};

// Makes a service that runs as LocalSystem, and doesn't start it.
class FunctionServiceCreate : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override;
  void Execute() override;

 private:
  cvn::String name_;
  cvn::String displayName_;
  std::int32_t serviceType_ = 0;
  std::int32_t startType_ = 0;
  std::int32_t errorControl_ = 0;
  cvn::String path_;
  cvn::String group_;
  cvn::String dependencies_;  // each name ended by a zero, one more behind the last
};

// A question about a service. Whatever fails is a no.
class FunctionServiceQuestion : public FunctionRetBool {
 public:
  bool Parse() override;

 protected:
  cvn::String name_;
};

// A service that may not be opened is installed too.
class FunctionServiceInstalled : public FunctionServiceQuestion {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionServiceRunning : public FunctionServiceQuestion {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

}  // namespace tessel
