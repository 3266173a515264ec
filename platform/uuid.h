// Universally unique identifiers.
#pragma once

#include <array>
#include <cstdint>

namespace platform {

// As UUID of rpcdce.h, in the order of its fields.
struct Uuid {
  std::uint32_t data1 = 0;
  std::uint16_t data2 = 0;
  std::uint16_t data3 = 0;
  std::array<std::uint8_t, 8> data4{};
};

// Statuses of UuidCreate that leave a usable identifier: one that is unique everywhere, and one
// that is only so on this computer.
inline constexpr std::int32_t kUuidCreated = 0;
inline constexpr std::int32_t kUuidLocalOnly = 1824;

// As UuidCreate: a random identifier (version 4). Returns its status.
std::int32_t CreateUuid(Uuid* uuid);

}  // namespace platform
