#include "platform/draft.h"

#include "platform/paths.h"
#include "platform/process.h"
#include "platform/random.h"
#include "support/format.h"

namespace platform::files {

cvn::String DraftPathFor(cvn::StringView path) {
  const std::size_t name = paths::FindFileName(path).size();
  return cvn::Format(u"%stessel-%u-%08x%08x.tmp", path.substr(0, path.size() - name),
                     process::CurrentId(), SecureRandom32(), SecureRandom32());
}

}  // namespace platform::files
