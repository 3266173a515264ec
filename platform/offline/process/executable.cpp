#include "platform/offline/process/executable.h"

#include <elf.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/linux/error_map.h"

namespace platform::posix {
namespace {

constexpr std::string_view kScriptMark = "#!";
constexpr std::size_t kHeadSize = 256;  // of a script; the kernel reads no more of its first line
constexpr int kMostInterpreters = 5;    // one for the other; also the kernel's
constexpr std::string_view kBlanks = " \t";

std::string_view Trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  const std::size_t last = text.find_last_not_of(kBlanks);
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

// Reads a script's first line as the kernel does: the interpreter, then at most one argument. False
// when there is none, or its path is cut, or counts from wherever the script is started.
bool ReadFirstLine(std::string_view head, std::string* interpreter, std::string* argument) {
  const std::size_t end = std::min({head.find('\n'), head.find('\0'), head.size()});
  const std::string_view line = Trimmed(head.substr(kScriptMark.size(), end - kScriptMark.size()));
  const std::size_t blank = line.find_first_of(kBlanks);
  if (!line.starts_with('/') || (end == kHeadSize && blank == std::string_view::npos)) {
    return false;
  }
  *interpreter = line.substr(0, blank);
  *argument = Trimmed(line.substr(std::min(blank, line.size())));
  return true;
}

}  // namespace

Code Executable::Open(std::vector<std::string>* arguments) {
  for (int depth = 0; depth < kMostInterpreters; ++depth) {
    const Code code = file_.Open(arguments->front());
    if (code != kSuccess) {
      return code;
    }
    const std::string head = file_.Head(kHeadSize);
    isNative_ = head.starts_with(ELFMAG);
    if (!head.starts_with(kScriptMark)) {
      return kSuccess;
    }
    if (faccessat(AT_FDCWD, file_.OpenPath().c_str(), X_OK, AT_EACCESS) != 0) {
      return CodeOf(errno);
    }
    std::string interpreter;
    std::string argument;
    if (!ReadFirstLine(head, &interpreter, &argument)) {
      return kBadExeFormat;
    }
    arguments->front() = file_.Path();
    if (!argument.empty()) {
      arguments->insert(arguments->begin(), std::move(argument));
    }
    arguments->insert(arguments->begin(), std::move(interpreter));
  }
  return kBadExeFormat;
}

bool Executable::IsWindowsProgram() const { return file_.Head(2) == "MZ"; }

}  // namespace platform::posix
