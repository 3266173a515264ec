#include "platform/linux/error_map.h"
#include "platform/machine.h"
#include "platform/offline/registry/registry.h"
#include "platform/offline/volume/volume.h"
#include "platform/registry.h"

namespace platform::machine {

void Leave() {
  posix::CloseRegistry();
  posix::Machine::Forget();
}

Code CheckRegistry() {
  const registry::Key root(registry::Root::LocalMachine);
  for (const cvn::StringView hive : {u"SOFTWARE", u"SYSTEM"}) {
    registry::Key key;
    const Code code = registry::OpenKey(root, hive, registry::kQueryValue, &key);
    if (code != kSuccess) {
      return posix::Fail(code);
    }
  }
  return kSuccess;
}

}  // namespace platform::machine
