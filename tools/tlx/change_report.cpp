#include "tools/tlx/change_report.h"

#include "tools/tlx/file_report.h"
#include "tools/tlx/registry_report.h"

namespace tlx {

using platform::machine::ChangeBytes;
using platform::machine::ChangeSet;
using platform::machine::EntryKind;

bool ChangeReport::IsEmpty() const {
  return files.empty() && keys.empty() && services.empty() && atNextBoot.empty() &&
         notAtNextBoot.empty();
}

ChangeReport ReportChanges(const ChangeSet& changes, ChangeBytes* bytes) {
  ChangeReport report;
  ReportFiles(changes.files, bytes, &report);
  ReportKeys(changes.keys, &report);
  return report;
}

const char* NameOf(ChangeKind kind) {
  switch (kind) {
    case ChangeKind::Added:
      return "added";
    case ChangeKind::Removed:
      return "removed";
    case ChangeKind::Moved:
      return "moved";
    case ChangeKind::Changed:
      break;
  }
  return "changed";
}

const char* NameOf(EntryKind kind) {
  switch (kind) {
    case EntryKind::Folder:
      return "folder";
    case EntryKind::Link:
      return "link";
    case EntryKind::File:
      break;
  }
  return "file";
}

const char* NameOf(tessel::ContentForm form) {
  switch (form) {
    case tessel::ContentForm::Text:
      return "text";
    case tessel::ContentForm::Xml:
      return "xml";
    case tessel::ContentForm::Json:
      return "json";
    case tessel::ContentForm::Ini:
      return "ini";
    case tessel::ContentForm::Binary:
      break;
  }
  return "binary";
}

}  // namespace tlx
