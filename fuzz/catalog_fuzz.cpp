// Catalogs: their members and their signatures.
#include "fuzz/input.h"
#include "fuzz/verify_signatures.h"
#include "platform/offline/authenticode/catalog_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto bytes = std::as_bytes(std::span(data, size));
  cvn::List<platform::catalogs::Member> members;
  platform::IgnoreError(platform::posix::ReadCatalog(bytes, &members));
  tessel::fuzz::VerifySignatures(bytes);
  return 0;
}
