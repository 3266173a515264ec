#include "commands/system/services.h"
#include "engine/command_description.h"

namespace tessel {
namespace {

constexpr AttributeDescription kServiceName = {u"name", AttributeForm::Expanded, Presence::NonEmpty,
                                               u"The service's name, not the one that is shown."};

constexpr AttributeDescription kChangeAttributes[] = {
    kServiceName,
    {u"waittime", AttributeForm::Number, Presence::Optional,
     u"How long to wait for the change, in milliseconds, counted in pauses of 100; `0` for not at "
     u"all.",
     u"0"},
};

constexpr AttributeDescription kNameAttributes[] = {kServiceName};

constexpr FailureDescription kDenied = {u"5", u"access is denied"};
constexpr FailureDescription kNoName = {u"123", u"no service can have that name"};
constexpr FailureDescription kNoService = {u"1060", u"there is no such service"};
constexpr FailureDescription kOther = {u"", u"any other code of the system"};

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

constexpr FailureDescription kServiceDeleteFailures[] = {
    kDenied, kNoName, kNoService, {u"1072", u"the service waits for its deletion already"}, kOther,
};

constexpr AttributeDescription kServiceCreateAttributes[] = {
    {u"name", AttributeForm::Expanded, Presence::NonEmpty, u"The service's name."},
    {u"displayName", AttributeForm::Expanded, Presence::Optional,
     u"The name that is shown. Missing or empty, it is that of `name`."},
    {u"serviceType", AttributeForm::Number, Presence::NonEmpty,
     u"`16` for a program of its own, `32` for one that it shares with other services, `1` for a "
     u"driver, `2` for that of a file system."},
    {u"startType", AttributeForm::Number, Presence::NonEmpty,
     u"`2` to start with the system, `3` on demand, `4` never; for drivers also `0` and `1`, while "
     u"the system starts."},
    {u"errorControl", AttributeForm::Number, Presence::NonEmpty,
     u"What the system does when the start fails: `0` nothing, `1` it notes it, `2` and `3` it "
     u"starts anew as it last could."},
    {u"path", AttributeForm::Expanded, Presence::Optional,
     u"The service's program, with its arguments. Without one the system refuses the service."},
    {u"group", AttributeForm::Text, Presence::Optional,
     u"The group of services that it starts with. Empty for none."},
    {u"dependencies", AttributeForm::Text, Presence::Optional,
     u"What has to run before it, with bars between the names. A group's name has a `+` in front: "
     u"`RpcSs|+NetworkProvider`."},
};

constexpr FailureDescription kServiceCreateFailures[] = {
    kDenied,
    {u"87", u"the three numbers are none, or don't go together"},
    kNoName,
    {u"487", u"`path` is empty"},
    {u"1059", u"the service would depend on itself"},
    {u"1072", u"a service of that name waits for its deletion"},
    {u"1073", u"there is a service of that name"},
    {u"1078", u"`displayName` is that of another service"},
    kOther,
};

}  // namespace

constinit const CommandDescription FunctionServiceStart::kDescription = {
    .purpose = u"Starts a service. One that runs already is a success.",
    .attributes = kChangeAttributes,
    .failures = kServiceStartFailures,
    .notes =
        u"Without a `waittime` the service is asked to start, and nobody sees whether it "
        u"does. A `waittime` below 0 gives `timeout` at once.",
};

constinit const CommandDescription FunctionServiceStop::kDescription = {
    .purpose = u"Stops a service. One that doesn't run is a success.",
    .attributes = kChangeAttributes,
    .failures = kServiceStopFailures,
    .notes =
        u"A `waittime` that is a multiple of 100 never gives `timeout`: a service that is "
        u"still stopping then counts as stopped. So give one like `30050`. A `waittime` below "
        u"0 gives `timeout` at once, unless the service has stopped by then.",
};

constinit const CommandDescription FunctionServiceDelete::kDescription = {
    .purpose = u"Deletes a service, without stopping it.",
    .attributes = kNameAttributes,
    .failures = kServiceDeleteFailures,
    .notes =
        u"One that runs goes when it has stopped; until then it waits for its deletion, and "
        u"its name stays taken.",
};

constinit const CommandDescription FunctionServiceCreate::kDescription = {
    .purpose = u"Makes a service that runs as LocalSystem, and doesn't start it.",
    .attributes = kServiceCreateAttributes,
    .failures = kServiceCreateFailures,
};

constinit const CommandDescription FunctionServiceInstalled::kDescription = {
    .purpose = u"Tells whether there is a service of that name.",
    .attributes = kNameAttributes,
    .notes =
        u"One that may not be opened counts as there. Whatever else fails makes the answer a "
        u"no.",
};

constinit const CommandDescription FunctionServiceRunning::kDescription = {
    .purpose = u"Tells whether a service runs.",
    .attributes = kNameAttributes,
    .notes =
        u"One that is starting or stopping doesn't run. Whatever fails makes the answer a no, "
        u"and so does a service that may not be opened.",
};

}  // namespace tessel
