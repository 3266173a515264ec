#include "commands/system/signatures.h"
#include "engine/command_description.h"

namespace tessel {
namespace {

constexpr AttributeDescription kAttributes[] = {
    {u"path", AttributeForm::Expanded, Presence::NonEmpty, u"The file to look at."},
};

}  // namespace

constinit const CommandDescription FunctionFileIsSigned::kDescription = {
    .purpose =
        u"Tells whether a file is signed: its content is as a valid signature says, one in "
        u"it or one of a catalog of the system.",
    .attributes = kAttributes,
    .notes =
        u"Whose signature it is doesn't count. A file that is missing, or can't be read, isn't "
        u"signed.",
};

}  // namespace tessel
