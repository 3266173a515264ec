// Which of the files that are gone and those that are new are the same.
#pragma once

#include "platform/machine_changes.h"

namespace platform::posix {

// Makes moves of what was removed in one place and added in another: files whose bytes no other of
// them has, and folders whose whole content no other has. `*changes` is in the order of ComesBefore
// and stays in it. Empty files, and folders without any bytes, aren't told apart, so they are never
// moved but with a folder.
void FindMoves(cvn::List<machine::FileChange>* changes);

}  // namespace platform::posix
