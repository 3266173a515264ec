// Security descriptors: whatever a folder's says, what new files and folders inherit is whole, and
// passes through again as it is.
//
// Byte 0 of an input tells the kind. The folder's descriptor follows.
#include <cstddef>
#include <span>
#include <vector>

#include "fuzz/input.h"
#include "platform/formats/security_descriptor.h"

namespace tessel::fuzz {
namespace {

using platform::security::NewObject;

void InheritTwice(Input* input) {
  // The owner and the group are the system, without lists.
  constexpr unsigned char kMade[] = {1, 0, 0, 0x80, 20, 0, 0, 0, 20, 0, 0, 0, 0,  0, 0, 0,
                                     0, 0, 0, 0,    1,  1, 0, 0, 0,  0, 0, 5, 18, 0, 0, 0};
  const auto made = std::as_bytes(std::span(kMade));
  const NewObject kind = input->Byte() % 2 == 0 ? NewObject::File : NewObject::Folder;
  const std::string_view parent = input->Rest();
  const std::vector<std::byte> child =
      platform::security::Inherit(std::as_bytes(std::span(parent)), made, kind);
  Require(child.size() <= 2 * 65535 + 64, "a descriptor has a limit");
  if (child.empty() || kind == NewObject::File) {
    return;
  }
  const auto below = platform::security::Inherit(child, made, kind);
  const auto again = platform::security::Inherit(below, made, kind);
  Require(!below.empty() && below == again, "a folder in a folder inherits the same");
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tessel::fuzz::Input input(data, size);
  tessel::fuzz::InheritTwice(&input);
  return 0;
}
