#include "platform/standard_files.h"

#include "platform/windows/wide.h"

namespace platform {

Code OpenStandardFile(StandardFile which, files::File* file) {
  windows::LastErrorKeeper lastError;
  const HANDLE stream =
      ::GetStdHandle(which == StandardFile::Input ? STD_INPUT_HANDLE : STD_OUTPUT_HANDLE);
  if (stream == nullptr || stream == INVALID_HANDLE_VALUE) {
    return kInvalidHandle;
  }
  HANDLE handle = nullptr;
  const BOOL isOpen = ::DuplicateHandle(::GetCurrentProcess(), stream, ::GetCurrentProcess(),
                                        &handle, 0, FALSE, DUPLICATE_SAME_ACCESS);
  if (isOpen != 0) {
    *file = files::File(reinterpret_cast<std::intptr_t>(handle));
  }
  return lastError.Outcome(isOpen != 0);
}

}  // namespace platform
