// Looking up the names of a path, and making or deleting the keys at its end.
#pragma once

#include <cstddef>
#include <vector>

#include "platform/error.h"
#include "platform/offline/registry/opened_key.h"
#include "platform/offline/registry/registry_space.h"
#include "support/string.h"

namespace platform::posix {

using Names = std::vector<cvn::StringView>;

// What a path leads to: on 2, the last key that there is, and how many names lead to it.
struct Lookup {
  Code code = kFileNotFound;
  KeyPtr end;
  std::size_t count = 0;
};

// Gives 2 without a key to start from.
Lookup LookUp(const KeyPtr& from, const Names& names,
              registry::LinkAtEnd link = registry::LinkAtEnd::Follow);

// Both lookups of a merged view, or the one of another key.
struct Lookups {
  Lookup first;
  Lookup second;
  bool hasSecond = false;

  Lookups(const OpenedKey& from, const Names& names,
          registry::LinkAtEnd link = registry::LinkAtEnd::Follow)
      : first(LookUp(from.keys.first, names, link)),
        second(LookUp(from.keys.second, names, link)),
        hasSecond(from.keys.second != nullptr) {}

  bool IsFound() const { return !IsBusy() && (first.code == kSuccess || second.code == kSuccess); }
  Code Failure() const { return IsBusy() ? Code(kBusy) : (hasSecond ? second.code : first.code); }
  KeyPair Found() const {
    return {first.code == kSuccess ? first.end : nullptr,
            second.code == kSuccess ? second.end : nullptr};
  }

 private:
  // What others have for too long may be there: one key can't stand for both then.
  bool IsBusy() const { return first.code == kBusy || second.code == kBusy; }
};

// Makes the keys that are missing at the end of a lookup that gave 2.
Code CreateMissing(const Lookup& lookup, const Names& names, bool isVolatile, KeyPtr* created);

// Deletes the key itself and not what a link at the end of the path leads to.
Code DeleteBelow(const KeyPtr& from, Names names);

}  // namespace platform::posix
