#include "platform/offline/registry/opened_key.h"

#include <memory>
#include <utility>

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
    if ((*opened)->isMerged && *each != nullptr && (*each)->isDeleted) {
      each->reset();
      (*opened)->merged.reset();
    }
  }
  if ((keys.first == nullptr || keys.first->isDeleted) && keys.second == nullptr) {
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
  if ((access & registry::kSetValue) != 0 && Main(*opened).hive->IsReadOnly()) {
    return kAccessDenied;
  }
  *handle = reinterpret_cast<std::uintptr_t>(opened.release());
  return kSuccess;
}

Code Merge(OpenedKey* opened) {
  KeyNode& first = *opened->keys.first;
  KeyNode& second = *opened->keys.second;
  SubKeyTable* tables[2] = {};
  Code code = first.hive->SubKeys(first, &tables[0]);
  if (code == kSuccess) {
    code = second.hive->SubKeys(second, &tables[1]);
  }
  if (code != kSuccess || (opened->merged && opened->merged->changes[0] == first.subKeyChanges &&
                           opened->merged->changes[1] == second.subKeyChanges)) {
    return code;
  }
  opened->merged = MergedNames{{first.subKeyChanges, second.subKeyChanges}, {}};
  auto left = tables[0]->begin();
  auto right = tables[1]->begin();
  while (left != tables[0]->end() || right != tables[1]->end()) {
    const bool takesRight =
        left == tables[0]->end() || (right != tables[1]->end() && right->first < left->first);
    if (!takesRight && right != tables[1]->end() && right->first == left->first) {
      ++right;
    }
    opened->merged->names.push_back(takesRight ? (right++)->second->name : (left++)->second->name);
  }
  return kSuccess;
}

}  // namespace platform::posix
