// Commands that act on the running product, through the libraries in its folders. Their failures
// have words of their own, and no codes.
#include "commands/common/families.h"
#include "commands/system/exported_object.h"
#include "engine/command_declaration.h"
#include "engine/variable_store.h"
#include "files/path_text.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "platform/rehearsal.h"
#include "platform/stop_request.h"
#include "support/format.h"
#include "trace/trace.h"

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

namespace tessel {
namespace {

namespace rehearsal = platform::rehearsal;
using platform::Code;
using platform::kSuccess;

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
struct FunctionRunlevel : FunctionRetError {
  using Operation = std::uint32_t (IRunlevelBroker::*)(const char16_t* name,
                                                       std::int32_t waitSeconds);

  // `command` and `verb` are words of the trace.
  void CallBroker(cvn::StringView command, cvn::StringView verb, Operation operation);

  cvn::String component;
  std::int32_t waittime;
};

// In a rehearsal nothing of the product is loaded: a world that answers 126 has no such library.
std::uint32_t RehearseCall(cvn::StringView library, cvn::StringView function, bool* isBound) {
  const Code code =
      rehearsal::Answer(rehearsal::Action::CallLibrary, cvn::Format(u"%s, %s", library, function));
  *isBound = code != platform::kModNotFound;
  return code;
}

void FunctionRunlevel::CallBroker(cvn::StringView command, cvn::StringView verb,
                                  Operation operation) {
  constexpr cvn::StringView kLibrary = u"runlevelbroker.dll";
  const cvn::String expanded = ExpandVariables(component, variables);
  TraceLine(u"%s function called for '%s', with wait time set to %ds", command, expanded, waittime);
  ExportedObject<IRunlevelBroker> broker;
  std::uint32_t status = kSuccess;
  bool isBound = true;
  if (rehearsal::IsOn()) {
    status = RehearseCall(kLibrary, cvn::Format(u"%s '%s'", verb, expanded), &isBound);
  } else {
    isBound = broker.Bind(kLibrary, u"RunlevelBroker") == kSuccess;
    if (isBound) {
      status = (broker.Get()->*operation)(expanded.CStr(), waittime);
    }
  }
  if (!isBound) {
    TraceLine(u"[%s] Initialization failed", command);
    hasError = true;
    error = u"InitFailed";
  } else {
    TraceLine(u"[%s] %s returned %d.", command, verb, static_cast<std::int32_t>(status));
    if (status != kSuccess) {
      hasError = true;
      error = u"OperationFailed";
    }
  }
  broker.Reset();
  TraceEnd(command);
}

template <Use kUse>
constexpr AttributeDescription kRunlevelAttributes[] = {
    Naming(Expanded<&FunctionRunlevel::component>(u"name", Presence::NonEmpty,
                                                  u"The component's name."),
           Subject::Component, kUse),
    Number<&FunctionRunlevel::waittime>(
        u"waittime", Presence::Optional,
        u"A time in seconds, handed to the product; what it means is the product's.", u"0"),
};

constexpr FailureDescription kRunlevelFailures[] = {
    {u"InitFailed", u"`runlevelbroker.dll` isn't beside the program, or can't be used"},
    {u"OperationFailed", u"the product refused; its status is in the trace only"},
};

struct FunctionAmStart : FunctionRunlevel {
  void Execute() override { CallBroker(u"amStart", u"Start", &IRunlevelBroker::Start); }
};

constexpr CommandDescription kAmStart = {
    .purpose = u"Starts a component of the product.",
    .attributes = kRunlevelAttributes<Use::Start>,
    .failures = kRunlevelFailures,
    .notes = u"It takes as long as the product does.",
};

struct FunctionAmStop : FunctionRunlevel {
  void Execute() override { CallBroker(u"amStop", u"Stop", &IRunlevelBroker::Stop); }
};

constexpr CommandDescription kAmStop = {
    .purpose = u"Stops a component of the product.",
    .attributes = kRunlevelAttributes<Use::Stop>,
    .failures = kRunlevelFailures,
    .notes = u"It takes as long as the product does.",
};

constexpr std::uint32_t kNotConnected = 2250;  // ERROR_NOT_CONNECTED

// Applies the policies, and tries again while the management service can't be reached. False when
// it never could.
bool ApplyPolicies(cvn::IIntegration* integration) {
  constexpr int kAttempts = 30;
  constexpr std::uint32_t kPauseMilliseconds = 1000;
  for (int attempt = 0; attempt < kAttempts && !platform::stop::IsAsked(); ++attempt) {
    if (integration->ReApplyPolicies(1) != kNotConnected) {
      return true;
    }
    platform::clock::Sleep(kPauseMilliseconds);
    TraceLine(u"[ReApplyHqPolicy] ERROR_NOT_CONNECTED");
  }
  return false;
}

constexpr cvn::StringView kIntegrationLibrary = u"cvn.integration.comm.dll";

// The library lies in the parent of the program's folder.
cvn::String IntegrationLibrary() {
  cvn::String folder = platform::paths::ModuleFileName();
  platform::paths::RemoveFileSpec(&folder);
  return JoinPath(JoinPath(folder, u".."), kIntegrationLibrary);
}

// Applies the management platform's policies again; waits for the management service up to half a
// minute.
struct FunctionApplyHqPolicies : FunctionRetError {
  void Execute() override;
  void Fail(cvn::StringView word);
};

void FunctionApplyHqPolicies::Execute() {
  TraceLine(u"ReApplyHqPolicy function start");
  ExportedPlugin<cvn::IIntegration, cvn::IIntegration> plugin;
  bool isBound = true;
  bool isApplied = true;
  if (rehearsal::IsOn()) {
    isApplied = RehearseCall(kIntegrationLibrary, u"ReApplyPolicies", &isBound) == kSuccess;
  } else {
    isBound = plugin.Open(IntegrationLibrary(), u"cvn.Integration");
    isApplied = isBound && ApplyPolicies(plugin.Get());
  }
  if (!isBound) {
    TraceLine(u"[ReApplyHqPolicy] IntegrationPlg init failed");
    Fail(u"IntegrationPlg init failed");
  } else if (!isApplied) {
    Fail(u"Timeout");
  }
  plugin.Close();
  TraceEnd(u"ReApplyHqPolicy");
}

void FunctionApplyHqPolicies::Fail(cvn::StringView word) {
  hasError = true;
  error = word;
}

constexpr FailureDescription kApplyHqPoliciesFailures[] = {
    {u"IntegrationPlg init failed",
     u"`cvn.integration.comm.dll` isn't in the parent of the program's folder, or can't be used"},
    {u"Timeout", u"the management service couldn't be reached in 30 attempts, a second apart"},
};

constexpr CommandDescription kApplyHqPolicies = {
    .purpose = u"Applies the management platform's policies again.",
    .attributes = {},
    .failures = kApplyHqPoliciesFailures,
    .notes =
        u"That the policies couldn't be applied for another reason is a success. In the trace "
        u"the command goes by `ReApplyHqPolicy`.",
    .fixedSubject = {Subject::Component, Use::Change, u"the policies of the management platform"},
};

constexpr CommandRecord kCommands[] = {
    Command<FunctionAmStart>(u"amStart", kAmStart),
    Command<FunctionAmStop>(u"amStop", kAmStop),
    Command<FunctionApplyHqPolicies>(u"applyHqPolicies", kApplyHqPolicies),
};

}  // namespace

constinit const CommandFamily kProductFamily = {
    .title = u"The product",
    .introduction =
        uR"md(
These reach the running product through its own libraries: `runlevelbroker.dll` beside the program, and
`cvn.integration.comm.dll` in the parent of the program's folder. They have no codes, so match the words. On Linux the
libraries are shared objects under those same names; without them, a rehearsal goes the way of a missing product.
)md",
    .commands = kCommands,
};

}  // namespace tessel
