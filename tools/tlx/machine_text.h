// How the machine subcommands put into words what a registry holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "support/containers.h"
#include "support/string.h"

namespace tlx {

inline constexpr cvn::StringView kNoMachinesHere =
    u"machines belong to tlx on Linux; on Windows, patches run on the system itself";

// Between our names of processors, x64, x86 and arm64, and those of PROCESSOR_ARCHITECTURE. What is
// unknown stays as it is.
cvn::StringView EnvironmentArchitecture(cvn::StringView name);
cvn::StringView ArchitectureName(cvn::StringView environmentName);

// The text with what nobody sees as \xNN or \uNNNN: a registry is no place that a terminal can
// trust.
cvn::String Printable(cvn::StringView text);

// The text in stored bytes, up to the first zero.
cvn::String StoredText(std::span<const std::byte> data);

// A value's type and data. The first line says what it is, or all; the strings of a list follow.
cvn::List<cvn::String> DescribeValue(std::uint32_t type, std::span<const std::byte> data);

// PendingFileRenameOperations, a line for each: "delete X", "move X to Y".
cvn::List<cvn::String> DescribePendingMoves(std::span<const std::byte> data);

}  // namespace tlx
