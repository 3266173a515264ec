#include "platform/uuid.h"

#include "platform/windows/wide.h"
// Behind <windows.h>.
#include <rpc.h>

#include <algorithm>
#include <iterator>

namespace platform {

std::int32_t CreateUuid(Uuid* uuid) {
  UUID made{};
  const RPC_STATUS status = ::UuidCreate(&made);
  uuid->data1 = made.Data1;
  uuid->data2 = made.Data2;
  uuid->data3 = made.Data3;
  std::copy(std::begin(made.Data4), std::end(made.Data4), uuid->data4.begin());
  return static_cast<std::int32_t>(status);
}

}  // namespace platform
