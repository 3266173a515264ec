#include "platform/offline/registry/key_ways.h"

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

Way WayFrom(const KeyPtr& from, const Names& names) {
  Way way;
  if (from != nullptr) {
    way.code = RegistrySpace::Get().Walk(from, names, &way.end, &way.count);
  }
  return way;
}

Code CreateBehind(const Way& way, const Names& names, bool isVolatile, KeyPtr* created) {
  const auto isTooLong = [](cvn::StringView name) { return name.size() > kLongestKeyName; };
  const auto begin = names.begin() + static_cast<std::ptrdiff_t>(way.count);
  if (RegistrySpace::Get().IsFrame(way.end) || std::any_of(begin, names.end(), isTooLong) ||
      DepthOf(way.end.get()) + names.size() - way.count > kDeepestKey) {
    return kInvalidParameter;
  }
  Hive& hive = *way.end->hive;
  SubKeyTable* subKeys = nullptr;
  Code code = hive.SubKeys(*way.end, &subKeys);
  if (code == kSuccess && subKeys->find(Folded(*begin)) != subKeys->end()) {
    return kFileNotFound;  // a link that leads nowhere
  }
  if (code == kSuccess && way.end->isVolatile && !isVolatile) {
    return kChildMustBeVolatile;
  }
  *created = way.end;
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
    const Way way = WayFrom(from, names);
    SubKeyTable* siblings = nullptr;
    const Code code = way.code == kSuccess ? way.end->hive->SubKeys(*way.end, &siblings) : way.code;
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
