#include "platform/name_fold.h"

#include "platform/formats/names.h"

namespace platform::paths {

cvn::String FoldName(cvn::StringView name) { return cvn::String(posix::Folded(name)); }

}  // namespace platform::paths
