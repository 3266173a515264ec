// Commands that manage services through the service manager.
#include <algorithm>
#include <string>

#include "commands/common/families.h"
#include "engine/command_declaration.h"
#include "engine/variable_store.h"
#include "platform/clock.h"
#include "platform/rehearsal.h"
#include "platform/services.h"
#include "platform/stop_request.h"
#include "trace/trace.h"

namespace tessel {
namespace {

namespace rehearsal = platform::rehearsal;
namespace services = platform::services;
using platform::Code;
using platform::kSuccess;
using services::Handle;

template <typename Class, Use kUse>
constexpr AttributeDescription kService =
    Naming(Expanded<&Class::service>(u"name", Presence::NonEmpty,
                                     u"The service's name, not the one that is shown."),
           Subject::Service, kUse);

constexpr FailureDescription kDenied = {u"5", u"access is denied"};
constexpr FailureDescription kNoName = {u"123", u"no service can have that name"};
constexpr FailureDescription kNoService = {u"1060", u"there is no such service"};
constexpr FailureDescription kOther = {u"", u"any other code of the system"};

// Writes the line of a failure, and gives its code.
Code Failed(Code code, cvn::StringView word, cvn::StringView what) {
  TraceLine(u"%s %s", word, what);
  return code;
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

// A question about a service. Whatever fails is a no.
struct FunctionServiceQuestion : FunctionRetBool {
  cvn::String service;
};

constexpr AttributeDescription kQuestionAttributes[] = {
    kService<FunctionServiceQuestion, Use::Read>};

bool IsInstalled(cvn::StringView name) {
  Handle manager;
  Handle service;
  Code code = kSuccess;
  return OpenToAsk(name, u"serviceInstalled", &manager, &service, &code) &&
         (code == kSuccess || code == platform::kAccessDenied);
}

// A service that may not be opened is installed too.
struct FunctionServiceInstalled : FunctionServiceQuestion {
  void Execute() override {
    result = IsInstalled(ExpandVariables(service, variables));
    TraceEnd(u"serviceInstalled");
  }
};

constexpr CommandDescription kServiceInstalled = {
    .purpose = u"Tells whether there is a service of that name.",
    .attributes = kQuestionAttributes,
    .notes =
        u"One that may not be opened counts as there. Whatever else fails makes the answer a "
        u"no.",
};

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

struct FunctionServiceRunning : FunctionServiceQuestion {
  void Execute() override {
    result = IsRunning(ExpandVariables(service, variables));
    TraceEnd(u"serviceRunning");
  }
};

constexpr CommandDescription kServiceRunning = {
    .purpose = u"Tells whether a service runs.",
    .attributes = kQuestionAttributes,
    .notes =
        u"One that is starting or stopping doesn't run. Whatever fails makes the answer a no, "
        u"and so does a service that may not be opened.",
};

// What tells a start from a stop.
struct ServiceChange {
  cvn::StringView word;
  cvn::StringView verb;
  cvn::StringView done;
  std::uint32_t right;
  rehearsal::Action action;
  std::uint32_t target;
  // Asks the service for the change, and may learn of its state.
  Code (*ask)(const Handle& service, std::uint32_t* state);
  // Whether time that has run out exactly is a failure too, and not only time that is overdrawn.
  bool failsAtZero;
};

constexpr Code kTimedOut = 258;
constexpr std::int32_t kPollPause = 100;

constexpr ServiceChange kStart = {
    u"serviceStart",
    u"start",
    u"started",
    services::kStart,
    rehearsal::Action::StartService,
    services::kStateRunning,
    [](const Handle& service, std::uint32_t* /*state*/) { return services::Start(service); },
    true,
};
constexpr ServiceChange kStop = {
    u"serviceStop",
    u"stop",
    u"stopped",
    services::kStop,
    rehearsal::Action::StopService,
    services::kStateStopped,
    services::Stop,
    false,
};

Code WaitForState(const Handle& service, const ServiceChange& change, std::int32_t waittime,
                  std::uint32_t state) {
  std::int32_t remaining = waittime;
  while (state != change.target && remaining > 0) {
    if (platform::stop::IsAsked()) {
      return platform::kCancelled;
    }
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
    // Where the service runs when the patch does, the change would be asked for.
    code = rehearsal::IsOn() ? rehearsal::Answer(change.action, name) : kSuccess;
    if (code != kSuccess) {
      TraceLine(u"%s cannot %s service", change.word, change.verb);
      return code;
    }
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

// Brings a service to a state and, with a waiting time in milliseconds, sees it arrive there. The
// time counts pauses and not the clock.
struct FunctionServiceChange : FunctionRetError {
  void Change(const ServiceChange& change) {
    const cvn::String expanded = ExpandVariables(service, variables);
    TraceLine(u"%s function called for '%s', after wait for %d ms", change.word, expanded,
              waittime);
    const Code code = ChangeState(expanded, change, waittime);
    ReportCode(code);
    if (code == kTimedOut) {
      error = u"timeout";
    }
    TraceEnd(change.word);
  }

  cvn::String service;
  std::int32_t waittime;
};

template <Use kUse>
constexpr AttributeDescription kChangeAttributes[] = {
    kService<FunctionServiceChange, kUse>,
    Number<&FunctionServiceChange::waittime>(
        u"waittime", Presence::Optional,
        u"How long to wait for the change, in milliseconds, counted in pauses of 100; `0` for not "
        u"at all.",
        u"0"),
};

struct FunctionServiceStart : FunctionServiceChange {
  void Execute() override { Change(kStart); }
};

constexpr FailureDescription kServiceStartFailures[] = {
    {u"timeout", u"the service doesn't run after `waittime`"},
    {u"2", u"the service's program is missing"},
    kDenied,
    {u"50", u"the system isn't running, so no service can be started"},
    kNoName,
    {u"1053", u"the service's program didn't answer in time"},
    {u"1058", u"the service is disabled"},
    kNoService,
    {u"1068", u"a service that it depends on couldn't be started"},
    {u"1069", u"the service's account can't log on"},
    {u"1072", u"the service waits for its deletion"},
    {u"1075", u"a service that it depends on is missing"},
    kOther,
};

constexpr CommandDescription kServiceStart = {
    .purpose = u"Starts a service. One that runs already is a success.",
    .attributes = kChangeAttributes<Use::Start>,
    .failures = kServiceStartFailures,
    .notes =
        u"Without a `waittime` the service is asked to start, and nobody sees whether it "
        u"does. A `waittime` below 0 gives `timeout` at once.",
};

struct FunctionServiceStop : FunctionServiceChange {
  void Execute() override { Change(kStop); }
};

constexpr FailureDescription kServiceStopFailures[] = {
    {u"timeout", u"the service still runs after `waittime`"},
    kDenied,
    kNoName,
    {u"1051", u"a running service depends on it"},
    {u"1052", u"the service can't be stopped"},
    kNoService,
    {u"1061", u"the service takes no orders now"},
    kOther,
};

constexpr CommandDescription kServiceStop = {
    .purpose = u"Stops a service. One that doesn't run is a success.",
    .attributes = kChangeAttributes<Use::Stop>,
    .failures = kServiceStopFailures,
    .notes =
        u"A `waittime` that is a multiple of 100 never gives `timeout`: a service that is "
        u"still stopping then counts as stopped. So give one like `30050`. A `waittime` below "
        u"0 gives `timeout` at once, unless the service has stopped by then.",
};

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

// The names as the service manager takes them: each ended by a zero, one more behind the last.
cvn::String DependencyList(cvn::StringView names) {
  std::u16string list(names);
  std::ranges::replace(list, u'|', u'\0');
  if (!list.empty()) {
    list.append(2, u'\0');
  }
  return cvn::String(list);
}

// Makes a service that runs as LocalSystem, and doesn't start it.
struct FunctionServiceCreate : FunctionRetError {
  void Execute() override;

  cvn::String service;
  cvn::String displayName;
  std::int32_t serviceType;
  std::int32_t startType;
  std::int32_t errorControl;
  cvn::String path;
  cvn::String group;
  cvn::String dependencies;
};

void FunctionServiceCreate::Execute() {
  services::Config config;
  config.name = ExpandVariables(service, variables);
  config.displayName = ExpandVariables(displayName.Empty() ? service : displayName, variables);
  config.serviceType = static_cast<std::uint32_t>(serviceType);
  config.startType = static_cast<std::uint32_t>(startType);
  config.errorControl = static_cast<std::uint32_t>(errorControl);
  config.binaryPath = ExpandVariables(path, variables);
  config.group = group;
  config.dependencies = DependencyList(dependencies);
  const cvn::StringView list = config.dependencies;
  TraceLine(
      u"serviceCreate function called for '%s'. Display name: '%s', serviceType: %d, startType: "
      u"%d, errorControl: %d, path: '%s', group: '%s', depends: '%s'",
      config.name, config.displayName, serviceType, startType, errorControl, config.binaryPath,
      group, list.substr(0, list.find(u'\0')));
  ReportCode(CreateService(config));
  TraceEnd(u"serviceCreate");
}

constexpr AttributeDescription kServiceCreateAttributes[] = {
    Naming(Expanded<&FunctionServiceCreate::service>(u"name", Presence::NonEmpty,
                                                     u"The service's name."),
           Subject::Service, Use::Create),
    Expanded<&FunctionServiceCreate::displayName>(
        u"displayName", Presence::Optional,
        u"The name that is shown. Missing or empty, it is that of `name`."),
    Number<&FunctionServiceCreate::serviceType>(
        u"serviceType", Presence::NonEmpty,
        u"`16` for a program of its own, `32` for one that it shares with other services, `1` for "
        u"a driver, `2` for that of a file system."),
    Number<&FunctionServiceCreate::startType>(
        u"startType", Presence::NonEmpty,
        u"`2` to start with the system, `3` on demand, `4` never; for drivers also `0` and `1`, "
        u"while the system starts."),
    Number<&FunctionServiceCreate::errorControl>(
        u"errorControl", Presence::NonEmpty,
        u"What the system does when the start fails: `0` nothing, `1` it notes it, `2` and `3` it "
        u"starts anew as it last could."),
    Naming(Expanded<&FunctionServiceCreate::path>(u"path", Presence::Optional,
                                                  u"The service's program, with its arguments. "
                                                  u"Without one the system refuses the service."),
           Subject::Program, Use::Register),
    Text<&FunctionServiceCreate::group>(
        u"group", Presence::Optional,
        u"The group of services that it starts with. Empty for none."),
    Text<&FunctionServiceCreate::dependencies>(
        u"dependencies", Presence::Optional,
        u"What has to run before it, with bars between the names. A group's name has a `+` in "
        u"front: `RpcSs|+NetworkProvider`."),
};

constexpr FailureDescription kServiceCreateFailures[] = {
    kDenied,
    {u"87", u"the three numbers are none, or don't go together"},
    kNoName,
    {u"487", u"`path` is empty"},
    {u"1059", u"the service would depend on itself"},
    {u"1072", u"a service of that name waits for its deletion"},
    {u"1073", u"there is a service of that name"},
    {u"1078",
     u"`displayName` is the name of another service or, before Windows 10 1709, its display name"},
    kOther,
};

constexpr CommandDescription kServiceCreate = {
    .purpose = u"Makes a service that runs as LocalSystem, and doesn't start it.",
    .attributes = kServiceCreateAttributes,
    .failures = kServiceCreateFailures,
};

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

// Deletes a service without stopping it; one that runs stays until it stops.
struct FunctionServiceDelete : FunctionRetError {
  void Execute() override {
    const cvn::String expanded = ExpandVariables(service, variables);
    TraceLine(u"serviceDelete function called for '%s'", expanded);
    ReportCode(DeleteService(expanded));
    TraceEnd(u"serviceDelete");
  }

  cvn::String service;
};

constexpr AttributeDescription kServiceDeleteAttributes[] = {
    kService<FunctionServiceDelete, Use::Remove>};

constexpr FailureDescription kServiceDeleteFailures[] = {
    kDenied, kNoName, kNoService, {u"1072", u"the service waits for its deletion already"}, kOther,
};

constexpr CommandDescription kServiceDelete = {
    .purpose = u"Deletes a service, without stopping it.",
    .attributes = kServiceDeleteAttributes,
    .failures = kServiceDeleteFailures,
    .notes =
        u"One that runs goes when it has stopped; until then it waits for its deletion, and "
        u"its name stays taken.",
};

constexpr CommandRecord kCommands[] = {
    Command<FunctionServiceInstalled>(u"serviceInstalled", kServiceInstalled),
    Command<FunctionServiceRunning>(u"serviceRunning", kServiceRunning),
    Command<FunctionServiceStart>(u"serviceStart", kServiceStart),
    Command<FunctionServiceStop>(u"serviceStop", kServiceStop),
    Command<FunctionServiceCreate>(u"serviceCreate", kServiceCreate),
    Command<FunctionServiceDelete>(u"serviceDelete", kServiceDelete),
};

}  // namespace

constinit const CommandFamily kServicesFamily = {
    .title = u"Services",
    .introduction =
        uR"md(
On Linux services are keys of the machine's registry, kept as the service manager keeps them, and nothing runs:
`serviceRunning` is false, `serviceStop` finds every service stopped, and `serviceStart` fails with `1058` for a
disabled service, with `1075` when one that it needs is missing, otherwise with `50`. A patch that has to succeed there
too handles `50`. A deleted service is gone at once. A service that a patch makes by `regCreateKey` and `regWrite`
counts at once, on Windows after the next boot.
)md",
    .commands = kCommands,
    .keepsToRegistry = true,
};

}  // namespace tessel
