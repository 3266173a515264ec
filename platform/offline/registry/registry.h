// What the registry offers to the other parts of the offline platform, beyond platform/registry.h,
// platform/services.h and platform/version.h: texts in it, and hives for a machine that is being
// made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "platform/error.h"
#include "platform/formats/hive_image.h"
#include "platform/offline/volume/volume.h"
#include "platform/registry.h"
#include "support/string.h"

namespace platform::posix {

// The text of a value, as it is stored. Nothing when there is none, or one that isn't text.
std::optional<std::u16string> ReadText(registry::Root root, cvn::StringView path,
                                       cvn::StringView name);

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

}  // namespace platform::posix
