#include "platform/machine.h"

#include <limits>

#include "platform/volume_state.h"

namespace platform::machine {
namespace {

Code Refuse() {
  SetLastError(kNotSupported);
  return kNotSupported;
}

}  // namespace

Code Create(cvn::StringView /*folder*/, const Description& /*description*/) { return Refuse(); }

Code Use(cvn::StringView /*folder*/) { return Refuse(); }

Code UseDefault() { return kSuccess; }

Code UseOrCreateDefault(const Description& /*description*/) { return kSuccess; }

cvn::String DefaultFolder() { return {}; }

Code CheckRegistry() { return kSuccess; }

Code LookAtVolume(VolumeState* state) {
  *state = {};
  state->freeBytes = std::numeric_limits<std::uint64_t>::max();
  return kSuccess;
}

}  // namespace platform::machine
