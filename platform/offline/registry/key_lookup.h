// Ways along the names of a path, and what is made or deleted at their ends.
#pragma once

#include <cstddef>
#include <vector>

#include "platform/error.h"
#include "platform/offline/registry/opened_key.h"
#include "platform/offline/registry/registry_space.h"
#include "support/string.h"

namespace platform::posix {

using Names = std::vector<cvn::StringView>;

// Where one way along the names ends.
struct Way {
  Code code = kFileNotFound;
  KeyPtr end;
  std::size_t count = 0;
};

// 2 without a key to start from.
Way WayFrom(const KeyPtr& from, const Names& names);

// Both ways of a merged view, or the one of another key.
struct Ways {
  Way first;
  Way second;

  bool hasSecond = false;

  Ways(const OpenedKey& from, const Names& names)
      : first(WayFrom(from.keys.first, names)),
        second(WayFrom(from.keys.second, names)),
        hasSecond(from.keys.second != nullptr) {}

  bool IsFound() const { return first.code == kSuccess || second.code == kSuccess; }
  Code Failure() const { return hasSecond ? second.code : first.code; }
  KeyPair Found() const {
    return {first.code == kSuccess ? first.end : nullptr,
            second.code == kSuccess ? second.end : nullptr};
  }
};

// Makes the keys that are missing after the end of a way that ended with 2.
Code CreateBehind(const Way& way, const Names& names, bool isVolatile, KeyPtr* created);

// Deletes the key itself and not what a link at the end of the path leads to.
Code DeleteBelow(const KeyPtr& from, Names names);

}  // namespace platform::posix
