#include "platform/machine.h"

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

}  // namespace platform::machine
