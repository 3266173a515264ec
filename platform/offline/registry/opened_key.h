// Keys that callers have open.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/offline/registry/registry_space.h"
#include "platform/registry.h"

namespace platform::posix {

// The names of both keys of a pair, as they were when their numbers of changes were these.
struct MergedNames {
  std::uint64_t changes[2] = {};
  std::vector<std::u16string> names;
};

// What a handle stands for.
struct OpenedKey {
  KeyPair keys;
  bool isMerged = false;
  std::uint32_t access = 0;
  std::optional<MergedNames> merged;
};

std::uintptr_t HandleOf(registry::Root root);
bool IsPredefined(std::uintptr_t handle);

// Finds what `key` stands for. `*own` keeps what a predefined key resolves to now. 6 for a key that
// isn't open, 1018 for a deleted one, 5 when it was opened without a right of `access`.
Code FindOpened(const registry::Key& key, std::uint32_t access, OpenedKey* own, OpenedKey** opened);

// The key that changes go to.
KeyNode& Main(const OpenedKey& opened);

bool IsMergedOfTwo(const OpenedKey& opened);

// Makes a handle of what was found. 5 for the right to change a hive that can't be.
Code Publish(KeyPair keys, bool isMerged, std::uint32_t access, std::uintptr_t* handle);

// Brings the list of the names of both keys up to date.
Code Merge(OpenedKey* opened);

}  // namespace platform::posix
