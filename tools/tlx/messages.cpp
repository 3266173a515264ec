#include "tools/tlx/messages.h"

#include "platform/held_folder.h"
#include "platform/machine.h"
#include "platform/streams.h"
#include "support/format.h"
#include "tools/tlx/machine_text.h"

namespace tlx {
namespace {

// One line that steers no terminal, whatever characters a host or a change set lets a name have.
cvn::String Line(cvn::StringView file, cvn::StringView kind, cvn::StringView text) {
  return Printable(cvn::Format(u"%s: %s: %s", file, kind, text));
}

cvn::String PlaceIn(cvn::StringView file, TextPosition position) {
  cvn::String place = cvn::Format(u"%s:%u", file, position.line);
  if (position.column != 0) {
    place.Append(cvn::Format(u":%u", position.column));
  }
  return place;
}

}  // namespace

int FailOnFile(cvn::StringView file, cvn::StringView text) {
  platform::streams::WriteLine(platform::streams::Output::Error, Line(file, u"error", text));
  return kExitBadInput;
}

void WarnOfFile(cvn::StringView file, cvn::StringView text) {
  platform::streams::WriteLine(platform::streams::Output::Error, Line(file, u"warning", text));
}

int FailAt(cvn::StringView file, TextPosition position, cvn::StringView text) {
  return FailOnFile(PlaceIn(file, position), text);
}

void WarnAt(cvn::StringView file, TextPosition position, cvn::StringView text) {
  WarnOfFile(PlaceIn(file, position), text);
}

cvn::String DescribeCode(platform::Code code) {
  switch (code) {
    case platform::kFileNotFound:
      return u"there is no such file";
    case platform::kPathNotFound:
      return u"there is no such folder";
    case platform::kAccessDenied:
      return u"access is denied, or it is a folder";
    case platform::kSharingViolation:
      return u"another program uses it";
    case platform::kWriteProtect:
      return u"the disk is write-protected";
    case platform::files::kNoRegularFile:
      return u"it is no regular file; for standard input there is '-'";
    case platform::kBrokenPipe:
      return u"nobody reads it any more";
    case platform::kDiskFull:
      return u"the disk is full";
    case platform::kInvalidName:
      return u"the name is not a valid one";
    case platform::kFileTooLarge:
      return u"it is larger than 2 GiB";
    case platform::kNoMoreItems:
      return u"another file came from there already";
    case platform::kDirectory:
      return u"it is no folder";
    case platform::machine::kUnrecognizedVolume:
      return u"it is no Windows volume, for lack of a folder Windows\\System32\\config";
    case platform::kBadDatabase:
      return u"its registry is damaged";
    default:
      return cvn::Format(u"system error %u", code);
  }
}

int FailToRead(cvn::StringView file, platform::Code code) {
  return FailOnFile(file, cvn::Format(u"cannot be read: %s", DescribeCode(code)));
}

int FailToWrite(cvn::StringView file, platform::Code code) {
  return FailOnFile(file, cvn::Format(u"cannot be written: %s", DescribeCode(code)));
}

}  // namespace tlx
