#include "platform/held_file.h"

#include <utility>

namespace platform::files {

Code HeldFile::Hold(File original, cvn::StringView path) {
  file_ = std::move(original);
  path_ = path;
  return kSuccess;
}

}  // namespace platform::files
