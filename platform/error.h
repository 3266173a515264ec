// The platform's status codes, and the thread's last error.
#pragma once

#include <cstdint>

namespace platform {

// A system error code as Windows numbers it; 0 is success. Scripts match its decimal form.
// A number in all but one respect: the compiler reports a call whose code nobody looks at.
class [[nodiscard]] Code {
 public:
  constexpr Code() = default;
  constexpr Code(std::uint32_t number) : number_(number) {}
  constexpr operator std::uint32_t() const { return number_; }

 private:
  std::uint32_t number_ = 0;
};

// Drops the code of an operation whose failure changes nothing for the caller. A comment beside
// the call says why it doesn't.
constexpr void IgnoreError(Code) {}

inline constexpr Code kSuccess = 0;
inline constexpr Code kFileNotFound = 2;
inline constexpr Code kPathNotFound = 3;
inline constexpr Code kTooManyOpenFiles = 4;
inline constexpr Code kAccessDenied = 5;
inline constexpr Code kInvalidHandle = 6;
inline constexpr Code kNotEnoughMemory = 8;
inline constexpr Code kInvalidDrive = 15;
inline constexpr Code kNotSameDevice = 17;
inline constexpr Code kNoMoreFiles = 18;
inline constexpr Code kWriteProtect = 19;
inline constexpr Code kWriteFault = 29;
inline constexpr Code kReadFault = 30;
inline constexpr Code kGenFailure = 31;
inline constexpr Code kSharingViolation = 32;
inline constexpr Code kNotSupported = 50;
inline constexpr Code kBadNetPath = 53;
inline constexpr Code kFileExists = 80;
inline constexpr Code kInvalidParameter = 87;
inline constexpr Code kBrokenPipe = 109;
inline constexpr Code kBufferOverflow = 111;
inline constexpr Code kDiskFull = 112;
inline constexpr Code kInvalidName = 123;
inline constexpr Code kModNotFound = 126;
inline constexpr Code kProcNotFound = 127;
inline constexpr Code kDirNotEmpty = 145;
inline constexpr Code kBadPathName = 161;
inline constexpr Code kBusy = 170;
inline constexpr Code kAlreadyExists = 183;
inline constexpr Code kBadExeFormat = 193;
inline constexpr Code kEnvVarNotFound = 203;
inline constexpr Code kFilenameExceedsRange = 206;
inline constexpr Code kFileTooLarge = 223;
inline constexpr Code kMoreData = 234;
inline constexpr Code kNoMoreItems = 259;
inline constexpr Code kDirectory = 267;
inline constexpr Code kBadDatabase = 1009;
inline constexpr Code kKeyDeleted = 1018;
inline constexpr Code kChildMustBeVolatile = 1021;
inline constexpr Code kNotFound = 1168;
inline constexpr Code kCancelled = 1223;
inline constexpr Code kUnsupportedType = 1630;
inline constexpr Code kCantAccessFile = 1920;
inline constexpr Code kCantResolveFilename = 1921;

// The code that the calling thread's last failed operation left, as GetLastError. A successful
// operation of this layer leaves it alone, unless its header says otherwise.
Code LastError();
void SetLastError(Code code);

}  // namespace platform
