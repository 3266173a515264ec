#include "platform/linux/error_map.h"

#include <cerrno>

namespace platform {
namespace {

thread_local Code lastError = kSuccess;

}  // namespace

Code LastError() { return lastError; }
void SetLastError(Code code) { lastError = code; }

}  // namespace platform

namespace platform::posix {
namespace {

struct Pair {
  int error;
  Code code;
};

constexpr Pair kPairs[] = {
    {0, kSuccess},
    {ENOENT, kFileNotFound},
    {ENOTDIR, kPathNotFound},
    {EACCES, kAccessDenied},
    {EPERM, kAccessDenied},
    {EISDIR, kAccessDenied},
    {EROFS, kWriteProtect},
    {EEXIST, kFileExists},
    {ENOTEMPTY, kDirNotEmpty},
    {EXDEV, kNotSameDevice},
    {ENOSPC, kDiskFull},
    {EDQUOT, kDiskFull},
    {EFBIG, kFileTooLarge},
    {ENAMETOOLONG, kFilenameExceedsRange},
    {ELOOP, kCantResolveFilename},
    {EILSEQ, kInvalidName},
    {EMFILE, kTooManyOpenFiles},
    {ENFILE, kTooManyOpenFiles},
    {ENOMEM, kNotEnoughMemory},
    {EBADF, kInvalidHandle},
    {EINVAL, kInvalidParameter},
    {EBUSY, kBusy},
    {ETXTBSY, kSharingViolation},
    {EPIPE, kBrokenPipe},
    {ENOSYS, kNotSupported},
    {EOPNOTSUPP, kNotSupported},
};

}  // namespace

Code CodeOf(int error, Code ioFault) {
  if (error == EIO) {
    return ioFault;
  }
  if (error == EOPNOTSUPP && ioFault != kGenFailure) {
    return kCantAccessFile;
  }
  for (const Pair& pair : kPairs) {
    if (pair.error == error) {
      return pair.code;
    }
  }
  return kGenFailure;
}

Code Fail(Code code) {
  SetLastError(code);
  return code;
}

Code Report(Code code) { return code == kSuccess ? code : Fail(code); }

}  // namespace platform::posix
