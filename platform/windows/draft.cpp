#include "platform/draft.h"

#include <mutex>
#include <set>
#include <string>

#include "platform/formats/draft_name.h"
#include "platform/paths.h"
#include "platform/windows/wide.h"

namespace platform::files {
namespace {

using windows::PathForCall;
using windows::Wide;

// A process that can't be opened for another reason than its end is there.
bool HasEnded(DWORD process) {
  const HANDLE opened =
      ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, process);
  if (opened == nullptr) {
    return ::GetLastError() == ERROR_INVALID_PARAMETER;
  }
  const bool hasEnded = ::WaitForSingleObject(opened, 0) == WAIT_OBJECT_0;
  ::CloseHandle(opened);
  return hasEnded;
}

// Once for each folder, which may have any number of files.
bool IsFirstCall(cvn::StringView folder) {
  constexpr std::size_t kMostFolders = 10'000;
  static std::mutex mutex;
  static std::set<std::u16string> known;
  const std::lock_guard lock(mutex);
  return known.size() <= kMostFolders && known.emplace(folder).second;
}

}  // namespace

void RemoveAbandonedDrafts(cvn::StringView path) {
  windows::LastErrorKeeper lastError;
  const cvn::StringView folder = path.substr(0, path.size() - paths::FindFileName(path).size());
  if (!IsFirstCall(folder)) {
    return;
  }
  cvn::String pattern(folder);
  pattern.Append(u"tessel-*.tmp");
  WIN32_FIND_DATAW data;
  const HANDLE search = ::FindFirstFileW(Wide(PathForCall(pattern)), &data);
  if (search == INVALID_HANDLE_VALUE) {
    return;
  }
  do {
    const cvn::StringView name =
        windows::ViewOf(data.cFileName, static_cast<std::size_t>(::lstrlenW(data.cFileName)));
    const DWORD maker = MakerOfDraft(name);
    if (maker != 0 && HasEnded(maker)) {
      cvn::String draft(folder);
      draft.Append(name);
      ::DeleteFileW(Wide(PathForCall(draft)));  // one that can't go stays
    }
  } while (::FindNextFileW(search, &data) != 0);
  ::FindClose(search);
}

Code ClaimDraft(cvn::StringView /*path*/, File* /*claim*/) { return kSuccess; }

}  // namespace platform::files
