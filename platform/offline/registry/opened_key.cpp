#include "platform/offline/registry/opened_key.h"

#include <map>
#include <memory>
#include <utility>

#include "platform/formats/names.h"

namespace platform::posix {

std::uintptr_t HandleOf(registry::Root root) {
  return static_cast<std::uintptr_t>(static_cast<std::intptr_t>(static_cast<std::int32_t>(root)));
}

bool IsPredefined(std::uintptr_t handle) {
  return handle >= HandleOf(registry::Root::ClassesRoot) &&
         handle <= HandleOf(registry::Root::CurrentConfig);
}

Code FindOpened(const registry::Key& key, std::uint32_t access, OpenedKey* own,
                OpenedKey** opened) {
  *opened = own;
  if (!key.IsOpen()) {
    return kInvalidHandle;
  }
  if (IsPredefined(key.Handle())) {
    const auto root = static_cast<registry::Root>(static_cast<std::uint32_t>(key.Handle()));
    own->isMerged = root == registry::Root::ClassesRoot;
    return RegistrySpace::Get().Open(root, &own->keys);
  }
  *opened = reinterpret_cast<OpenedKey*>(key.Handle());
  KeyPair& keys = (*opened)->keys;
  for (KeyPtr* each : {&keys.first, &keys.second}) {
    const bool isChange = (access & registry::kSetValue) != 0;
    const Code code = *each == nullptr ? kSuccess : (*each)->hive->Confirm(**each, isChange);
    if (code != kSuccess && (code != kKeyDeleted || !(*opened)->isMerged)) {
      return code;
    }
    if (code == kKeyDeleted) {
      each->reset();
      (*opened)->merged.reset();
    }
  }
  if (keys.first == nullptr && keys.second == nullptr) {
    return kKeyDeleted;
  }
  return ((*opened)->access & access) == access ? kSuccess : kAccessDenied;
}

KeyNode& Main(const OpenedKey& opened) {
  return opened.keys.first != nullptr ? *opened.keys.first : *opened.keys.second;
}

bool IsMergedOfTwo(const OpenedKey& opened) {
  return opened.keys.first != nullptr && opened.keys.second != nullptr;
}

Code Publish(KeyPair keys, bool isMerged, std::uint32_t access, std::uintptr_t* handle) {
  auto opened = std::make_unique<OpenedKey>();
  opened->keys = std::move(keys);
  opened->isMerged = isMerged;
  opened->access = access;
  const Code code =
      (access & registry::kSetValue) != 0 ? Main(*opened).hive->Writability() : kSuccess;
  if (code != kSuccess) {
    return code;
  }
  *handle = reinterpret_cast<std::uintptr_t>(opened.release());
  return kSuccess;
}

namespace {

// The names of a key's subkeys by their folded forms.
Code NamesBelow(KeyNode& key, std::map<std::u16string, std::u16string>* names) {
  std::u16string name;
  Code code = kSuccess;
  for (std::uint32_t index = 0; code == kSuccess; ++index) {
    code = key.hive->SubKeyNameAt(key, index, &name);
    if (code == kSuccess) {
      names->try_emplace(Folded(name), name);
    }
  }
  return code == kNoMoreItems ? kSuccess : code;
}

}  // namespace

Code Merge(OpenedKey* opened) {
  KeyNode& first = *opened->keys.first;
  KeyNode& second = *opened->keys.second;
  // Looks whether others have changed them.
  std::uint32_t count = 0;
  Code code = first.hive->CountSubKeys(first, &count);
  code = code == kSuccess ? second.hive->CountSubKeys(second, &count) : code;
  if (code != kSuccess || (opened->merged && opened->merged->changes[0] == first.hive->Changes() &&
                           opened->merged->changes[1] == second.hive->Changes())) {
    return code;
  }
  std::map<std::u16string, std::u16string> names;
  code = NamesBelow(first, &names);
  code = code == kSuccess ? NamesBelow(second, &names) : code;
  if (code == kSuccess) {
    opened->merged = MergedNames{{first.hive->Changes(), second.hive->Changes()}, {}};
    for (auto& [folded, name] : names) {
      opened->merged->names.push_back(std::move(name));
    }
  }
  return code;
}

}  // namespace platform::posix
