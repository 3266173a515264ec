// What the registry of the opened machine tells of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "support/containers.h"
#include "support/string.h"

namespace tlx {

// Below HKEY_LOCAL_MACHINE.
inline constexpr cvn::StringView kVersionKey = u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

struct StoredValue {
  std::uint32_t type = 0;
  std::vector<std::byte> data;
};

// A value below HKEY_LOCAL_MACHINE.
std::optional<StoredValue> MachineValue(cvn::StringView path, cvn::StringView name);

// The same as a text, fit for a terminal: "unknown" when it is not there.
cvn::String MachineText(cvn::StringView path, cvn::StringView name);

// The version of Windows, "10.0".
cvn::String VersionText();

// What the next start of Windows does to files, as DescribePendingMoves.
cvn::List<cvn::String> PendingMoves();

}  // namespace tlx
