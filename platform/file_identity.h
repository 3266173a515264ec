// Which folder a path leads to.
#pragma once

#include <cstdint>

#include "platform/error.h"
#include "platform/files.h"
#include "support/string.h"

namespace platform::files {

// Equal for two paths that lead to one file or folder, by links or otherwise.
struct Identity {
  std::uint64_t volume = 0;
  std::uint64_t number = 0;
  bool operator==(const Identity&) const = default;
};

// The identity of what `path` leads to; links are followed. Fails as Open does, but opens folders
// too, and what another holds without sharing.
Code GetIdentity(cvn::StringView path, Identity* identity);

// The same of an open file.
Code GetIdentity(const File& file, Identity* identity);

}  // namespace platform::files
