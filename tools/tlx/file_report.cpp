#include "tools/tlx/file_report.h"

#include <algorithm>
#include <span>
#include <utility>

#include "changes/manifest_text.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/own_files.h"

namespace tlx {
namespace {

namespace files = platform::files;
using platform::machine::ChangeBytes;
using platform::machine::EntryKind;
using platform::machine::EntryState;
using platform::machine::FileChange;
using platform::machine::Side;

struct AttributeName {
  files::Attributes attribute;
  cvn::StringView name;
};

constexpr AttributeName kAttributeNames[] = {{files::kReadOnly, u"READONLY"},
                                             {files::kHidden, u"HIDDEN"},
                                             {files::kSystem, u"SYSTEM"},
                                             {files::kArchive, u"ARCHIVE"}};

cvn::String AttributeText(files::Attributes attributes) {
  cvn::String text;
  for (const AttributeName& one : kAttributeNames) {
    if ((attributes & one.attribute) != 0) {
      text.Append(text.Empty() ? u"" : u" ");
      text.Append(one.name);
    }
  }
  return text.Empty() ? cvn::String(u"none") : text;
}

// Those that something new has.
files::Attributes UsualAttributes(EntryKind kind) {
  switch (kind) {
    case EntryKind::File:
      return files::kArchive;
    case EntryKind::Folder:
      return files::kDirectory;
    case EntryKind::Link:
      break;
  }
  return files::kReparsePoint;
}

cvn::String BytesText(const EntryState& state) {
  return cvn::Format(state.size == 1 ? u"%u byte, SHA-256 %s" : u"%u bytes, SHA-256 %s", state.size,
                     cvn::Utf8ToWide(state.digest));
}

cvn::String TextOf(std::string_view bytes) { return Printable(cvn::Utf8ToWide(bytes)); }

cvn::String Changed(cvn::StringView what, cvn::StringView before, cvn::StringView after) {
  return cvn::Format(u"%s: %s -> %s", what, before, after);
}

void AddExtended(const EntryState& before, const EntryState& after, cvn::List<cvn::String>* facts) {
  const auto add = [&](const EntryState& one, const EntryState& other, cvn::StringView word,
                       bool tellsChanged) {
    for (const auto& [name, value] : one.extended) {
      const auto found = std::ranges::find(other.extended, name,
                                           [](const auto& attribute) { return attribute.first; });
      const bool isThere = found != other.extended.end();
      if (!isThere || (tellsChanged && found->second != value)) {
        facts->push_back(cvn::Format(u"extended attribute %s: %s",
                                     isThere ? cvn::StringView(u"changed") : word, TextOf(name)));
      }
    }
  };
  add(before, after, u"removed", false);
  add(after, before, u"added", true);
}

// What differs between two states, but for the bytes.
cvn::List<cvn::String> CompareStates(const EntryState& before, const EntryState& after) {
  cvn::List<cvn::String> facts;
  if (before.kind != after.kind) {
    facts.push_back(Changed(u"kind", cvn::Utf8ToWide(NameOf(before.kind)),
                            cvn::Utf8ToWide(NameOf(after.kind))));
    return facts;
  }
  if (before.target != after.target) {
    facts.push_back(Changed(u"target", TextOf(before.target), TextOf(after.target)));
  }
  if (before.attributes != after.attributes) {
    facts.push_back(
        Changed(u"attributes", AttributeText(before.attributes), AttributeText(after.attributes)));
  }
  if (before.mode != after.mode) {
    facts.push_back(Changed(u"permissions on the host", TextOf(tessel::OctalText(before.mode)),
                            TextOf(tessel::OctalText(after.mode))));
  }
  AddExtended(before, after, &facts);
  return facts;
}

// Up to one byte more than is compared. Nothing when they can't be had.
std::optional<std::string> ReadBytes(const FileChange& change, Side side, ChangeBytes* bytes) {
  const EntryState& state = side == Side::Before ? *change.before : *change.after;
  files::File file;
  std::string content(std::min<std::uint64_t>(state.size, tessel::kLargestDiffed) + 1, '\0');
  std::size_t used = 0;
  std::size_t count = 1;
  platform::Code code = bytes->Open(change, side, &file);
  while (code == platform::kSuccess && count != 0 && used < content.size()) {
    code = file.Read(std::as_writable_bytes(std::span(content)).subspan(used), &count);
    used += count;
  }
  content.resize(used);
  return code == platform::kSuccess ? std::optional(std::move(content)) : std::nullopt;
}

bool IsFile(const std::optional<EntryState>& state) {
  return state && state->kind == EntryKind::File;
}

class FileReporter {
 public:
  explicit FileReporter(ChangeBytes* bytes) : bytes_(bytes) {}

  FileNote Report(const FileChange& change) const {
    FileNote note;
    note.kind = !change.before              ? ChangeKind::Added
                : !change.after             ? ChangeKind::Removed
                : !change.movedFrom.Empty() ? ChangeKind::Moved
                                            : ChangeKind::Changed;
    note.before = change.before;
    note.after = change.after;
    const EntryState& state = change.after ? *change.after : *change.before;
    note.what = state.kind;
    note.path = change.path;
    note.movedFrom = change.movedFrom;
    if (change.before && change.after) {
      note.facts = CompareStates(*change.before, *change.after);
    } else if (state.kind == EntryKind::Link) {
      note.facts.push_back(cvn::Format(u"target: %s", TextOf(state.target)));
    } else if (state.attributes != UsualAttributes(state.kind)) {
      note.facts.push_back(cvn::Format(u"attributes: %s", AttributeText(state.attributes)));
    }
    AddBytes(change, &note);
    const bool isOfTime = note.facts.empty() && !note.content && IsFile(change.before) &&
                          IsFile(change.after) && change.before->written != change.after->written;
    if (isOfTime) {
      note.facts.emplace_back(u"time of the last write");
    }
    return note;
  }

 private:
  void AddBytes(const FileChange& change, FileNote* note) const {
    const bool isChange = IsFile(change.before) && IsFile(change.after);
    if (isChange && change.before->digest == change.after->digest) {
      return;
    }
    if (IsFile(change.after)) {
      note->content = Compare(change);
    }
    // What isn't shown line by line.
    const bool isShown =
        note->content && (!note->content->lines.empty() || note->content->isLayoutOnly);
    if (isChange && !isShown) {
      note->facts.push_back(
          Changed(u"content", BytesText(*change.before), BytesText(*change.after)));
    } else if (!isShown && (IsFile(change.before) || IsFile(change.after))) {
      note->facts.push_back(BytesText(IsFile(change.after) ? *change.after : *change.before));
    }
    if (note->content && note->content->isLayoutOnly) {
      note->facts.emplace_back(u"only the layout differs");
    }
  }

  tessel::ContentDiff Compare(const FileChange& change) const {
    std::optional<std::string> before;
    std::optional<std::string> after;
    if (bytes_ != nullptr) {
      before = IsFile(change.before) ? ReadBytes(change, Side::Before, bytes_) : std::nullopt;
      after = ReadBytes(change, Side::After, bytes_);
    }
    const bool isReadable = after && (before || !IsFile(change.before));
    return isReadable ? tessel::DiffContent(change.path, before, after) : tessel::ContentDiff();
  }

  ChangeBytes* bytes_;
};

bool IsOfTimeOnly(const FileChange& change) {
  if (!change.before || !change.after || !change.movedFrom.Empty() ||
      change.after->kind != EntryKind::Folder) {
    return false;
  }
  EntryState before = *change.before;
  before.written = change.after->written;
  return before == *change.after;
}

// Whether something moved with the folder of a note, and is as it was.
bool IsContained(const FileChange& change, const FileNote& folder) {
  const auto below = [](cvn::StringView path, cvn::StringView above) {
    return path.starts_with(above) && path.substr(above.size()).starts_with(u'\\')
               ? path.substr(above.size())
               : cvn::StringView();
  };
  const cvn::StringView place = below(change.path, folder.path);
  return !folder.movedFrom.Empty() && !place.empty() &&
         place == below(change.movedFrom, folder.movedFrom);
}

}  // namespace

void ReportFiles(const cvn::List<FileChange>& changes, ChangeBytes* bytes, ChangeReport* report) {
  const FileReporter reporter(bytes);
  std::size_t folder = 0;  // the number of the note of the last folder that moved, from 1 on
  for (std::size_t i = 0; i < changes.size(); ++i) {
    const FileChange& change = changes[i];
    if (IsOwn(changes, i)) {
      report->ownFiles.push_back(change.path);
      continue;
    }
    if (IsOfTimeOnly(change)) {
      continue;
    }
    FileNote note = reporter.Report(change);
    if (folder != 0 && IsContained(change, report->files[folder - 1])) {
      ++report->files[folder - 1].contained;
      if (note.facts.empty()) {
        continue;
      }
    } else if (note.kind == ChangeKind::Moved && note.what == EntryKind::Folder) {
      folder = report->files.size() + 1;
    }
    report->files.push_back(std::move(note));
  }
}

}  // namespace tlx
