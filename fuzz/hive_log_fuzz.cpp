// Logs of hives: whatever a log has, the hive that it completes is read, changed and brought up to
// date; what was written then is there, and the files are whole.
//
// Byte 0 of an input has a bit each for: a damaged base block, a log of the old kind, sums that are
// put right. The log's content behind its base block follows.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/scratch_machine.h"
#include "platform/formats/hive_log.h"
#include "platform/offline/registry/hive.h"
#include "platform/offline/volume/volume.h"

namespace tessel::fuzz {
namespace {

using platform::BaseBlock;
using platform::kSuccess;
using platform::LogEntry;
using platform::posix::Hive;
using platform::posix::HiveImage;
using platform::posix::KeyPtr;

constexpr std::uint8_t kDamaged = 1;
constexpr std::uint8_t kOld = 2;
constexpr std::uint8_t kSummed = 4;

std::string TextOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

void PutSum(std::size_t from, std::size_t end, std::size_t at, std::string* log) {
  const std::uint64_t sum =
      platform::Marvin32(std::as_bytes(std::span(*log)).subspan(from, end - from));
  std::memcpy(log->data() + at, &sum, sizeof(sum));
}

// No mutation finds a sum.
void FixSums(std::string* log) {
  std::size_t at = 0;
  while (log->size() - at >= LogEntry::kHeader && log->compare(at, 4, "HvLE") == 0) {
    std::uint32_t size = 0;
    std::memcpy(&size, log->data() + at + 4, sizeof(size));
    if (size < LogEntry::kHeader || size > log->size() - at) {
      break;
    }
    PutSum(at + LogEntry::kHeader, at + size, at + 24, log);
    PutSum(at, at + 32, at + 32, log);
    at += size;
  }
}

void Lay(std::uint8_t kind, std::string log) {
  const std::vector<std::byte> empty = HiveImage::Empty(u"fuzz", HiveImage::Readers::All, 1);
  BaseBlock base;
  std::copy_n(empty.begin(), BaseBlock::kSize, base.Bytes().begin());
  base.SetType((kind & kOld) != 0 ? BaseBlock::Kind::OldLog : BaseBlock::Kind::Log);
  if ((kind & kSummed) != 0) {
    FixSums(&log);
  }
  WriteScratchFile("hive.LOG1", TextOf(base.Bytes()) + log);
  base.SetType(BaseBlock::Kind::Primary);
  base.SetNumbers(base.First() + 1, base.First());
  std::string primary = TextOf(base.Bytes()) + TextOf(std::span(empty).subspan(BaseBlock::kSize));
  primary[0] = (kind & kDamaged) != 0 ? 'x' : primary[0];
  WriteScratchFile("hive", primary);
}

// Reads what can be read. Gives whether the root was found.
bool ReadAll(Hive* hive, KeyPtr* root) {
  constexpr std::size_t kMost = 1000;
  if (hive->Root(root) != kSuccess) {
    return false;
  }
  std::vector<KeyPtr> keys = {*root};
  std::u16string name;
  for (std::size_t i = 0; i < std::min(keys.size(), kMost); ++i) {
    const KeyPtr key = keys[i];
    for (std::uint32_t at = 0; at < kMost && hive->ValueNameAt(*key, at, &name) == kSuccess; ++at) {
      std::uint32_t type = 0;
      std::vector<std::byte> data;
      IgnoreError(hive->Query(*key, name, &type, &data));
    }
    KeyPtr below;
    for (std::uint32_t at = 0; at < kMost && hive->SubKeyNameAt(*key, at, &name) == kSuccess;
         ++at) {
      if (hive->Find(*key, name, &below) == kSuccess) {
        keys.push_back(below);
      }
    }
  }
  return true;
}

void Change(std::uint8_t kind, std::string log) {
  Lay(kind, std::move(log));
  const auto place = platform::posix::PlaceOnHost(ScratchFolder() + "/hive");
  constexpr cvn::StringView kName = u"written";
  const auto data = std::as_bytes(std::span(kName));
  KeyPtr root;
  bool isWritten = false;
  {
    Hive hive(place);
    isWritten = ReadAll(&hive, &root) && hive.SetValue(*root, kName, 3, data) == kSuccess &&
                hive.Commit() == kSuccess;
    IgnoreError(hive.Leave());
    Require(!isWritten || hive.Settle() == kSuccess, "what was logged can be settled");
    root.reset();
  }
  Hive again(place);
  std::uint32_t type = 0;
  std::vector<std::byte> found;
  const bool isThere = ReadAll(&again, &root) &&
                       again.Query(*root, kName, &type, &found) == kSuccess &&
                       std::ranges::equal(found, data);
  Require(!isWritten || isThere, "what was settled is there");
  IgnoreError(again.Leave());
  root.reset();
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tessel::fuzz::Input input(data, size);
  const std::uint8_t kind = input.Byte();
  tessel::fuzz::Change(kind, std::string(input.Rest()));
  return 0;
}
