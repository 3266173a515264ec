#include "changes/kept_set.h"

#include <algorithm>
#include <array>
#include <set>
#include <span>
#include <utility>

#include "changes/manifest.h"
#include "changes/manifest_text.h"
#include "changes/set_draft.h"
#include "files/path_text.h"
#include "platform/file_digest.h"
#include "platform/held_folder.h"
#include "platform/private_file.h"
#include "platform/whole_file.h"
#include "support/format.h"
#include "support/utf.h"

namespace tessel {
namespace {

namespace files = platform::files;
using platform::Code;
using platform::kSuccess;
using platform::machine::ChangeBytes;
using platform::machine::ChangeSet;
using platform::machine::EntryKind;
using platform::machine::EntryState;
using platform::machine::FileChange;
using platform::machine::Side;

const std::optional<EntryState>& StateOf(const FileChange& change, Side side) {
  return side == Side::Before ? change.before : change.after;
}

bool IsFile(const std::optional<EntryState>& state) {
  return state && state->kind == EntryKind::File;
}

cvn::String BytesPath(cvn::StringView folder, const EntryState& state) {
  return JoinPath(JoinPath(folder, kBytesName), cvn::Utf8ToWide(state.digest));
}

// Whether an open file has the bytes that the state tells.
bool HoldsBytes(const files::File& file, const EntryState& state) {
  const platform::ByteSource source(file);
  const std::optional<platform::Bytes> digest = platform::WholeDigest(source);
  return digest && source.Size() == state.size && ToHex(*digest) == state.digest;
}

Code CopyBytes(files::File* from, const cvn::String& to, files::File* copy) {
  Code code = files::CreatePrivate(to, copy);
  std::vector<std::byte> piece(std::size_t{1} << 18);
  std::size_t count = 1;
  while (code == kSuccess && count != 0) {
    code = from->Read(piece, &count);
    code = code == kSuccess ? copy->Write(std::span(piece).first(count)) : code;
  }
  return code == kSuccess ? copy->Flush() : code;
}

// Copies the bytes of one side, which the state tells.
Code KeepBytes(cvn::StringView folder, const FileChange& change, Side side, ChangeBytes* bytes) {
  const EntryState& state = *StateOf(change, side);
  const cvn::String path = BytesPath(folder, state);
  files::File from;
  files::File copy;
  Code code = bytes->Open(change, side, &from);
  code = code == kSuccess ? CopyBytes(&from, path, &copy) : code;
  copy.Close();
  if (code == kSuccess) {
    code = files::OpenRegular(path, &copy);
  }
  return code == kSuccess && !HoldsBytes(copy, state) ? platform::kReadFault : code;
}

Code KeepAllBytes(cvn::StringView folder, const ChangeSet& changes, ChangeBytes* bytes,
                  cvn::String* problem) {
  std::set<std::string> kept;
  for (const FileChange& change : changes.files) {
    for (const Side side : {Side::Before, Side::After}) {
      if (!HasKeptBytes(change, side) || !kept.insert(StateOf(change, side)->digest).second) {
        continue;
      }
      const Code code = KeepBytes(folder, change, side, bytes);
      if (code != kSuccess) {
        *problem = cvn::Format(u"the bytes of %s can't be kept", change.path);
        return code;
      }
    }
  }
  return kSuccess;
}

}  // namespace

bool HasKeptBytes(const FileChange& change, Side side) {
  const bool isSame = IsFile(change.before) && IsFile(change.after) &&
                      change.before->digest == change.after->digest;
  return IsFile(StateOf(change, side)) && !isSame;
}

Code PutRecord(cvn::StringView folder, const SetRecord& record, const ChangeSet& changes) {
  const std::string text = PrintManifest(record, changes);
  if (text.empty()) {
    return platform::kNotEnoughMemory;
  }
  platform::OutputFile file(JoinPath(folder, kManifestName));
  const Code code = file.Write(text, platform::OutputFile::Readers::OwnerOnly);
  return code == kSuccess ? file.Commit() : code;
}

Code WriteSet(cvn::StringView folder, const SetRecord& record, const ChangeSet& changes,
              ChangeBytes* bytes, cvn::String* problem) {
  SetDraft draft(folder);
  *problem = u"the folder can't be made";
  Code code = draft.Make();
  if (code == kSuccess) {
    code = KeepAllBytes(draft.Path(), changes, bytes, problem);
  }
  if (code != kSuccess) {
    return code;
  }
  *problem = u"the manifest can't be written";
  code = PutRecord(draft.Path(), record, changes);
  code = code == kSuccess ? draft.Finish() : code;
  if (code == kSuccess) {
    problem->Clear();
  }
  return code;
}

Code KeptSet::Read(cvn::StringView folder, cvn::String* problem) {
  folder_ = folder;
  std::string text;
  files::File file;
  *problem = u"its manifest.json can't be read";
  Code code = files::OpenRegular(JoinPath(folder_, kManifestName), &file);
  code = code == kSuccess ? platform::ReadWholeFile(&file, &text) : code;
  if (code != kSuccess) {
    return code;
  }
  cvn::String fault;
  if (!ParseManifest(text, &record_, &changes_, &fault)) {
    *problem = cvn::Format(u"its manifest.json is damaged: %s", fault);
    return kDamagedSet;
  }
  std::set<std::string> checked;
  for (const FileChange& change : changes_.files) {
    for (const Side side : {Side::Before, Side::After}) {
      const auto& state = StateOf(change, side);
      if (code == kSuccess && HasKeptBytes(change, side) &&
          checked.insert(state->digest + ' ' + std::to_string(state->size)).second) {
        code = CheckBytes(*state, problem);
      }
    }
  }
  return code;
}

Code KeptSet::CheckBytes(const EntryState& state, cvn::String* problem) const {
  files::File file;
  const Code code = files::OpenRegular(BytesPath(folder_, state), &file);
  if (code == kSuccess && HoldsBytes(file, state)) {
    return kSuccess;
  }
  *problem = cvn::Format(code == kSuccess ? cvn::StringView(u"its file bytes/%s is damaged")
                                          : cvn::StringView(u"its file bytes/%s can't be read"),
                         cvn::Utf8ToWide(state.digest));
  return code == kSuccess ? kDamagedSet : code;
}

Code KeptSet::Open(const FileChange& change, Side side, files::File* file) {
  if (!HasKeptBytes(change, side)) {
    platform::SetLastError(platform::kFileNotFound);
    return platform::kFileNotFound;
  }
  return files::OpenRegular(BytesPath(folder_, *StateOf(change, side)), file);
}

Code KeptSet::PutState(SetState state) {
  SetRecord record = record_;
  record.state = state;
  const Code code = PutRecord(folder_, record, changes_);
  if (code == kSuccess) {
    record_ = record;
  }
  return code;
}

}  // namespace tessel
