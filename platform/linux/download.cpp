// Downloads by libcurl. Up to kMostRedirects redirects are followed, to http and https only, and
// from https to https only. Names in file: URLs are the machine's, as everywhere in a script.
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/fetch.h"
#include "platform/files.h"
#include "platform/formats/names.h"
#include "platform/formats/windows_path.h"
#include "platform/linux/curl_transfer.h"
#include "platform/rehearsal.h"
#include "support/utf.h"

namespace platform {
namespace {

constexpr long kMostRedirects = 10;

std::int32_t FetchFromServer(cvn::StringView url, files::File* target) {
  if (rehearsal::IsOn()) {
    return ResultOf(rehearsal::Answer(rehearsal::Action::Download, url));
  }
  posix::CurlTransfer transfer;
  const std::int32_t opened = transfer.Open(url, "http,https,ftp");
  if (opened != 0) {
    return opened;
  }
  transfer.Set(CURLOPT_REDIR_PROTOCOLS_STR, transfer.IsSecure() ? "https" : "http,https");
  transfer.Set(CURLOPT_FOLLOWLOCATION, 1L);
  transfer.Set(CURLOPT_MAXREDIRS, kMostRedirects);
  const auto write = [target](std::span<const std::byte> bytes) {
    return ResultOf(target->Write(bytes));
  };
  return transfer.Perform(write);
}

int DigitOf(char digit) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const char lower = static_cast<char>(digit >= 'A' && digit <= 'F' ? digit | 0x20 : digit);
  const std::size_t value = kDigits.find(lower);
  return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

cvn::String WithoutEscapes(cvn::StringView text) {
  const std::string bytes = cvn::WideToUtf8(text);
  std::string plain;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const bool isEscape = bytes[i] == '%' && i + 2 < bytes.size() && DigitOf(bytes[i + 1]) >= 0 &&
                          DigitOf(bytes[i + 2]) >= 0;
    plain +=
        isEscape ? static_cast<char>(DigitOf(bytes[i + 1]) << 4 | DigitOf(bytes[i + 2])) : bytes[i];
    i += isEscape ? 2 : 0;
  }
  return cvn::Utf8ToWide(plain);
}

// The path that a URL without a server names; nothing when it is of another kind. A path is a URL
// of this kind itself.
std::optional<cvn::String> FilePathOf(cvn::StringView url) {
  constexpr cvn::StringView kScheme = u"FILE:";
  if (posix::HasDrive(url)) {
    return cvn::String(url);
  }
  if (posix::Folded(url.substr(0, kScheme.size())) != kScheme) {
    return std::nullopt;
  }
  cvn::StringView path = url.substr(kScheme.size());
  if (path.starts_with(u"//")) {
    path.remove_prefix(2);
    if (posix::Folded(path.substr(0, 10)) == u"LOCALHOST/") {
      path.remove_prefix(9);
    }
    if (!path.starts_with(u'/') && !posix::HasDrive(path)) {
      path = url.substr(kScheme.size());  // a server's name: a path with a server
    }
  }
  if (path.starts_with(u'/') && posix::HasDrive(path.substr(1))) {
    path.remove_prefix(1);
  }
  return WithoutEscapes(path);
}

std::int32_t FetchFile(cvn::StringView path, files::File* target) {
  files::File source;
  Code code = files::Open(path, files::Access::Read, files::Share::Read,
                          files::Disposition::OpenExisting, &source);
  if (code == kFileNotFound || code == kPathNotFound) {
    return NumberOf(TransferResult::ResourceNotFound);
  }
  std::array<std::byte, 65536> buffer;
  std::size_t count = 1;
  while (code == kSuccess && count != 0) {
    code = source.Read(buffer, &count);
    if (code == kSuccess) {
      code = target->Write(std::span(buffer).first(count));
    }
  }
  return ResultOf(code);
}

}  // namespace

std::int32_t Fetch(cvn::StringView url, cvn::StringView path) {
  files::File target;
  const Code code = files::Open(path, files::Access::Write, files::Share::None,
                                files::Disposition::OpenExisting, &target);
  if (code != kSuccess) {
    return ResultOf(code);
  }
  url = posix::UpToZero(url);
  const std::optional<cvn::String> file = FilePathOf(url);
  return file ? FetchFile(*file, &target) : FetchFromServer(url, &target);
}

}  // namespace platform
