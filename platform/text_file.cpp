#include "platform/text_file.h"

#include <array>

#include "support/utf.h"

namespace platform {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kBigEndianMark = "\xFE\xFF";

std::span<const std::byte> BytesOf(std::string_view text) { return std::as_bytes(std::span(text)); }

// Gives `take` the text in pieces, with CR LF for each line feed.
template <typename Take>
void TakeLines(cvn::StringView text, Take take) {
  while (!text.empty()) {
    const std::size_t feed = std::min(cvn::FindUnit(text, u'\n'), text.size());
    take(text.substr(0, feed));
    if (feed == text.size()) {
      break;
    }
    take(u"\r\n");
    text.remove_prefix(feed + 1);
  }
}

void AppendUtf16(cvn::StringView text, std::string* out) {
  for (const char16_t unit : text) {
    out->push_back(static_cast<char>(unit & 0xFF));
    out->push_back(static_cast<char>(unit >> 8));
  }
}

// Writes a mark and the text, with CR LF for each line feed, in pieces: a text may be large.
Code WriteLines(std::string_view text, files::File* file) {
  constexpr std::size_t kPiece = std::size_t{256} * 1024;
  std::string bytes(kUtf8Mark);
  bytes.reserve(2 * kPiece);
  while (!text.empty()) {
    const std::size_t feed =
        std::min(text.substr(0, kPiece).find('\n'), std::min(text.size(), kPiece));
    bytes.append(text.substr(0, feed));
    text.remove_prefix(feed);
    if (text.starts_with('\n')) {
      bytes.append("\r\n");
      text.remove_prefix(1);
    }
    if (bytes.size() >= kPiece) {
      if (const Code code = file->Write(BytesOf(bytes)); code != kSuccess) {
        return code;
      }
      bytes.clear();
    }
  }
  return file->Write(BytesOf(bytes));
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
  // A trace has millions of short lines; those are put into bytes without a thing to allocate.
  constexpr std::size_t kShort = 1000;
  if (!utf16_ && text.size() <= kShort) {
    bytes_.resize(3 * kShort);
    char* end = bytes_.data();
    TakeLines(text, [&end](cvn::StringView piece) { end = cvn::EncodeUtf8(piece, end); });
    return file_.Write(BytesOf({bytes_.data(), static_cast<std::size_t>(end - bytes_.data())}));
  }
  const auto append = utf16_ ? AppendUtf16 : cvn::AppendUtf8;
  std::string bytes;
  TakeLines(text, [&](cvn::StringView piece) { append(piece, &bytes); });
  return file_.Write(BytesOf(bytes));
}

Code OutputTextFile::Write(std::string_view text) {
  // The runtime makes the file anew, which one that is hidden or the system's doesn't allow.
  files::Attributes attributes = 0;
  if (files::GetAttributes(file_.Path(), &attributes) == kSuccess &&
      (attributes & (files::kHidden | files::kSystem)) != 0) {
    SetLastError(kAccessDenied);
    return kAccessDenied;
  }
  return file_.WriteBy([text](files::File* file) { return WriteLines(text, file); },
                       OutputFile::Readers::Anybody);
}

Code SaveTextFile(cvn::StringView path, std::string_view text) {
  OutputTextFile file(path);
  const Code code = file.Write(text);
  return code == kSuccess ? file.Commit() : code;
}

Code ReadTextFile(cvn::StringView path, std::string* text) {
  const Code code = ReadWholeFile(path, text);
  if (code != kSuccess) {
    return code;
  }
  if (text->starts_with(kBigEndianMark)) {
    SetLastError(kInvalidParameter);
    return kInvalidParameter;
  }
  if (text->starts_with(kUtf16Mark)) {
    *text = cvn::Utf16BytesToUtf8(std::string_view(*text).substr(kUtf16Mark.size()), false);
  } else {
    text->erase(0, text->starts_with(kUtf8Mark) ? kUtf8Mark.size() : 0);
    cvn::RepairUtf8(text);
  }
  constexpr char kCtrlZ = '\x1A';
  text->resize(std::min(text->find(kCtrlZ), text->size()));
  std::size_t to = 0;
  for (std::size_t from = 0; from < text->size(); ++from) {
    const bool beforeFeed = from + 1 < text->size() && (*text)[from + 1] == '\n';
    if ((*text)[from] != '\r' || !beforeFeed) {
      (*text)[to++] = (*text)[from];
    }
  }
  text->resize(to);
  return kSuccess;
}

}  // namespace platform
