#include "platform/profile.h"

#include <sys/stat.h>

#include <string>
#include <utility>

#include "platform/formats/ini_text.h"
#include "platform/formats/names.h"
#include "platform/linux/code_page.h"
#include "platform/linux/error_map.h"
#include "platform/offline/profile/ini_mapping.h"
#include "platform/offline/registry/registry.h"
#include "platform/offline/volume/volume.h"
#include "platform/whole_file.h"
#include "support/numbers.h"

namespace platform::profile {
namespace {

using posix::HostPath;
using posix::UpToZero;

// An INI file is ANSI unless it begins with the byte-order mark of UTF-16. A mark of UTF-8 is no
// mark to Windows but the beginning of the first line.
constexpr std::string_view kWideMark = "\xFF\xFE";

// The machine's code page, read once, as Windows does when it starts.
const posix::CodePage& AnsiCodePage() {
  static const posix::CodePage page(static_cast<std::uint32_t>(
      cvn::ReadInt32(posix::ReadText(registry::Root::LocalMachine,
                                     u"SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage", u"ACP")
                         .value_or(std::u16string()))));
  return page;
}

// The bytes of a file and their text: an edit of the text leaves the bytes around it as they are.
class Content {
 public:
  explicit Content(std::string bytes)
      : bytes_(std::move(bytes)), isWide_(bytes_.starts_with(kWideMark)) {
    if (!isWide_) {
      text_ = AnsiCodePage().Decode(bytes_);
      return;
    }
    text_.reserve(bytes_.size() / 2);
    for (std::size_t i = kWideMark.size(); i + 1 < bytes_.size(); i += 2) {
      const unsigned low = static_cast<unsigned char>(bytes_[i]);
      const unsigned high = static_cast<unsigned char>(bytes_[i + 1]);
      text_.push_back(static_cast<char16_t>(low | high << 8));
    }
  }

  cvn::StringView Text() const { return text_; }

  // The bytes after an edit of the text.
  std::string Edited(const posix::Edit& edit) && {
    if (isWide_) {
      std::string replacement;
      for (const char16_t unit : edit.replacement) {
        replacement += static_cast<char>(unit & 0xFF);
        replacement += static_cast<char>(unit >> 8);
      }
      bytes_.replace(kWideMark.size() + 2 * edit.offset, 2 * edit.length, replacement);
    } else {
      const std::size_t start = posix::ByteOffset(bytes_, text_, edit.offset);
      const std::size_t end = posix::ByteOffset(bytes_, text_, edit.offset + edit.length);
      bytes_.replace(start, end - start, AnsiCodePage().Encode(edit.replacement));
    }
    return std::move(bytes_);
  }

 private:
  std::string bytes_;
  bool isWide_;
  std::u16string text_;
};

// A bare name means a file in the Windows folder.
cvn::String PathOf(cvn::StringView path) {
  path = UpToZero(path);
  if (path.find_first_of(u"\\/:") != cvn::StringView::npos) {
    return path;
  }
  cvn::String inWindows(u"C:\\Windows\\");
  inWindows.Append(path);
  return inWindows;
}

// Finds the file to be replaced: what a symbolic link leads to, and not the link.
Code Locate(cvn::StringView path, HostPath* host) {
  const Code code = posix::Resolve(path, host);
  return code == kSuccess ? posix::FollowLink(host) : code;
}

// Reads the file that is to be replaced; one that is missing counts as empty.
Code ReadOld(const HostPath& host, cvn::StringView path, std::string* bytes) {
  if (host.entry.st_mode == 0) {
    return kSuccess;
  }
  if (!host.IsFolder() && posix::IsReadOnly(host)) {
    return posix::Fail(kAccessDenied);
  }
  return ReadWholeFile(path, bytes);
}

cvn::StringView WithoutQuotes(cvn::StringView value) {
  const bool isQuoted = value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') &&
                        value.back() == value.front();
  return isQuoted ? value.substr(1, value.size() - 2) : value;
}

// The value as it stands in the file.
std::optional<cvn::String> ReadFromFile(cvn::StringView section, cvn::StringView key,
                                        cvn::StringView path) {
  std::string bytes;
  if (ReadWholeFile(PathOf(path), &bytes) != kSuccess) {
    return std::nullopt;
  }
  const Content content(std::move(bytes));
  const std::optional<cvn::StringView> found = posix::FindValue(content.Text(), section, key);
  return found ? std::optional(cvn::String(*found)) : std::nullopt;
}

Code WriteToFile(cvn::StringView section, cvn::StringView key, cvn::StringView value,
                 cvn::StringView path) {
  HostPath old;
  const Code found = Locate(PathOf(path), &old);
  if (found == kFileNotFound && old.endsInSeparator) {
    return posix::Fail(kInvalidName);
  }
  if (found != kSuccess && found != kFileNotFound) {
    return posix::Fail(found);
  }
  const cvn::String place = posix::ToMachinePath(old.spelling);
  std::string bytes;
  Code code = ReadOld(old, place, &bytes);
  if (code != kSuccess) {
    return code;
  }
  Content content(std::move(bytes));
  const posix::Edit edit = posix::EditForValue(content.Text(), section, key, value);
  OutputFile output(place);
  code = output.Write(std::move(content).Edited(edit), OutputFile::Readers::Anybody);
  return code == kSuccess ? output.Commit() : code;
}

}  // namespace

cvn::String ReadString(cvn::StringView section, cvn::StringView key, cvn::StringView fallback,
                       std::size_t capacity, cvn::StringView path) {
  section = UpToZero(section);
  key = UpToZero(key);
  const Code lastError = LastError();
  std::optional<posix::IniMapping> mapping;
  IgnoreError(posix::FindIniMapping(UpToZero(path), section, key, &mapping));  // then the file
  std::optional<cvn::String> found = mapping ? posix::ReadMapped(*mapping, key) : std::nullopt;
  if (!found && !(mapping && mapping->hidesFile)) {
    found = ReadFromFile(section, key, path);
  }
  SetLastError(lastError);
  cvn::StringView value;
  if (found) {
    value = WithoutQuotes(*found);
  } else {
    value = UpToZero(fallback);
    value = value.substr(0, value.find_last_not_of(u' ') + 1);
  }
  return UpToZero(value.substr(0, capacity - 1));
}

Code WriteString(cvn::StringView section, cvn::StringView key, cvn::StringView value,
                 cvn::StringView path) {
  section = UpToZero(section);
  key = UpToZero(key);
  value = UpToZero(value);
  std::optional<posix::IniMapping> mapping;
  Code code = posix::FindIniMapping(UpToZero(path), section, key, &mapping);
  if (code == kSuccess && mapping) {
    code = posix::WriteMapped(*mapping, key, value);
  }
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  return mapping && !mapping->writesToFile ? kSuccess : WriteToFile(section, key, value, path);
}

cvn::String DecodeAnsi(std::string_view bytes) {
  return cvn::StringView(AnsiCodePage().Decode(bytes));
}

}  // namespace platform::profile
