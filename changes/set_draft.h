// The folder of a kept set under construction.
#pragma once

#include "platform/error.h"
#include "platform/files.h"
#include "support/string.h"

namespace tessel {

inline constexpr cvn::StringView kManifestName = u"manifest.json";
inline constexpr cvn::StringView kBytesName = u"bytes";

// Lies beside the set as "SET.xxxxxxxx.tmp" with eight hexadecimal digits. Nothing is left of it
// unless it gets its name; what a killed process has left, the next draft of the same set removes.
class SetDraft {
 public:
  // `folder` is the set's, without a separator at its end, and outlives this.
  explicit SetDraft(cvn::StringView folder);
  SetDraft(const SetDraft&) = delete;
  SetDraft& operator=(const SetDraft&) = delete;
  ~SetDraft();

  const cvn::String& Path() const { return draft_; }

  // Makes it, with a folder for bytes in it. 183 when there is something of the set's name.
  platform::Code Make();
  // Gives it the set's name, when all of it has reached the disk.
  platform::Code Finish();

 private:
  const cvn::StringView folder_;
  const cvn::String draft_;
  platform::files::File claim_;  // tells others that this draft is being made
  bool isMade_ = false;
};

}  // namespace tessel
