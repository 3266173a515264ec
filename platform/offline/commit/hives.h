// The changes of keys, hive by hive.
#pragma once

#include <span>

#include "platform/error.h"
#include "platform/machine_changes.h"

namespace platform::posix {

// Calls `action` with the changes of each hive, which stand together, until one fails.
template <typename Action>
Code ForEachHive(std::span<const machine::KeyChange> keys, Action action) {
  Code code = kSuccess;
  while (code == kSuccess && !keys.empty()) {
    std::size_t count = 1;
    while (count < keys.size() && keys[count].hive == keys.front().hive) {
      ++count;
    }
    code = action(keys.first(count));
    keys = keys.subspan(count);
  }
  return code;
}

}  // namespace platform::posix
