// What a search in a folder finds.
#pragma once

#include "platform/file_search.h"
#include "support/string.h"

namespace tessel {

// What a search finds, in its order.
class Listing {
 public:
  explicit Listing(cvn::StringView path) : code_(search_.First(path, &entry_)) {}

  // Why the search found nothing, at first; later, why it is at its end.
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
