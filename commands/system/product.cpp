#include "commands/system/product.h"

#include "engine/variable_store.h"
#include "files/path_text.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "trace/trace.h"

namespace tessel {
namespace {

using platform::kSuccess;

constexpr std::uint32_t kNotConnected = 2250;  // ERROR_NOT_CONNECTED

// Applies the policies, and tries again while the management service can't be reached. False when
// it never could.
bool ApplyPolicies(cvn::IIntegration* integration) {
  constexpr int kAttempts = 30;
  constexpr std::uint32_t kPauseMilliseconds = 1000;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (integration->ReApplyPolicies(1) != kNotConnected) {
      return true;
    }
    platform::clock::Sleep(kPauseMilliseconds);
    TraceLine(u"[ReApplyHqPolicy] ERROR_NOT_CONNECTED");
  }
  return false;
}

// The library lies in the parent of the program's folder.
cvn::String IntegrationLibrary() {
  cvn::String folder = platform::paths::ModuleFileName();
  platform::paths::RemoveFileSpec(&folder);
  return JoinPath(folder, u"..\\cvn.integration.comm.dll");
}

}  // namespace

void FunctionRunlevel::CallBroker(cvn::StringView command, cvn::StringView verb,
                                  Operation operation) {
  const cvn::String component = ExpandVariables(name_, variables);
  TraceLine(u"%s function called for '%s', with wait time set to %ds", command, component,
            waittime_);
  ExportedObject<IRunlevelBroker> broker;
  if (broker.Bind(u"runlevelbroker.dll", u"RunlevelBroker") != kSuccess) {
    TraceLine(u"[%s] Initialization failed", command);
    hasError = true;
    error = u"InitFailed";
  } else {
    const std::uint32_t status = (broker.Get()->*operation)(component.CStr(), waittime_);
    TraceLine(u"[%s] %s returned %d.", command, verb, static_cast<std::int32_t>(status));
    if (status != kSuccess) {
      hasError = true;
      error = u"OperationFailed";
    }
  }
  broker.Reset();
  TraceEnd(command);
}

void FunctionAmStart::Execute() { CallBroker(u"amStart", u"Start", &IRunlevelBroker::Start); }

void FunctionAmStop::Execute() { CallBroker(u"amStop", u"Stop", &IRunlevelBroker::Stop); }

void FunctionApplyHqPolicies::Execute() {
  TraceLine(u"ReApplyHqPolicy function start");
  ExportedPlugin<cvn::IIntegration, cvn::IIntegration> plugin;
  if (!plugin.Open(IntegrationLibrary(), u"cvn.Integration")) {
    TraceLine(u"[ReApplyHqPolicy] IntegrationPlg init failed");
    Fail(u"IntegrationPlg init failed");
  } else if (!ApplyPolicies(plugin.Get())) {
    Fail(u"Timeout");
  }
  plugin.Close();
  TraceEnd(u"ReApplyHqPolicy");
}

void FunctionApplyHqPolicies::Fail(cvn::StringView word) {
  hasError = true;
  error = word;
}

}  // namespace tessel
