#include <cstring>
#include <vector>

#include "platform/formats/names.h"
#include "platform/offline/registry/hive.h"
#include "platform/offline/registry/registry.h"
#include "platform/offline/registry/registry_space.h"
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

// The key at `path`, made with all on the way.
Code Ensure(Hive* hive, cvn::StringView path, KeyPtr* key) {
  Code code = hive->Root(key);
  for (const cvn::StringView name : NamesOf(path)) {
    SubKeyTable* subKeys = nullptr;
    code = code == kSuccess ? hive->SubKeys(**key, &subKeys) : code;
    if (code != kSuccess) {
      return code;
    }
    const auto known = subKeys->find(Folded(name));
    if (known != subKeys->end()) {
      *key = known->second;
    } else {
      code = hive->Add(**key, name, false, key);
    }
  }
  return code;
}

}  // namespace

NewHive::NewHive(const std::string& machineFolder, cvn::StringView name, HiveFile::Readers readers)
    : hive_(std::make_unique<Hive>(FileIn(machineFolder, name),
                                   HiveFile::MakeEmpty(FileName(name), readers))) {}

NewHive::~NewHive() = default;

void NewHive::AddKey(cvn::StringView path) {
  KeyPtr key;
  Keep(code_ == kSuccess ? Ensure(hive_.get(), path, &key) : code_);
}

void NewHive::Set(cvn::StringView key, cvn::StringView name, std::uint32_t type,
                  std::span<const std::byte> data) {
  KeyPtr node;
  Keep(code_ == kSuccess ? Ensure(hive_.get(), key, &node) : code_);
  if (code_ == kSuccess) {
    Keep(hive_->SetValue(*node, name, type, data));
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

Code NewHive::Write() { return code_ == kSuccess ? hive_->Flush() : code_; }

}  // namespace platform::posix
