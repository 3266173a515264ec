#include "platform/offline/volume/copies_ahead.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#include "platform/linux/helper_thread.h"
#include "platform/linux/same_file.h"
#include "platform/linux/volume_traits.h"

namespace platform::posix {
namespace {

constexpr std::size_t kMostAhead = 64;  // each has a file open

// Whether so many more files can be open, and as many again for what else is opened meanwhile.
bool HasRoom(int opened) {
  rlimit limit{};
  const Descriptor lowest(fcntl(opened, F_DUPFD_CLOEXEC, 0));
  return lowest.Get() >= 0 && getrlimit(RLIMIT_NOFILE, &limit) == 0 &&
         static_cast<std::size_t>(lowest.Get()) + 2 * kMostAhead <= limit.rlim_cur;
}

}  // namespace

CopiesAhead::CopiesAhead(HostPath source, std::shared_ptr<const Descriptor> target)
    : source_(std::move(source)),
      folder_(source_.spelling.substr(0, source_.spelling.rfind('/') + 1)),
      target_(std::move(target)) {
  // One whose target's driver is a program waits for its answers most of the time.
  const std::size_t wanted = IsServedByProgram(target_->Get()) == true ? 2 : 1;
  threads_.reserve(wanted);
  while (threads_.size() < wanted) {
    std::thread thread = StartHelper([this] { Work(); });
    if (!thread.joinable()) {
      return;
    }
    threads_.push_back(std::move(thread));
  }
}

CopiesAhead::~CopiesAhead() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  added_.notify_all();
  for (std::thread& thread : threads_) {
    thread.join();
  }
}

void CopiesAhead::Add(const std::vector<std::string_view>& names) {
  count_ += names.size();
  {
    const std::lock_guard lock(mutex_);
    for (const std::string_view name : names) {
      items_.emplace_back().name = name;
    }
    // Without a thread, nothing is made ahead.
    finished_ = threads_.empty() ? items_.size() : finished_;
  }
  added_.notify_all();
}

std::unique_ptr<PreparedCopy> CopiesAhead::Take(std::string_view name, bool* isNext) {
  constexpr std::size_t kWorthWaking = 8;
  std::unique_lock lock(mutex_);
  *isNext = !items_.empty() && items_.front().name == name;
  if (!*isNext) {
    return nullptr;
  }
  if (finished_ == 0) {
    awaited_ = std::min(kWorthWaking, items_.size());
    made_.wait(lock, [this] { return finished_ >= awaited_; });
    awaited_ = 0;
  }
  std::unique_ptr<PreparedCopy> copy = std::move(items_.front().copy);
  items_.pop_front();
  --finished_;
  begun_ -= threads_.empty() ? 0 : 1;
  --count_;
  return copy;
}

void CopiesAhead::Work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    added_.wait(lock, [this] { return isEnding_ || begun_ < items_.size(); });
    if (isEnding_) {
      return;
    }
    Item& item = items_[begun_++];
    lock.unlock();
    std::unique_ptr<PreparedCopy> copy = Make(item.name);
    lock.lock();
    Finish(&item, std::move(copy));
  }
}

void CopiesAhead::Finish(Item* item, std::unique_ptr<PreparedCopy> copy) {
  item->copy = std::move(copy);
  item->isFinished = true;
  while (finished_ < begun_ && items_[finished_].isFinished) {
    ++finished_;
  }
  if (awaited_ != 0 && finished_ >= awaited_) {
    made_.notify_one();
  }
}

std::unique_ptr<PreparedCopy> CopiesAhead::Make(const std::string& name) const {
  try {
    HostPath source = source_;
    source.spelling = folder_ + name;
    source.name = name;
    source.entry = KnownStatus(source.At().folder, source.At().name);
    return S_ISREG(source.entry.st_mode) ? PreparedCopy::Make(source, target_) : nullptr;
  } catch (const std::exception&) {
    return nullptr;  // for want of memory; its turn will tell
  }
}

std::unique_ptr<PreparedCopy> CopiesInOrder::Take(const HostPath& file, const HostPath& target) {
  if (ahead_ == nullptr) {
    return nullptr;
  }
  bool isNext = false;
  std::unique_ptr<PreparedCopy> copy = ahead_->Take(file.At().name, &isNext);
  if (!isNext || (copy != nullptr && !copy->IsBeside(target))) {
    isOff_ = true;
    ahead_.reset();
    return nullptr;
  }
  return copy;
}

void CopiesInOrder::Went(Code code, const HostPath& file, const HostPath& target) {
  constexpr int kEnoughInRow = 4;
  constexpr std::size_t kFewest = 16;
  if (code != kSuccess) {
    inRow_ = 0;
    ahead_.reset();
    return;
  }
  if (ahead_ == nullptr && !isOff_ && ++inRow_ >= kEnoughInRow && IsNextRegular(kFewest) &&
      HasOtherProcessor()) {
    ahead_ = std::make_unique<CopiesAhead>(file, target.folder);
  }
  if (ahead_ == nullptr || ahead_->Count() > kMostAhead / 2 || !HasRoom(target.At().folder)) {
    return;
  }
  std::vector<std::string_view> names;
  for (std::size_t at = ahead_->Count(); at < kMostAhead && IsNextRegular(at); ++at) {
    names.push_back(listing_.Peek(at)->name);
  }
  if (!names.empty()) {
    ahead_->Add(names);
  }
}

bool CopiesInOrder::IsNextRegular(std::size_t count) const {
  const std::optional<FolderListing::Item> item = listing_.Peek(count);
  return item && item->type == DT_REG;
}

}  // namespace platform::posix
