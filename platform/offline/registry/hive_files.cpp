// Hives in files, compared and changed by their keys.
#include "platform/clock.h"
#include "platform/offline/registry/hive_difference.h"
#include "platform/offline/registry/hive_store.h"

namespace platform::posix {
namespace {

enum class Purpose { Look, Try, Change };

// Opens the hive, and completes what `use` does with it; but of what is tried nothing stays.
template <typename Use>
Code WithHive(const HostPath& place, Purpose purpose, Use use) {
  const bool isChange = purpose == Purpose::Change;
  HiveStore store(place);
  HiveImage image(&store.Pages());
  Code code = store.Enter(isChange);
  if (code == kSuccess && purpose != Purpose::Look) {
    code = isChange ? store.BeginChange() : store.Writability();
  }
  code = code == kSuccess ? image.Open() : code;
  code = code == kSuccess ? use(&image) : code;
  if (code == kSuccess && store.Pages().IsTorn()) {
    code = kReadFault;
  }
  if (code == kSuccess && isChange) {
    code = store.Commit();
    code = code == kSuccess ? store.Sync() : code;
  }
  store.Leave();
  // The log has it all.
  IgnoreError(code == kSuccess && isChange ? store.Settle() : kSuccess);
  return code;
}

}  // namespace

Code CompareHives(const HiveFiles& before, const HiveFiles& after, cvn::StringView hive,
                  cvn::List<machine::KeyChange>* changes) {
  HiveStore first(before);
  HiveStore second(after);
  HiveImage was(&first.Pages());
  HiveImage is(&second.Pages());
  const std::size_t known = changes->size();
  Code code = first.Enter(false);
  code = code == kSuccess ? second.Enter(false) : code;
  code = code == kSuccess ? was.Open() : code;
  code = code == kSuccess ? is.Open() : code;
  code = code == kSuccess ? CompareImages(was, is, hive, changes) : code;
  if (code == kSuccess && (first.Pages().IsTorn() || second.Pages().IsTorn())) {
    code = kReadFault;
  }
  if (code != kSuccess) {
    changes->resize(known);
  }
  return code;
}

Code TryKeyChanges(const HostPath& hive, std::span<const machine::KeyChange> changes,
                   machine::Side to) {
  return WithHive(hive, Purpose::Try, [&](HiveImage* image) {
    return ApplyToImage(changes, to, clock::FileTimeNow(), image);
  });
}

Code ApplyKeyChanges(const HostPath& hive, std::span<const machine::KeyChange> changes,
                     machine::Side to) {
  return WithHive(hive, Purpose::Change, [&](HiveImage* image) {
    return ApplyToImage(changes, to, clock::FileTimeNow(), image);
  });
}

Code FindOtherKeys(const HostPath& hive, std::span<const machine::KeyChange> changes,
                   machine::Side side, std::vector<std::size_t>* others) {
  return WithHive(hive, Purpose::Look, [&](HiveImage* image) {
    return FindOthersInImage(*image, changes, side, others);
  });
}

}  // namespace platform::posix
