#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/formats/hive_log.h"
#include "platform/formats/names.h"
#include "platform/linux/atomic_file.h"
#include "platform/linux/error_map.h"
#include "platform/linux/file_names.h"
#include "platform/offline/registry/hive_log_file.h"
#include "platform/offline/registry/registry.h"
#include "platform/offline/registry/registry_space.h"
#include "platform/offline/volume/volume.h"
#include "platform/registry.h"

namespace platform::posix {
namespace {

HostPath FileIn(const std::string& machineFolder, cvn::StringView name) {
  std::string path = machineFolder + "/Windows/System32/config/";
  AppendHostText(name, &path);
  return PlaceOnHost(std::move(path));
}

// What the hive's base block says of its file.
std::u16string FileName(cvn::StringView name) {
  return std::u16string(u"\\SystemRoot\\System32\\Config\\").append(name);
}

}  // namespace

class NewHiveBytes : public HiveBytes {
 public:
  explicit NewHiveBytes(std::vector<std::byte> bytes) : bytes_(std::move(bytes)) {}

  std::span<const std::byte> Bytes() const override { return bytes_; }
  std::byte* Change(std::uint32_t offset, std::uint32_t /*size*/) override {
    return &bytes_[offset];
  }
  Code Grow(std::uint32_t size) override {
    bytes_.resize(bytes_.size() + size);
    return kSuccess;
  }

  // Makes the base block's sum right.
  void Seal() {
    BaseBlock base;
    std::copy_n(bytes_.begin(), BaseBlock::kSize, base.Bytes().begin());
    base.SetDataSize(static_cast<std::uint32_t>(bytes_.size() - HivePages::kPage));
    std::ranges::copy(base.Bytes(), bytes_.begin());
  }

 private:
  std::vector<std::byte> bytes_;
};

NewHive::NewHive(const std::string& machineFolder, cvn::StringView name, HiveImage::Readers readers)
    : place_(FileIn(machineFolder, name)),
      bytes_(std::make_unique<NewHiveBytes>(
          HiveImage::Empty(FileName(name), readers, clock::FileTimeNow()))),
      image_(bytes_.get()),
      code_(image_.Open()) {}

NewHive::~NewHive() = default;

// The key at `path`, made with all on the way.
Code NewHive::Ensure(cvn::StringView path, HiveImage::Cell* key) {
  *key = image_.Root();
  Code code = code_;
  for (const cvn::StringView name : NamesOf(path)) {
    const HiveImage::Cell parent = *key;
    code = code == kSuccess ? image_.FindSubKey(parent, name, key) : code;
    if (code == kFileNotFound) {
      code = image_.AddSubKey(parent, name, 0, {}, clock::FileTimeNow(), key);
    }
  }
  return code;
}

void NewHive::AddKey(cvn::StringView path) {
  HiveImage::Cell key = HiveImage::kNoCell;
  Keep(Ensure(path, &key));
}

void NewHive::Set(cvn::StringView key, cvn::StringView name, std::uint32_t type,
                  std::span<const std::byte> data) {
  HiveImage::Cell cell = HiveImage::kNoCell;
  Keep(Ensure(key, &cell));
  if (code_ == kSuccess) {
    Keep(image_.SetValue(cell, name, type, data, clock::FileTimeNow()));
  }
}

void NewHive::SetText(cvn::StringView key, cvn::StringView name, cvn::StringView text,
                      std::uint32_t type) {
  const std::u16string ended(text);
  Set(key, name, type, std::as_bytes(std::span(ended.c_str(), ended.size() + 1)));
}

void NewHive::SetText(cvn::StringView key, cvn::StringView name, cvn::StringView text) {
  SetText(key, name, text, registry::kTypeString);
}

void NewHive::SetNumber(cvn::StringView key, cvn::StringView name, std::uint32_t number) {
  Set(key, name, registry::kTypeDword, std::as_bytes(std::span(&number, 1)));
}

Code NewHive::Write() {
  if (code_ != kSuccess) {
    return code_;
  }
  bytes_->Seal();
  constexpr mode_t kPermissions = 0644;
  const auto [folder, name] = place_.At();
  AtomicFile file(folder);
  const int error = file.Create(true, kPermissions);
  if (error != 0) {
    return RegistryFault(error);
  }
  Code code = InheritSecurity(folder, file.File());
  if (code == kSuccess) {
    code = WriteAt(file.File(), 0, bytes_->Bytes());
  }
  if (code == kSuccess && fsync(file.File()) != 0) {
    code = RegistryFault(errno);
  }
  return code == kSuccess ? RegistryFault(file.Name(name, true)) : code;
}

}  // namespace platform::posix
