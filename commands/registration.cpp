// The families of commands, registered before the program's entry runs, in the order of the
// language's reference.
#include "commands/common/families.h"

namespace tessel {
namespace {

bool RegisterFamilies() {
  RegisterFamily(kFlowFamily);
  RegisterFamily(kTextFamily);
  RegisterFamily(kFilesFamily);
  RegisterFamily(kFoldersFamily);
  RegisterFamily(kRegistryFamily);
  RegisterFamily(kServicesFamily);
  RegisterFamily(kProgramsFamily);
  RegisterFamily(kProductFamily);
  RegisterFamily(kIniFamily);
  RegisterFamily(kXmlFamily);
  RegisterFamily(kJsonFamily);
  return true;
}

[[maybe_unused]] const bool kRegistered = RegisterFamilies();

}  // namespace
}  // namespace tessel
