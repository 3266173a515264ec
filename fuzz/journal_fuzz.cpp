// Journals of commits: whatever one says, its paths stay in the machine, and it is the one that
// would be written of what was read.
//
// Byte 0 of an input tells whether the journal follows whole, or what stands behind its head.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/input.h"
#include "platform/file_digest.h"
#include "platform/offline/commit/journal.h"

namespace tessel::fuzz {
namespace {

using platform::posix::CommitPlan;
using Bytes = std::vector<std::byte>;

// No mutation finds a digest.
Bytes WithHead(std::span<const std::byte> plan) {
  const Bytes empty = platform::posix::WriteJournal({});
  const Bytes digest = platform::Digest(plan, EVP_sha256());
  // Before the digest of its own plan come a mark and a version.
  constexpr std::size_t kDigestAt = 20;
  Bytes journal(empty.begin(), empty.begin() + kDigestAt);
  journal.insert(journal.end(), digest.begin(), digest.end());
  journal.insert(journal.end(), plan.begin(), plan.end());
  return journal;
}

bool StaysBelow(const std::string& path) {
  const std::string names = "/" + path + "/";
  const auto has = [&names](std::string_view part) {
    return names.find(part) != std::string::npos;
  };
  return path.empty() ||
         !(has("//") || has("/./") || has("/../") || has(std::string_view("\0", 1)));
}

template <typename List>
void ExpectBelow(const List& list) {
  for (const auto& one : list) {
    Require(StaysBelow(one.path), "a path leads to no other place");
  }
}

void Read(const Bytes& journal) {
  CommitPlan plan;
  if (platform::posix::ReadJournal(journal, &plan) != platform::kSuccess) {
    return;
  }
  ExpectBelow(plan.opened);
  ExpectBelow(plan.departures);
  ExpectBelow(plan.arrivals);
  ExpectBelow(plan.rewrites);
  ExpectBelow(plan.settled);
  for (const CommitPlan::Settled& one : plan.settled) {
    Require(one.state.kind <= platform::machine::EntryKind::Link, "a kind is one of those known");
  }
  for (const platform::machine::KeyChange& one : plan.keys) {
    Require(one.hive.AsView().starts_with(u"C:\\"), "a hive is one of the machine's");
  }
  Require(platform::posix::WriteJournal(plan) == journal, "a journal has one form");
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace fuzz = tessel::fuzz;
  fuzz::Input input(data, size);
  const bool isWhole = input.Byte() % 2 == 0;
  const std::string_view rest = input.Rest();
  const auto bytes = std::as_bytes(std::span(rest));
  fuzz::Read(isWhole ? fuzz::Bytes(bytes.begin(), bytes.end()) : fuzz::WithHead(bytes));
  return 0;
}
