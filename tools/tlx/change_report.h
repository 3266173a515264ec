// A change set in words: for people as text, for programs as JSON.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

#include "changes/content_diff.h"
#include "platform/machine_changes.h"
#include "support/containers.h"
#include "support/string.h"

namespace tlx {

enum class ChangeKind { Added, Removed, Changed, Moved };

// A file, folder or link.
struct FileNote {
  ChangeKind kind = ChangeKind::Changed;
  platform::machine::EntryKind what = platform::machine::EntryKind::File;
  cvn::String path;
  cvn::String movedFrom;
  std::optional<platform::machine::EntryState> before;
  std::optional<platform::machine::EntryState> after;
  cvn::List<cvn::String> facts;  // what differs, but for content: "attributes: ARCHIVE -> HIDDEN"
  std::optional<tessel::ContentDiff> content;  // of a file whose bytes differ
  std::size_t contained = 0;  // of a folder that moved: how much is in it, which isn't told apart
};

struct ValueNote {
  ChangeKind kind = ChangeKind::Changed;
  cvn::String name;               // empty for the default value
  cvn::List<cvn::String> before;  // lines: type and data; none when there is no value
  cvn::List<cvn::String> after;
};

struct KeyNote {
  ChangeKind kind = ChangeKind::Changed;
  cvn::String path;              // "HKEY_LOCAL_MACHINE\SOFTWARE\..."
  cvn::List<cvn::String> facts;  // class, link, security
  cvn::List<ValueNote> values;
};

struct ServiceNote {
  ChangeKind kind = ChangeKind::Changed;
  cvn::String name;
  cvn::List<KeyNote> keys;
};

struct ChangeReport {
  cvn::List<FileNote> files;
  cvn::List<KeyNote> keys;  // without those of services, and of renames at the next boot
  cvn::List<ServiceNote> services;
  cvn::List<cvn::String> atNextBoot;     // "delete C:\x", "move C:\x to C:\y"
  cvn::List<cvn::String> notAtNextBoot;  // what was to be done then, and isn't any more
  // Traces and events of the run itself, and folders for them.
  cvn::List<cvn::String> ownFiles;
  bool IsEmpty() const;
};

// Folders that differ in nothing but their time, as names came or went in them, aren't told.
// `bytes` may be null; then files differ by size and digest only.
ChangeReport ReportChanges(const platform::machine::ChangeSet& changes,
                           platform::machine::ChangeBytes* bytes);

// Lines for a terminal. Characters that steer one are escaped.
cvn::List<cvn::String> DescribeReport(const ChangeReport& report);

// As "changes" of docs/changes.schema.json.
Json::Value ReportJson(const ChangeReport& report);

// The words of the JSON, and of pages.
const char* NameOf(ChangeKind kind);
const char* NameOf(platform::machine::EntryKind kind);
const char* NameOf(tessel::ContentForm form);

}  // namespace tlx
