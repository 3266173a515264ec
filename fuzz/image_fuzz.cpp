// PE images: their layout, the stretches that a digest covers, their company's name and their
// signatures.
#include "fuzz/input.h"
#include "fuzz/verify_signatures.h"
#include "platform/formats/pe_image.h"
#include "platform/formats/version_resource.h"

namespace tessel::fuzz {
namespace {

void CheckLayout(std::span<const std::byte> bytes) {
  const platform::ByteSource source(bytes);
  const auto image = platform::ReadPeImage(source);
  if (!image) {
    return;
  }
  std::uint64_t covered = 0;
  std::uint64_t end = 0;
  for (const platform::Range& range : platform::DigestedRanges(*image, source.Size())) {
    Require(range.offset >= end && source.Holds(range), "what is digested ascends in the file");
    end = range.End();
    covered += range.size;
  }
  const std::uint64_t table =
      image->certificates.size == 0 ? 0 : source.Size() - image->certificates.offset;
  Require(table < image->certificates.size + 8 &&
              covered + image->checksum.size + image->securityEntry.size + table == source.Size(),
          "a digest covers all but checksum, security entry and certificates");
  for (const platform::Range& signedData : image->signedData) {
    Require(signedData.offset >= image->certificates.offset &&
                signedData.End() <= image->certificates.End(),
            "signatures lie in the certificate table");
  }
  for (const platform::PeSection& section : image->sections) {
    Require(source.Holds(section.data) && source.Holds(image->DataAt(section.address)),
            "a section's data lies in the file");
  }
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace fuzz = tessel::fuzz;
  const auto bytes = std::as_bytes(std::span(data, size));
  fuzz::CheckLayout(bytes);
  cvn::String company;
  platform::posix::CompanyNameOf(platform::ByteSource(bytes), &company);
  fuzz::VerifySignatures(bytes);
  return 0;
}
