#include "platform/uuid.h"

#include "platform/random.h"

namespace platform {

std::int32_t CreateUuid(Uuid* uuid) {
  const std::uint32_t middle = SecureRandom32();
  uuid->data1 = SecureRandom32();
  uuid->data2 = static_cast<std::uint16_t>(middle >> 16);
  uuid->data3 = static_cast<std::uint16_t>((middle & 0x0FFF) | 0x4000);  // version 4
  for (std::size_t i = 0; i < uuid->data4.size(); i += 4) {
    const std::uint32_t bits = SecureRandom32();
    for (std::size_t j = 0; j < 4; ++j) {
      uuid->data4[i + j] = static_cast<std::uint8_t>(bits >> (8 * j));
    }
  }
  uuid->data4[0] = static_cast<std::uint8_t>((uuid->data4[0] & 0x3F) | 0x80);  // RFC 4122's variant
  return kUuidCreated;
}

}  // namespace platform
