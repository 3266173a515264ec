#include "tools/tlx/event_place.h"

#include <algorithm>
#include <string>

#include "platform/clock.h"
#include "platform/machine.h"
#include "platform/paths.h"
#include "support/format.h"
#include "telemetry/event_spool.h"
#include "tools/tlx/messages.h"

namespace tlx {
namespace {

using platform::Code;
namespace machine = platform::machine;

constexpr cvn::StringView kThisMachine = u"this machine";

// After so many milliseconds a registry is asked again where the product is.
constexpr std::uint32_t kAskAgain = 60'000;

// Closes the machine at the end of its life: the next place may be in another.
struct Visit {
  Visit() = default;
  Visit(const Visit&) = delete;
  Visit& operator=(const Visit&) = delete;
  ~Visit() { machine::Leave(); }
};

}  // namespace

cvn::String EventPlace::Name() const {
  const cvn::String name = folder_.Empty() ? machine::DefaultFolder() : folder_;
  return name.Empty() ? cvn::String(kThisMachine) : name;
}

cvn::String EventPlace::PathOf(cvn::StringView file) const {
  const bool isThisSystem = isMachine_ && machine::DefaultFolder().Empty();
  cvn::String path = isThisSystem ? spool_ : Name();
  if (isMachine_ && !isThisSystem) {
    std::u16string below(spool_.AsView().substr(std::min<std::size_t>(spool_.Length(), 2)));
    std::ranges::replace(below, u'\\', u'/');
    path.Append(below);
  }
  platform::paths::AddBackslash(&path);
  path.Append(file);
  return path;
}

// Whether it is a machine is decided anew each time: a volume may have been mounted meanwhile.
Code EventPlace::OpenMachine() {
  const Code code = folder_.Empty() ? machine::UseDefault() : machine::Use(folder_);
  isMachine_ = code == platform::kSuccess || folder_.Empty();
  const bool isOther = code == platform::kNotSupported || code == machine::kUnrecognizedVolume;
  return isOther && !isMachine_ ? Code(platform::kSuccess) : code;
}

Code EventPlace::FindSpool() {
  const std::uint32_t now = platform::clock::TickCount();
  if (!spool_.Empty() && now - askedAt_ < kAskAgain) {
    return platform::kSuccess;
  }
  const Code code = machine::CheckRegistry();
  if (code == platform::kSuccess) {
    spool_ = tessel::GetEventsFolder();
    askedAt_ = now;
  }
  return code;
}

EventPlace::State EventPlace::Open(platform::files::HeldFolder* held, cvn::String* problem) {
  const Visit visit;
  Code code = OpenMachine();
  if (code == platform::kSuccess && isMachine_) {
    code = FindSpool();
    if (code == platform::kSuccess && spool_.Empty()) {
      *problem = u"the product isn't installed there, and so has no events";
      return State::Failed;
    }
  }
  if (code == platform::kSuccess) {
    code = held->Hold(isMachine_ ? spool_ : platform::paths::OfCaller(folder_));
    if (isMachine_ && (code == platform::kPathNotFound || code == platform::kFileNotFound)) {
      return State::Unused;
    }
  }
  if (code == platform::kSuccess) {
    return State::Found;
  }
  *problem = cvn::Format(u"cannot be read: %s", DescribeCode(code));
  return code == platform::kPathNotFound || code == platform::kFileNotFound ? State::Missing
                                                                            : State::Failed;
}

}  // namespace tlx
