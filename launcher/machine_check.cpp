#include "launcher/machine_check.h"

#include "platform/machine.h"
#include "support/format.h"

namespace tessel {
namespace {

namespace machine = platform::machine;

MachineFault FaultOfFolder(const cvn::String& folder, cvn::StringView problem) {
  return {kMachineUnrecognized,
          cvn::Format(u"The machine '%s' is refused: %s. Mount the Windows volume there, or let "
                      u"TESSEL_MACHINE name the folder where it is.",
                      folder, problem)};
}

MachineFault FaultOfRegistry(const cvn::String& folder, cvn::StringView problem) {
  return {kMachineUnreadable,
          cvn::Format(u"The machine '%s' is refused: %s. Repair or restore its hives SOFTWARE and "
                      u"SYSTEM in Windows\\System32\\config, or run as an account that may read "
                      u"them.",
                      folder, problem)};
}

cvn::String ProblemOfFolder(platform::Code opened, const cvn::String& folder) {
  switch (opened) {
    case machine::kUnrecognizedVolume:
      return u"it has no folder Windows\\System32\\config, and so is no Windows volume";
    case platform::kPathNotFound:
      return folder.Empty() ? u"TESSEL_MACHINE is empty" : u"there is no such folder";
    case platform::kDirectory:
      return u"it is no folder";
    case platform::kAccessDenied:
      return u"access is denied";
    default:
      return cvn::Format(u"it can't be opened, or made (error %u)", opened);
  }
}

cvn::String ProblemOfRegistry(platform::Code code) {
  switch (code) {
    case platform::kFileNotFound:
      return u"a hive of its registry is missing";
    case platform::kBadDatabase:
      return u"its registry is damaged";
    case platform::kAccessDenied:
      return u"its registry can't be read, since access is denied";
    default:
      return cvn::Format(u"its registry can't be read (error %u)", code);
  }
}

}  // namespace

std::optional<MachineFault> FindMachineFault(platform::Code opened, const cvn::String& folder) {
  if (opened != platform::kSuccess) {
    return FaultOfFolder(folder, ProblemOfFolder(opened, folder));
  }
  const platform::Code code = machine::CheckRegistry();
  if (code != platform::kSuccess) {
    return FaultOfRegistry(folder, ProblemOfRegistry(code));
  }
  return std::nullopt;
}

MachineFault UnknownVersionFault(const cvn::String& folder) {
  return FaultOfRegistry(folder, u"its registry doesn't tell which Windows it is");
}

}  // namespace tessel
