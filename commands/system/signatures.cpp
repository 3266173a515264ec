#include "commands/system/signatures.h"

#include "engine/variable_store.h"
#include "trace/trace.h"
#include "trust/digital_signature.h"
#include "trust/path_key.h"

namespace tessel {

bool FunctionFileIsSigned::Parse() { return ReadNonEmpty(u"path", &path_); }

void FunctionFileIsSigned::Execute() {
  const cvn::String path = TidyPath(ExpandVariables(path_, variables));
  TraceLine(u"fileIsSigned function called for %s", path);
  result = IsFileSigned(path);
  TraceEnd(u"fileIsSigned");
}

}  // namespace tessel
