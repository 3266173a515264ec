#include "platform/file_search.h"

#include <utility>

#include "platform/windows/wide.h"
#include "support/containers.h"

namespace platform::files {
namespace {

// A tag says what a reparse point is. Links and mounted folders stand for another name; a listing
// without tags, such as Wine's, has a zero.
bool IsLinkTag(DWORD tag) { return tag == 0 || IsReparseTagNameSurrogate(tag); }

}  // namespace

// What a listing tells, which on Windows is everything.
struct SearchEntry::Details {
  Attributes attributes = 0;
  std::uint64_t lastWriteTime = 0;
};

Attributes SearchEntry::GetAttributes() const { return details_->attributes; }

std::uint64_t SearchEntry::LastWriteTime() const { return details_->lastWriteTime; }

struct Search::State {
  cvn::List<SearchEntry> entries;
  std::size_t next = 0;
  Code end = kNoMoreFiles;

  static SearchEntry EntryOf(const WIN32_FIND_DATAW& data);
  Code ReadAll(cvn::StringView path);
};

SearchEntry Search::State::EntryOf(const WIN32_FIND_DATAW& data) {
  SearchEntry entry;
  entry.name_ =
      windows::ViewOf(data.cFileName, static_cast<std::size_t>(::lstrlenW(data.cFileName)));
  entry.isDirectory_ = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  entry.isLink_ =
      (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && IsLinkTag(data.dwReserved0);
  entry.isRegular_ = !entry.isDirectory_ && !entry.isLink_;
  entry.details_ = std::make_shared<SearchEntry::Details>();
  entry.details_->attributes =
      data.dwFileAttributes == 0 ? FILE_ATTRIBUTE_NORMAL : data.dwFileAttributes;
  entry.details_->lastWriteTime =
      std::uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32 | data.ftLastWriteTime.dwLowDateTime;
  return entry;
}

Code Search::State::ReadAll(cvn::StringView path) {
  windows::LastErrorKeeper lastError;
  WIN32_FIND_DATAW data;
  const HANDLE handle = ::FindFirstFileW(windows::Wide(windows::PathForCall(path)), &data);
  const Code code = lastError.Outcome(handle != INVALID_HANDLE_VALUE);
  if (code != kSuccess) {
    return code;
  }
  do {
    entries.push_back(EntryOf(data));
  } while (::FindNextFileW(handle, &data) != 0);
  end = ::GetLastError();
  ::FindClose(handle);
  return kSuccess;
}

Search::Search() = default;
Search::Search(Search&&) noexcept = default;
Search& Search::operator=(Search&&) noexcept = default;
Search::~Search() = default;

Code Search::First(cvn::StringView path, SearchEntry* entry) {
  auto state = std::make_unique<State>();
  const Code code = state->ReadAll(path);
  if (code != kSuccess) {
    Close();
    return code;
  }
  state_ = std::move(state);
  return Next(entry);
}

Code Search::Next(SearchEntry* entry) {
  if (state_ == nullptr) {
    SetLastError(kInvalidHandle);
    return kInvalidHandle;
  }
  if (state_->next == state_->entries.size()) {
    SetLastError(state_->end);
    return state_->end;
  }
  *entry = std::move(state_->entries[state_->next++]);
  return kSuccess;
}

void Search::Close() { state_.reset(); }

// Windows finds a folder anew at the cost of a look in its cache.
Code Delete(cvn::StringView path, const SearchEntry& /*found*/) { return Delete(path); }

Code Copy(const SearchEntry& /*found*/, cvn::StringView from, cvn::StringView to,
          bool failIfExists) {
  return Copy(from, to, failIfExists);
}

}  // namespace platform::files
