#include "platform/text_file.h"

#include <array>

#include "support/utf.h"

namespace platform {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kBigEndianMark = "\xFE\xFF";

std::span<const std::byte> BytesOf(std::string_view text) { return std::as_bytes(std::span(text)); }

void AppendUtf16(cvn::StringView text, std::string* out) {
  for (const char16_t unit : text) {
    out->push_back(static_cast<char>(unit & 0xFF));
    out->push_back(static_cast<char>(unit >> 8));
  }
}

}  // namespace

Code TextFile::OpenForAppend(cvn::StringView path) {
  utf16_ = false;
  const Code lastError = LastError();
  files::File file;
  // The runtime reads the mark through the same handle where it may, and appends blindly where it
  // may not.
  Code code = files::Open(path, files::Access::ReadWrite, files::Share::Read,
                          files::Disposition::OpenAlways, &file);
  const bool readable = code == kSuccess;
  if (!readable) {
    code = files::Open(path, files::Access::Write, files::Share::Read,
                       files::Disposition::OpenAlways, &file);
  }
  std::uint64_t size = 0;
  if (code == kSuccess) {
    code = file.Size(&size);
  }
  std::array<std::byte, 3> start{};
  std::size_t count = 0;
  if (code == kSuccess && readable && size != 0) {
    code = file.Read(start, &count);
  }
  if (code != kSuccess) {
    return code;
  }
  const std::string_view mark(reinterpret_cast<const char*>(start.data()), count);
  if (mark.starts_with(kBigEndianMark)) {
    SetLastError(kInvalidParameter);
    return kInvalidParameter;
  }
  utf16_ = mark.starts_with(kUtf16Mark);
  code = size == 0 ? file.Write(BytesOf(kUtf8Mark)) : file.SeekToEnd();
  if (code == kSuccess) {
    file_ = std::move(file);
    SetLastError(lastError);
  }
  return code;
}

Code TextFile::Write(cvn::StringView text) {
  bytes_.clear();
  const auto append = utf16_ ? AppendUtf16 : cvn::AppendUtf8;
  while (!text.empty()) {
    const std::size_t feed = std::min(text.find(u'\n'), text.size());
    append(text.substr(0, feed), &bytes_);
    if (feed == text.size()) {
      break;
    }
    append(u"\r\n", &bytes_);
    text.remove_prefix(feed + 1);
  }
  return file_.Write(BytesOf(bytes_));
}

}  // namespace platform
