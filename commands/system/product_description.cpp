#include "commands/system/product.h"
#include "engine/command_description.h"

namespace tessel {
namespace {

constexpr AttributeDescription kRunlevelAttributes[] = {
    {u"name", AttributeForm::Expanded, Presence::NonEmpty, u"The component's name."},
    {u"waittime", AttributeForm::Number, Presence::Optional,
     u"A time in seconds, handed to the product; what it means is the product's.", u"0"},
};

constexpr FailureDescription kRunlevelFailures[] = {
    {u"InitFailed", u"`runlevelbroker.dll` isn't beside the program, or can't be used"},
    {u"OperationFailed", u"the product refused; its status is in the trace only"},
};

constexpr FailureDescription kApplyHqPoliciesFailures[] = {
    {u"IntegrationPlg init failed",
     u"`cvn.integration.comm.dll` isn't in the parent of the program's folder, or can't be used"},
    {u"Timeout", u"the management service couldn't be reached in 30 attempts, a second apart"},
};

}  // namespace

constinit const CommandDescription FunctionAmStart::kDescription = {
    .purpose = u"Starts a component of the product.",
    .attributes = kRunlevelAttributes,
    .failures = kRunlevelFailures,
    .notes = u"It takes as long as the product does.",
};

constinit const CommandDescription FunctionAmStop::kDescription = {
    .purpose = u"Stops a component of the product.",
    .attributes = kRunlevelAttributes,
    .failures = kRunlevelFailures,
    .notes = u"It takes as long as the product does.",
};

constinit const CommandDescription FunctionApplyHqPolicies::kDescription = {
    .purpose = u"Applies the management platform's policies again.",
    .attributes = {},
    .failures = kApplyHqPoliciesFailures,
    .notes =
        u"That the policies couldn't be applied for another reason is a success. In the trace "
        u"the command goes by `ReApplyHqPolicy`.",
};

}  // namespace tessel
