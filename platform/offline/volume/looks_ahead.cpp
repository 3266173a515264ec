#include "platform/offline/volume/looks_ahead.h"

#include <array>
#include <atomic>
#include <exception>
#include <string>
#include <thread>

#include "platform/linux/helper_thread.h"
#include "platform/linux/same_file.h"
#include "platform/linux/volume_traits.h"

namespace platform::posix {

void LooksAhead::Reached(int folder) {
  // Drivers let the host rely on a name for a second; these take some hundredths of that.
  constexpr std::size_t kMost = 256;
  constexpr std::size_t kFewest = 16;  // for which threads are worth their start
  found_ -= found_ == 0 ? 0 : 1;
  if (found_ != 0 || !listing_.Peek(kFewest - 1)) {
    return;
  }
  if (!isWorthwhile_) {
    isWorthwhile_ = HasOtherProcessor() && IsServedByProgram(folder) == true;
  }
  if (*isWorthwhile_) {
    Look(folder, kMost);
    found_ = kMost;
  }
}

void LooksAhead::Look(int folder, std::size_t count) const {
  std::atomic<std::size_t> next = 0;
  const auto look = [&] {
    try {
      for (std::size_t at = next++; at < count; at = next++) {
        const auto item = listing_.Peek(at);
        if (!item) {
          return;
        }
        KnownStatus(folder, std::string(item->name).c_str());
      }
    } catch (const std::exception&) {
      // For want of memory; its turn will tell.
    }
  };
  std::array<std::thread, 2> helpers;
  for (std::thread& helper : helpers) {
    helper = StartHelper(look);
  }
  look();
  for (std::thread& helper : helpers) {
    if (helper.joinable()) {
      helper.join();
    }
  }
}

}  // namespace platform::posix
