#include "platform/offline/registry/key_lookup.h"

#include <algorithm>

#include "platform/formats/names.h"
#include "platform/offline/registry/registry_values.h"

namespace platform::posix {
namespace {

constexpr std::size_t kDeepestKey = 512;  // levels; a limit of Windows

std::size_t DepthOf(const KeyNode* key) {
  std::size_t depth = 0;
  for (; key != nullptr; key = key->parent) {
    ++depth;
  }
  return depth;
}

}  // namespace

Lookup LookUp(const KeyPtr& from, const Names& names) {
  Lookup lookup;
  if (from != nullptr) {
    lookup.code = RegistrySpace::Get().Walk(from, names, &lookup.end, &lookup.count);
  }
  return lookup;
}

Code CreateMissing(const Lookup& lookup, const Names& names, bool isVolatile, KeyPtr* created) {
  const auto isTooLong = [](cvn::StringView name) { return name.size() > kLongestKeyName; };
  const auto begin = names.begin() + static_cast<std::ptrdiff_t>(lookup.count);
  if (RegistrySpace::Get().IsFrame(lookup.end) || std::any_of(begin, names.end(), isTooLong) ||
      DepthOf(lookup.end.get()) + names.size() - lookup.count > kDeepestKey) {
    return kInvalidParameter;
  }
  Hive& hive = *lookup.end->hive;
  SubKeyTable* subKeys = nullptr;
  Code code = hive.SubKeys(*lookup.end, &subKeys);
  if (code == kSuccess && subKeys->find(Folded(*begin)) != subKeys->end()) {
    return kFileNotFound;  // a link that leads nowhere
  }
  if (code == kSuccess && lookup.end->isVolatile && !isVolatile) {
    return kChildMustBeVolatile;
  }
  *created = lookup.end;
  for (auto name = begin; code == kSuccess && name != names.end(); ++name) {
    code = hive.Add(**created, *name, isVolatile, created);
  }
  return code;
}

Code DeleteBelow(const KeyPtr& from, Names names) {
  KeyPtr key = from;
  if (!names.empty()) {
    const std::u16string name = Folded(names.back());
    names.pop_back();
    const Lookup lookup = LookUp(from, names);
    SubKeyTable* siblings = nullptr;
    const Code code =
        lookup.code == kSuccess ? lookup.end->hive->SubKeys(*lookup.end, &siblings) : lookup.code;
    if (code != kSuccess) {
      return code;
    }
    const auto found = siblings->find(name);
    if (found == siblings->end()) {
      return kFileNotFound;
    }
    key = found->second;
  }
  if (key->isFixed) {
    return kAccessDenied;
  }
  SubKeyTable* subKeys = nullptr;
  const Code code = key->hive->SubKeys(*key, &subKeys);
  if (code != kSuccess) {
    return code;
  }
  return subKeys->empty() ? key->hive->Remove(*key) : kAccessDenied;
}

}  // namespace platform::posix
