// What the registry offers to the other parts of the offline platform, beyond platform/registry.h,
// platform/services.h and platform/version.h: texts in it, hives for a machine that is being made,
// and what differs between two hives.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/formats/hive_image.h"
#include "platform/machine_changes.h"
#include "platform/offline/volume/volume.h"
#include "platform/registry.h"
#include "support/string.h"

namespace platform::posix {

// The text of a value, as it is stored. Nothing when there is none, or one that isn't text.
std::optional<std::u16string> ReadText(registry::Root root, cvn::StringView path,
                                       cvn::StringView name);
// The same, with why it couldn't be read; that there is none is no failure.
Code ReadText(registry::Root root, cvn::StringView path, cvn::StringView name,
              std::optional<std::u16string>* text);

// While one lives, the hives that are read stay as they are, and are shared with other readers:
// what takes several reads is all of one moment, and looks only once whether others have changed
// them. For reading alone, and not for long.
class RegistryLook {
 public:
  RegistryLook();
  RegistryLook(const RegistryLook&) = delete;
  RegistryLook& operator=(const RegistryLook&) = delete;
  ~RegistryLook();
};

// Closes the hives of this process's machine, of which no key may be open any more. The registry
// opens them anew when it is asked again.
void CloseRegistry();

class NewHiveBytes;

// A hive that has no file yet. Its first failure is kept, and Write gives it.
class NewHive {
 public:
  // The hive `name`, like SOFTWARE, of the machine in a folder of the host.
  NewHive(const std::string& machineFolder, cvn::StringView name, HiveImage::Readers readers);
  NewHive(const NewHive&) = delete;
  NewHive& operator=(const NewHive&) = delete;
  ~NewHive();

  // Makes the key at `path` with all on the way.
  void AddKey(cvn::StringView path);
  // Sets a value of a key, which is made where it is missing.
  void Set(cvn::StringView key, cvn::StringView name, std::uint32_t type,
           std::span<const std::byte> data);
  void SetText(cvn::StringView key, cvn::StringView name, cvn::StringView text, std::uint32_t type);
  void SetText(cvn::StringView key, cvn::StringView name, cvn::StringView text);
  void SetNumber(cvn::StringView key, cvn::StringView name, std::uint32_t number);

  Code Write();

 private:
  void Keep(Code code) { code_ = code_ == kSuccess ? code : code_; }

  Code Ensure(cvn::StringView path, HiveImage::Cell* key);

  const HostPath place_;
  const std::unique_ptr<NewHiveBytes> bytes_;
  HiveImage image_;
  Code code_ = kSuccess;
};

// What the names of a hive's logs have behind that of its primary file.
inline constexpr std::array<const char*, 3> kHiveLogs = {".LOG1", ".LOG2", ".LOG"};

struct HiveFiles {
  HostPath primary;
  std::array<HostPath, kHiveLogs.size()> logs;  // in the order of kHiveLogs; they may be missing
};

// The hives of this process's machine that are there, as the registry mounts them: those of the
// system, and two of each profile. The host's names, with links resolved.
std::vector<std::string> HivesOfMachine();

// Appends the keys that differ between two hives, each completed from its logs, in the order of
// ComesBefore. `hive` is what the changes are to call the hive. 1009 when either is damaged, or
// a key that differs has a name that can't be a part of a path; 170 when others have one for too
// long.
Code CompareHives(const HiveFiles& before, const HiveFiles& after, cvn::StringView hive,
                  cvn::List<machine::KeyChange>* changes);

// Brings keys to what they are on the side `to`, all or nothing: as one entry of the hive's log,
// which reaches the disk, and then in the primary file. What is so already stays. 5 for a hive that
// is read-only, and when a key that has to go may not be deleted or has subkeys that `changes`
// doesn't name, 2 when one has to come where its parent is missing, 87 for one that is too deep and
// for a name that is none, 1009 for a damaged hive, 112, 170.
Code ApplyKeyChanges(const HostPath& hive, std::span<const machine::KeyChange> changes,
                     machine::Side to);

// Gives what ApplyKeyChanges would, but for failures of the disk, and changes nothing.
Code TryKeyChanges(const HostPath& hive, std::span<const machine::KeyChange> changes,
                   machine::Side to);

// The indexes of those changes whose keys aren't in the hive as they are on `side`. A key that the
// other side doesn't have has to have the values and subkeys that `changes` tells, and no more.
Code FindOtherKeys(const HostPath& hive, std::span<const machine::KeyChange> changes,
                   machine::Side side, std::vector<std::size_t>* others);

}  // namespace platform::posix
