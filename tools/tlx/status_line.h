// What a command that takes long tells on a terminal meanwhile.
#pragma once

#include <cstdint>

#include "platform/clock.h"
#include "platform/streams.h"
#include "support/string.h"

namespace tlx {

// On standard error, and only where that is a terminal: from the first second on, five times a
// second at most. Cleared at the end of its life.
class StatusLine {
 public:
  StatusLine() = default;
  StatusLine(const StatusLine&) = delete;
  StatusLine& operator=(const StatusLine&) = delete;
  ~StatusLine() {
    if (isShown_) {
      platform::streams::WriteStatus(platform::streams::Output::Error, u"");
    }
  }

  // Whether the next text would be shown.
  bool IsDue() const {
    return platform::clock::NowTicks() >= next_ &&
           platform::streams::IsTerminal(platform::streams::Output::Error);
  }
  void Show(cvn::StringView text) {
    isShown_ = true;
    next_ = platform::clock::NowTicks() + platform::clock::kTicksPerSecond / 5;
    platform::streams::WriteStatus(platform::streams::Output::Error, text);
  }

 private:
  std::int64_t next_ = platform::clock::NowTicks() + platform::clock::kTicksPerSecond;
  bool isShown_ = false;
};

}  // namespace tlx
