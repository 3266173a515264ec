#include "commands/system/services.h"

#include <algorithm>
#include <string>

#include "engine/variable_store.h"
#include "platform/clock.h"
#include "platform/services.h"
#include "support/numbers.h"
#include "trace/trace.h"

namespace tessel {

namespace services = platform::services;
using platform::Code;
using platform::kSuccess;
using services::Handle;

struct ServiceChange {
  cvn::StringView word;
  cvn::StringView verb;
  cvn::StringView done;
  std::uint32_t right;
  std::uint32_t target;
  // Asks the service for the change, and may learn of its state.
  Code (*ask)(const Handle& service, std::uint32_t* state);
  // Whether time that has run out exactly is a failure too, and not only time that is overdrawn.
  bool failsAtZero;
};

namespace {

constexpr Code kTimedOut = 258;
constexpr std::int32_t kPollPause = 100;

constexpr ServiceChange kStart = {
    u"serviceStart",
    u"start",
    u"started",
    services::kStart,
    services::kStateRunning,
    [](const Handle& service, std::uint32_t* /*state*/) { return services::Start(service); },
    true,
};
constexpr ServiceChange kStop = {
    u"serviceStop",          u"stop",        u"stopped", services::kStop,
    services::kStateStopped, services::Stop, false,
};

// Writes the line of a failure, and gives its code.
Code Failed(Code code, cvn::StringView word, cvn::StringView what) {
  TraceLine(u"%s %s", word, what);
  return code;
}

Code WaitForState(const Handle& service, const ServiceChange& change, std::int32_t waittime,
                  std::uint32_t state) {
  std::int32_t remaining = waittime;
  while (state != change.target && remaining > 0) {
    platform::clock::Sleep(kPollPause);
    remaining -= kPollPause;
    if (services::QueryState(service, &state) != kSuccess) {
      TraceLine(u"%s cannot query status2", change.word);
      return platform::LastError();
    }
  }
  const bool isLate = change.failsAtZero ? remaining <= 0 : remaining < 0;
  return isLate && state != change.target ? kTimedOut : kSuccess;
}

Code ChangeState(cvn::StringView name, const ServiceChange& change, std::int32_t waittime) {
  Handle manager;
  Handle service;
  std::uint32_t state = 0;
  Code code = services::OpenManager(services::kManagerEnumerateService, &manager);
  if (code != kSuccess) {
    return Failed(code, change.word, u"cannot open scm");
  }
  code = services::Open(manager, name, services::kQueryStatus | change.right, &service);
  if (code != kSuccess) {
    return Failed(code, change.word, u"cannot open service");
  }
  code = services::QueryState(service, &state);
  if (code != kSuccess) {
    return Failed(code, change.word, u"cannot query status");
  }
  if (state == change.target) {
    TraceLine(u"%s service already %s", change.word, change.done);
    return kSuccess;
  }
  code = change.ask(service, &state);
  if (code != kSuccess) {
    TraceLine(u"%s cannot %s service", change.word, change.verb);
    return code;
  }
  return waittime == 0 ? kSuccess : WaitForState(service, change, waittime, state);
}

Code DeleteService(cvn::StringView name) {
  constexpr cvn::StringView kWord = u"serviceDelete";
  Handle manager;
  Handle service;
  Code code = services::OpenManager(0, &manager);
  if (code != kSuccess) {
    return Failed(code, kWord, u"cannot open scm");
  }
  code = services::Open(manager, name, services::kDelete, &service);
  if (code != kSuccess) {
    return Failed(code, kWord, u"cannot open service");
  }
  code = services::Delete(service);
  return code == kSuccess ? kSuccess : Failed(code, kWord, u"failed");
}

Code CreateService(const services::Config& config) {
  constexpr cvn::StringView kWord = u"serviceCreate";
  Handle manager;
  Code code = services::OpenManager(services::kManagerCreateService, &manager);
  if (code != kSuccess) {
    return Failed(code, kWord, u"cannot open scm");
  }
  code = services::Create(manager, config);
  return code == kSuccess ? kSuccess : Failed(code, kWord, u"cannot create service");
}

// Opens a service to ask for its state; false after the trace line when there is no manager.
bool OpenToAsk(cvn::StringView name, cvn::StringView word, Handle* manager, Handle* service,
               Code* code) {
  if (services::OpenManager(services::kManagerEnumerateService, manager) != kSuccess) {
    TraceLine(u"%s cannot open scm", word);
    return false;
  }
  *code = services::Open(*manager, name, services::kQueryStatus, service);
  return true;
}

bool IsInstalled(cvn::StringView name) {
  Handle manager;
  Handle service;
  Code code = kSuccess;
  return OpenToAsk(name, u"serviceInstalled", &manager, &service, &code) &&
         (code == kSuccess || code == platform::kAccessDenied);
}

bool IsRunning(cvn::StringView name) {
  constexpr cvn::StringView kWord = u"serviceRunning";
  Handle manager;
  Handle service;
  Code code = kSuccess;
  std::uint32_t state = 0;
  if (!OpenToAsk(name, kWord, &manager, &service, &code) || code != kSuccess) {
    return false;
  }
  if (services::QueryState(service, &state) != kSuccess) {
    TraceLine(u"%s cannot query status", kWord);
    return false;
  }
  return state == services::kStateRunning;
}

}  // namespace

void FunctionServiceChange::Change(const ServiceChange& change) {
  const cvn::String service = ExpandVariables(name_, variables);
  TraceLine(u"%s function called for '%s', after wait for %d ms", change.word, service, waittime_);
  const Code code = ChangeState(service, change, waittime_);
  ReportCode(code);
  if (code == kTimedOut) {
    error = u"timeout";
  }
  TraceEnd(change.word);
}

void FunctionServiceStart::Execute() { Change(kStart); }

void FunctionServiceStop::Execute() { Change(kStop); }

bool FunctionServiceDelete::Parse() { return ReadNonEmpty(u"name", &name_); }

void FunctionServiceDelete::Execute() {
  const cvn::String service = ExpandVariables(name_, variables);
  TraceLine(u"serviceDelete function called for '%s'", service);
  ReportCode(DeleteService(service));
  TraceEnd(u"serviceDelete");
}

bool FunctionServiceCreate::Parse() {
  const auto readNumber = [this](cvn::StringView attribute, std::int32_t* number) {
    cvn::String text;
    const bool isThere = ReadNonEmpty(attribute, &text);
    *number = cvn::ReadInt32(text);
    return isThere;
  };
  if (!ReadNonEmpty(u"name", &name_)) {
    return false;
  }
  if (!ReadNonEmpty(u"displayName", &displayName_)) {
    displayName_ = name_;
  }
  if (!readNumber(u"serviceType", &serviceType_) || !readNumber(u"startType", &startType_) ||
      !readNumber(u"errorControl", &errorControl_)) {
    return false;
  }
  ReadAttribute(u"path", &path_);
  ReadAttribute(u"group", &group_);
  if (ReadNonEmpty(u"dependencies", &dependencies_)) {
    std::u16string list(dependencies_.AsView());
    std::replace(list.begin(), list.end(), u'|', u'\0');
    list.append(2, u'\0');
    dependencies_.Assign(list);
  }
  return true;
}

void FunctionServiceCreate::Execute() {
  services::Config config;
  config.name = ExpandVariables(name_, variables);
  config.displayName = ExpandVariables(displayName_, variables);
  config.serviceType = static_cast<std::uint32_t>(serviceType_);
  config.startType = static_cast<std::uint32_t>(startType_);
  config.errorControl = static_cast<std::uint32_t>(errorControl_);
  config.binaryPath = ExpandVariables(path_, variables);
  config.group = group_;
  config.dependencies = dependencies_;
  const cvn::StringView list = dependencies_;
  TraceLine(
      u"serviceCreate function called for '%s'. Display name: '%s', serviceType: %d, startType: "
      u"%d, errorControl: %d, path: '%s', group: '%s', depends: '%s'",
      config.name, config.displayName, serviceType_, startType_, errorControl_, config.binaryPath,
      group_, list.substr(0, list.find(u'\0')));
  ReportCode(CreateService(config));
  TraceEnd(u"serviceCreate");
}

bool FunctionServiceQuestion::Parse() { return ReadNonEmpty(u"name", &name_); }

void FunctionServiceInstalled::Execute() {
  result = IsInstalled(ExpandVariables(name_, variables));
  TraceEnd(u"serviceInstalled");
}

void FunctionServiceRunning::Execute() {
  result = IsRunning(ExpandVariables(name_, variables));
  TraceEnd(u"serviceRunning");
}

}  // namespace tessel
