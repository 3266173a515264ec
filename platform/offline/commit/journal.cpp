#include "platform/offline/commit/journal.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/file_digest.h"
#include "platform/machine_commit.h"
#include "platform/offline/commit/machine_tree.h"

namespace platform::posix {
namespace {

// What a journal begins with; then come its version, the digest of all behind that, and the plan.
constexpr std::string_view kMark = "Tessel's commit\n";
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kDigestSize = 32;
constexpr std::size_t kHeaderSize = kMark.size() + sizeof(kVersion) + kDigestSize;

// One description of the plan's parts serves both directions: Writer and Reader have the same
// operations, and take a plan that is constant, or isn't.
class Writer {
 public:
  template <typename T>
  void Number(const T& number) {
    const auto* bytes = reinterpret_cast<const std::byte*>(&number);
    bytes_.insert(bytes_.end(), bytes, bytes + sizeof(number));
  }
  void Flag(bool flag) { Number(static_cast<std::uint8_t>(flag)); }
  void Kind(machine::EntryKind kind) { Number(kind); }
  template <typename Units>
  void Sequence(const Units& units) {
    Number(static_cast<std::uint64_t>(units.size()));
    const auto bytes = std::as_bytes(std::span(units.data(), units.size()));
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  }
  void Text(const cvn::String& text) { Sequence(text.AsView()); }
  template <typename List, typename Then>
  void Each(const List& list, Then then) {
    Number(static_cast<std::uint64_t>(list.size()));
    std::ranges::for_each(list, then);
  }
  template <typename Value, typename Then>
  void Maybe(const std::optional<Value>& value, Then then) {
    Flag(value.has_value());
    if (value) {
      then(*value);
    }
  }

  std::vector<std::byte>& Bytes() { return bytes_; }

 private:
  std::vector<std::byte> bytes_;
};

class Reader {
 public:
  explicit Reader(std::span<const std::byte> bytes) : bytes_(bytes) {}

  template <typename T>
  void Number(T& number) {
    if (const auto bytes = Take(sizeof(number)); !bytes.empty()) {
      std::memcpy(&number, bytes.data(), sizeof(number));
    }
  }
  void Flag(bool& flag) {
    std::uint8_t number = 0;
    Number(number);
    flag = number != 0;
    isWhole_ = isWhole_ && number <= 1;
  }
  void Kind(machine::EntryKind& kind) {
    Number(kind);
    isWhole_ = isWhole_ && kind >= machine::EntryKind::File && kind <= machine::EntryKind::Link;
  }
  template <typename Units>
  void Sequence(Units& units) {
    std::uint64_t size = 0;
    Number(size);
    constexpr std::size_t kUnit = sizeof(typename Units::value_type);
    if (size > bytes_.size() / kUnit) {
      isWhole_ = false;
      return;
    }
    units.resize(size);
    if (const auto bytes = Take(size * kUnit); !bytes.empty()) {
      std::memcpy(units.data(), bytes.data(), bytes.size());
    }
  }
  void Text(cvn::String& text) {
    std::u16string units;
    Sequence(units);
    text = cvn::StringView(units);
  }
  template <typename List, typename Then>
  void Each(List& list, Then then) {
    std::uint64_t count = 0;
    Number(count);
    // Each takes a byte at least.
    for (isWhole_ = isWhole_ && count <= bytes_.size(); isWhole_ && count > 0; --count) {
      then(list.emplace_back());
    }
  }
  template <typename Value, typename Then>
  void Maybe(std::optional<Value>& value, Then then) {
    bool isThere = false;
    Flag(isThere);
    if (isThere) {
      then(value.emplace());
    }
  }

  bool IsWhole() const { return isWhole_ && bytes_.empty(); }

 private:
  std::span<const std::byte> Take(std::size_t size) {
    isWhole_ = isWhole_ && size <= bytes_.size();
    const auto taken = isWhole_ ? bytes_.first(size) : std::span<const std::byte>();
    bytes_ = bytes_.subspan(taken.size());
    return taken;
  }

  std::span<const std::byte> bytes_;
  bool isWhole_ = true;
};

template <typename Archive, typename State>
void GoThroughState(Archive& archive, State& state) {
  archive.Kind(state.kind);
  archive.Number(state.attributes);
  archive.Number(state.written);
  archive.Number(state.size);
  archive.Sequence(state.digest);
  archive.Sequence(state.target);
  archive.Number(state.mode);
  archive.Each(state.extended, [&archive](auto& one) {
    archive.Sequence(one.first);
    archive.Sequence(one.second);
  });
}

template <typename Archive, typename Change>
void GoThroughKey(Archive& archive, Change& change) {
  const auto key = [&archive](auto& state) {
    archive.Text(state.className);
    archive.Flag(state.isLink);
    archive.Sequence(state.security);
  };
  const auto value = [&archive](auto& state) {
    archive.Number(state.type);
    archive.Sequence(state.data);
  };
  archive.Text(change.hive);
  archive.Text(change.path);
  archive.Maybe(change.before, key);
  archive.Maybe(change.after, key);
  archive.Each(change.values, [&](auto& one) {
    archive.Text(one.name);
    archive.Maybe(one.before, value);
    archive.Maybe(one.after, value);
  });
}

template <typename Archive, typename Plan>
void GoThrough(Archive& archive, Plan& plan) {
  archive.Each(plan.opened, [&archive](auto& one) {
    archive.Sequence(one.path);
    archive.Number(one.mode);
  });
  archive.Each(plan.departures, [&archive](auto& one) {
    archive.Sequence(one.path);
    archive.Number(one.inode);
    archive.Number(one.slot);
  });
  const auto slot = [&archive](auto& one) {
    archive.Sequence(one.path);
    archive.Number(one.slot);
  };
  archive.Each(plan.arrivals, [&](auto& one) {
    slot(one);
    archive.Flag(one.inherits);
  });
  archive.Each(plan.rewrites, slot);
  archive.Each(plan.settled, [&archive](auto& one) {
    archive.Sequence(one.path);
    GoThroughState(archive, one.state);
  });
  archive.Each(plan.keys, [&archive](auto& one) { GoThroughKey(archive, one); });
  archive.Number(plan.rootSeconds);
  archive.Number(plan.rootNanoseconds);
}

template <typename List>
bool AllStayBelow(const List& list) {
  return std::ranges::all_of(list, [](const auto& one) { return StaysBelow(one.path); });
}

bool IsOnMachine(const machine::KeyChange& change) {
  std::string below;
  return ToPathBelow(change.hive, &below);
}

}  // namespace

std::vector<std::byte> WriteJournal(const CommitPlan& plan) {
  Writer payload;
  GoThrough(payload, plan);
  const Bytes digest = Digest(payload.Bytes(), EVP_sha256());
  Writer journal;
  journal.Bytes().reserve(kHeaderSize + payload.Bytes().size());
  const auto append = [&journal](std::span<const std::byte> bytes) {
    journal.Bytes().insert(journal.Bytes().end(), bytes.begin(), bytes.end());
  };
  append(std::as_bytes(std::span(kMark)));
  journal.Number(kVersion);
  append(digest);
  append(payload.Bytes());
  return std::move(journal.Bytes());
}

Code ReadJournal(std::span<const std::byte> bytes, CommitPlan* plan) {
  if (bytes.size() < kHeaderSize || std::memcmp(bytes.data(), kMark.data(), kMark.size()) != 0) {
    return machine::kCorrupt;
  }
  if (std::memcmp(bytes.data() + kMark.size(), &kVersion, sizeof(kVersion)) != 0) {
    return machine::kLaterJournal;
  }
  const auto payload = bytes.subspan(kHeaderSize);
  if (!std::ranges::equal(Digest(payload, EVP_sha256()),
                          bytes.subspan(kHeaderSize - kDigestSize, kDigestSize))) {
    return machine::kCorrupt;
  }
  Reader reader(payload);
  GoThrough(reader, *plan);
  const bool isSound = reader.IsWhole() && AllStayBelow(plan->opened) &&
                       AllStayBelow(plan->departures) && AllStayBelow(plan->arrivals) &&
                       AllStayBelow(plan->rewrites) && AllStayBelow(plan->settled) &&
                       std::ranges::all_of(plan->keys, IsOnMachine);
  return isSound ? kSuccess : machine::kCorrupt;
}

}  // namespace platform::posix
