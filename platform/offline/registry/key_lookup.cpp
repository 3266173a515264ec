#include "platform/offline/registry/key_lookup.h"

#include <algorithm>
#include <utility>

#include "platform/offline/registry/registry_values.h"

namespace platform::posix {

Lookup LookUp(const KeyPtr& from, const Names& names, registry::LinkAtEnd link) {
  Lookup lookup;
  const bool isItself = link == registry::LinkAtEnd::Open && !names.empty();
  if (from == nullptr) {
    return lookup;
  }
  const Names way(names.begin(), names.end() - (isItself ? 1 : 0));
  lookup.code = RegistrySpace::Get().Walk(from, way, &lookup.end, &lookup.count);
  KeyPtr end;
  if (isItself && lookup.code == kSuccess) {
    lookup.code = lookup.end->hive->Find(*lookup.end, names.back(), &end);
  }
  if (end != nullptr) {
    // The root of a hive is no link.
    lookup.code =
        end->isLink ? kSuccess : RegistrySpace::Get().Walk(end, Names(), &end, &lookup.count);
    lookup.end = std::move(end);
    lookup.count = names.size();
  }
  return lookup;
}

Code CreateMissing(const Lookup& lookup, const Names& names, bool isVolatile, KeyPtr* created) {
  const auto isTooLong = [](cvn::StringView name) { return name.size() > kLongestKeyName; };
  const auto begin = names.begin() + static_cast<std::ptrdiff_t>(lookup.count);
  if (RegistrySpace::Get().IsFrame(lookup.end) || std::any_of(begin, names.end(), isTooLong) ||
      lookup.end->depth + names.size() - lookup.count > HiveImage::kDeepestKey) {
    return kInvalidParameter;
  }
  Hive& hive = *lookup.end->hive;
  KeyPtr known;
  Code code = hive.Find(*lookup.end, *begin, &known);
  if (code == kSuccess && known->isLink) {
    return kFileNotFound;  // it leads nowhere
  }
  code = code == kFileNotFound ? kSuccess : code;
  if (code == kSuccess && lookup.end->isVolatile && !isVolatile) {
    return kChildMustBeVolatile;
  }
  *created = lookup.end;
  for (auto name = begin; code == kSuccess && name != names.end(); ++name) {
    const KeyPtr parent = *created;
    code = hive.Add(*parent, *name, isVolatile, created);
  }
  return code;
}

Code DeleteBelow(const KeyPtr& from, Names names) {
  KeyPtr key = from;
  if (!names.empty()) {
    const cvn::StringView name = names.back();
    names.pop_back();
    const Lookup lookup = LookUp(from, names);
    const Code code =
        lookup.code == kSuccess ? lookup.end->hive->Find(*lookup.end, name, &key) : lookup.code;
    if (code != kSuccess) {
      return code;
    }
  }
  return key->isFixed ? kAccessDenied : key->hive->Remove(*key);
}

}  // namespace platform::posix
