// Iteration over the entries of a folder.
#pragma once

#include "platform/file_search.h"
#include "support/string.h"

namespace tessel {

// The entries that match a search path, in the order in which the platform finds them.
class Listing {
 public:
  explicit Listing(cvn::StringView path) : code_(search_.First(path, &entry_)) {}

  // 0, or why there is no entry: kNoMoreFiles at the end, another code when the search failed.
  platform::Code Status() const { return code_; }
  bool HasEntry() const { return code_ == platform::kSuccess; }
  const platform::files::SearchEntry& Entry() const { return entry_; }
  void Advance() { code_ = search_.Next(&entry_); }

 private:
  platform::files::Search search_;
  platform::files::SearchEntry entry_;
  platform::Code code_;
};

}  // namespace tessel
