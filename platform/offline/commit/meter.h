// How far a commit has come.
#pragma once

#include <cstdint>

#include "platform/machine_commit.h"

namespace platform::posix {

class Meter {
 public:
  // What a step costs beside the bytes that it reads or writes, in bytes.
  static constexpr std::uint64_t kStep = std::uint64_t{16} << 10;

  Meter(const machine::CommitProgress& progress, std::uint64_t all)
      : progress_(progress), all_(all) {}

  void Add(std::uint64_t bytes) {
    done_ += kStep + bytes;
    if (progress_) {
      progress_(done_ < all_ ? done_ : all_, all_);
    }
  }

 private:
  const machine::CommitProgress& progress_;
  const std::uint64_t all_;
  std::uint64_t done_ = 0;
};

}  // namespace platform::posix
