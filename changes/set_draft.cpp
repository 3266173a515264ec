#include "changes/set_draft.h"

#include <algorithm>

#include "files/listing.h"
#include "files/path_text.h"
#include "platform/draft.h"
#include "platform/paths.h"
#include "platform/private_file.h"
#include "platform/random.h"
#include "support/format.h"

namespace tessel {
namespace {

namespace files = platform::files;
using platform::Code;
using platform::IgnoreError;
using platform::kSuccess;

constexpr cvn::StringView kClaimName = u"claim";
constexpr cvn::StringView kEnding = u".tmp";

bool IsHexadecimal(cvn::StringView text, std::size_t digits) {
  return text.size() == digits &&
         text.find_first_not_of(u"0123456789abcdef") == cvn::StringView::npos;
}

// Whether a name is that of a draft of the set.
bool IsDraftOf(cvn::StringView set, cvn::StringView name) {
  constexpr std::size_t kDigits = 8;
  const std::size_t begin = set.size() + 1;
  return name.size() == begin + kDigits + kEnding.size() && name.starts_with(set) &&
         name[set.size()] == u'.' && name.ends_with(kEnding) &&
         IsHexadecimal(name.substr(begin, kDigits), kDigits);
}

// Removes what a draft can have in it, and nothing else: whoever may write to the folder beside the
// set could have made something of that name. What doesn't go stays.
void RemoveDraft(const cvn::String& draft) {
  constexpr std::size_t kDigestDigits = 64;
  const cvn::String bytes = JoinPath(draft, kBytesName);
  for (Listing listing(JoinPath(bytes, u"*")); listing.HasEntry(); listing.Advance()) {
    if (IsHexadecimal(listing.Entry().Name(), kDigestDigits)) {
      IgnoreError(files::Delete(JoinPath(bytes, listing.Entry().Name())));
    }
  }
  files::RemoveAbandonedDrafts(JoinPath(draft, kManifestName));
  for (const cvn::StringView name : {kManifestName, kClaimName}) {
    IgnoreError(files::Delete(JoinPath(draft, name)));
  }
  IgnoreError(files::RemoveDirectory(bytes));
  IgnoreError(files::RemoveDirectory(draft));
}

void RemoveAbandonedDraftsOf(cvn::StringView folder) {
  const cvn::StringView name = platform::paths::FindFileName(folder);
  const cvn::StringView parent = folder.substr(0, folder.size() - name.size());
  for (Listing listing(cvn::Format(u"%s.*%s", folder, kEnding)); listing.HasEntry();
       listing.Advance()) {
    const files::SearchEntry& entry = listing.Entry();
    if (!entry.IsDirectory() || entry.IsLink() || !IsDraftOf(name, entry.Name())) {
      continue;
    }
    const cvn::String draft = cvn::Format(u"%s%s", parent, entry.Name());
    files::File claim;
    const Code code = files::Open(JoinPath(draft, kClaimName), files::Access::Read,
                                  files::Share::None, files::Disposition::OpenExisting, &claim);
    claim.Close();
    if (code == kSuccess || code == platform::kFileNotFound) {
      RemoveDraft(draft);
    }
  }
}

}  // namespace

SetDraft::SetDraft(cvn::StringView folder)
    : folder_(folder),
      draft_(cvn::Format(u"%s.%08x%s", folder, platform::SecureRandom32(), kEnding)) {}

SetDraft::~SetDraft() {
  if (isMade_) {
    claim_.Close();
    RemoveDraft(draft_);  // why it is in vain has been told
  }
}

Code SetDraft::Make() {
  if (platform::paths::Exists(folder_)) {
    return platform::kAlreadyExists;
  }
  RemoveAbandonedDraftsOf(folder_);
  Code code = files::CreateDirectory(draft_);
  isMade_ = code == kSuccess;
  code = isMade_ ? files::CreatePrivate(JoinPath(draft_, kClaimName), &claim_) : code;
  return code == kSuccess ? files::CreateDirectory(JoinPath(draft_, kBytesName)) : code;
}

Code SetDraft::Finish() {
  claim_.Close();
  Code code = files::Delete(JoinPath(draft_, kClaimName));
  code = code == kSuccess ? files::FlushFolder(JoinPath(draft_, kBytesName)) : code;
  code = code == kSuccess ? files::FlushFolder(draft_) : code;
  code = code == kSuccess ? files::Move(draft_, folder_, files::kMoveWriteThrough) : code;
  isMade_ = code != kSuccess;
  return code;
}

}  // namespace tessel
