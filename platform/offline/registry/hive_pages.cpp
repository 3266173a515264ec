#include "platform/offline/registry/hive_pages.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "platform/linux/error_map.h"

namespace platform::posix {

// All that is mapped, for the handler of SIGBUS: a page of a mapped file that isn't there any more,
// or that the disk can't give, is read as zeros then, and its hive is known to be torn.
struct TornPages {
  static constexpr std::size_t kMost = 1024;
  static inline std::atomic<HivePages*> all[kMost];
  static inline struct sigaction before = {};

  static void Handle(int signal, siginfo_t* info, void* context) {
    auto* const at = static_cast<std::byte*>(info->si_addr);
    for (const auto& each : all) {
      HivePages* const pages = each.load();
      if (pages == nullptr || at < pages->start_ || at >= pages->start_ + pages->size_) {
        continue;
      }
      std::byte* const page = pages->start_ + (at - pages->start_) / HivePages::kPage *
                                                  static_cast<std::ptrdiff_t>(HivePages::kPage);
      if (mmap(page, HivePages::kPage, PROT_READ | PROT_WRITE,
               MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED) {
        pages->isTorn_ = true;
        return;
      }
    }
    // Not ours: as if there were no handler.
    sigaction(signal, &before, nullptr);
    if (info->si_code <= 0) {
      raise(signal);
    }
    static_cast<void>(context);
  }

  static bool Add(HivePages* pages) {
    static const bool isHandled = [] {
      struct sigaction action = {};
      action.sa_sigaction = Handle;
      action.sa_flags = SA_SIGINFO | SA_ONSTACK;
      return sigaction(SIGBUS, &action, &before) == 0;
    }();
    for (auto& each : all) {
      HivePages* none = nullptr;
      if (isHandled && each.compare_exchange_strong(none, pages)) {
        return true;
      }
    }
    return false;
  }

  static void Remove(HivePages* pages) {
    for (auto& each : all) {
      HivePages* one = pages;
      each.compare_exchange_strong(one, nullptr);
    }
  }
};

namespace {

// What a hive may grow to. Its addresses are taken at once, and memory as it is used.
constexpr std::size_t kReserved = std::size_t{1} << 31;

}  // namespace

void HivePages::Reset() {
  if (start_ != nullptr) {
    TornPages::Remove(this);
    munmap(start_, kReserved);
  }
  start_ = nullptr;
  size_ = 0;
  marks_.clear();
  changed_.clear();
  missing_.clear();
  isTorn_ = false;
}

Code HivePages::Map(int file, std::size_t fileSize, std::size_t size) {
  Reset();
  if (size > kReserved) {
    return kBadDatabase;
  }
  marks_.resize(size / kPage);
  void* const reserved =
      mmap(nullptr, kReserved, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (reserved == MAP_FAILED) {
    return CodeOf(errno, kReadFault);
  }
  start_ = static_cast<std::byte*>(reserved);
  const std::size_t mapped = std::min((fileSize + kPage - 1) / kPage * kPage, size);
  const bool isMapped =
      (mapped == 0 || mmap(start_, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, file,
                           0) != MAP_FAILED) &&
      (mapped == size || mprotect(start_ + mapped, size - mapped, PROT_READ | PROT_WRITE) == 0);
  const Code code = isMapped ? kSuccess : CodeOf(errno, kReadFault);
  size_ = size;
  highest_ = size;
  if (code == kSuccess && TornPages::Add(this)) {
    return kSuccess;
  }
  Reset();
  return code == kSuccess ? kNotEnoughMemory : code;
}

void HivePages::Mark(std::size_t first, std::size_t end, std::uint8_t mark,
                     std::vector<std::uint32_t>* pages) {
  for (std::size_t page = std::max<std::size_t>(first, 1); page < end; ++page) {
    if ((marks_[page] & mark) == 0) {
      pages->push_back(static_cast<std::uint32_t>(page));
      marks_[page] |= mark;
    }
  }
}

std::byte* HivePages::Change(std::uint32_t offset, std::uint32_t size) {
  Mark(offset / kPage, (std::size_t{offset} + size + kPage - 1) / kPage, kChanged, &changed_);
  return start_ + offset;
}

Code HivePages::Grow(std::uint32_t size) {
  if (size_ + size > kReserved - kPage) {
    return kDiskFull;
  }
  marks_.reserve((size_ + size) / kPage);
  changed_.reserve(changed_.size() + size / kPage);
  if (mprotect(start_ + size_, size, PROT_READ | PROT_WRITE) != 0) {
    return CodeOf(errno, kWriteFault);
  }
  if (size_ < highest_) {
    std::memset(start_ + size_, 0, std::min<std::size_t>(size, highest_ - size_));
  }
  const std::size_t before = size_ / kPage;
  size_ += size;
  highest_ = std::max(highest_, size_);
  marks_.resize(size_ / kPage);
  Mark(before, size_ / kPage, kChanged, &changed_);
  return kSuccess;
}

void HivePages::Shrink(std::size_t size) {
  const auto isCut = [size](std::uint32_t page) { return page * kPage >= size; };
  std::erase_if(changed_, isCut);
  std::erase_if(missing_, isCut);
  marks_.resize(size / kPage);
  size_ = size;
}

Code HivePages::Apply(std::uint32_t dataSize, std::span<const LoggedPage> pages) {
  const std::size_t wanted = kPage + dataSize;
  if (wanted > size_) {
    const Code code = Grow(static_cast<std::uint32_t>(wanted - size_));
    if (code != kSuccess) {
      return code;
    }
  } else if (wanted < size_) {
    Shrink(wanted);
  }
  for (const LoggedPage& page : pages) {
    if (!page.bytes.empty()) {
      std::memcpy(Change(static_cast<std::uint32_t>(kPage + page.offset),
                         static_cast<std::uint32_t>(page.bytes.size())),
                  page.bytes.data(), page.bytes.size());
    }
  }
  Settle();
  return kSuccess;
}

void HivePages::Settle() {
  for (const std::uint32_t page : changed_) {
    Mark(page, page + 1, kMissing, &missing_);
  }
  Forget(&changed_, kChanged);
}

void HivePages::Forget(std::vector<std::uint32_t>* pages, std::uint8_t mark) {
  for (const std::uint32_t page : *pages) {
    marks_[page] = static_cast<std::uint8_t>(marks_[page] & ~mark);
  }
  pages->clear();
}

std::vector<LoggedPage> HivePages::Changed() {
  missing_.reserve(missing_.size() + changed_.size());
  return Sorted(&changed_, false);
}

std::vector<LoggedPage> HivePages::Missing() { return Sorted(&missing_, true); }

std::vector<LoggedPage> HivePages::Sorted(std::vector<std::uint32_t>* pages, bool inRuns) {
  std::ranges::sort(*pages);
  std::vector<LoggedPage> found;
  for (const std::uint32_t page : *pages) {
    const auto offset = static_cast<std::uint32_t>((page - 1) * kPage);
    if (inRuns && !found.empty() && found.back().offset + found.back().bytes.size() == offset) {
      found.back().bytes = {found.back().bytes.data(), found.back().bytes.size() + kPage};
    } else {
      found.push_back({offset, {start_ + page * kPage, kPage}});
    }
  }
  return found;
}

}  // namespace platform::posix
