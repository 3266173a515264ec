// Commands that act on the running product, through the libraries in its folders.
//
// Their failures have words of their own, and no codes.
#pragma once

#include <cstdint>

#include "commands/system/exported_object.h"
#include "commands/system/name_and_wait.h"
#include "engine/function_base.h"

namespace tessel {

// Starts and stops the product's components. Both operations block until they are done, and give 0
// for success.
class IRunlevelBroker {
 public:
  static constexpr InterfaceId kId{0x88b405b9b34dd318, 0x59d1d5b1208d4b3f};

  virtual void* QueryInterface(const InterfaceId* id) = 0;
  virtual std::uint32_t Start(const char16_t* name, std::int32_t waitSeconds) = 0;
  virtual std::uint32_t Stop(const char16_t* name, std::int32_t waitSeconds) = 0;

 protected:
  ~IRunlevelBroker() = default;
};

// What amStart and amStop share.
class FunctionRunlevel : public FunctionNameAndWait {
 protected:
  using Operation = std::uint32_t (IRunlevelBroker::*)(const char16_t* name,
                                                       std::int32_t waitSeconds);

  // `command` and `verb` are words of the trace.
  void CallBroker(cvn::StringView command, cvn::StringView verb, Operation operation);
};

// Starts a component; it may take `waittime` seconds.
class FunctionAmStart : public FunctionRunlevel {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

class FunctionAmStop : public FunctionRunlevel {
 public:
  static const CommandDescription kDescription;

  void Execute() override;
};

// Applies the management platform's policies again; waits for the management service up to half a
// minute.
class FunctionApplyHqPolicies : public FunctionRetError {
 public:
  static const CommandDescription kDescription;

  bool Parse() override { return true; }
  void Execute() override;

 private:
  void Fail(cvn::StringView word);
};

}  // namespace tessel

namespace cvn {

// The product's side of the management platform.
class IIntegration {
 public:
  static constexpr tessel::InterfaceId kId{0x77f8c8f226eb432c, 0xed16e165a8719c92};

  // Not called here.
  virtual void Reserved1() = 0;
  virtual void Reserved2() = 0;
  virtual void Reserved3() = 0;
  // 2250 when the management service can't be reached as yet.
  virtual std::uint32_t ReApplyPolicies(std::uint8_t flag) = 0;

 protected:
  ~IIntegration() = default;
};

}  // namespace cvn
