#include "tools/tlx/set_operand.h"

#include "platform/paths.h"
#include "support/format.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_operand.h"

namespace tlx {

int FindPlaceOfSet(cvn::StringView operand, cvn::String* folder) {
  const std::size_t end = operand.find_last_not_of(u"/\\");
  *folder = PathWithDriveOf(operand.substr(0, end + 1));
  return platform::paths::Exists(*folder)
             ? FailOnFile(operand, u"there is something of that name already")
             : kExitDone;
}

int ReadSet(cvn::StringView operand, tessel::KeptSet* set) {
  cvn::String problem;
  const platform::Code code = set->Read(PathWithDriveOf(operand), &problem);
  if (code == platform::kSuccess) {
    return kExitDone;
  }
  return FailOnFile(operand, code == tessel::kDamagedSet
                                 ? problem
                                 : cvn::Format(u"%s: %s", problem, DescribeCode(code)));
}

}  // namespace tlx
