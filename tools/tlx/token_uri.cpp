#include "tools/tlx/token_uri.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "support/format.h"
#include "support/utf.h"

namespace tlx {
namespace {

constexpr std::string_view kScheme = "pkcs11:";
constexpr std::string_view kPin = "pin-value";

struct Attribute {
  std::string_view name;
  std::string_view value;
};

// Takes the first attribute off.
Attribute TakeAttribute(std::string_view* text, char separator) {
  const std::string_view whole = text->substr(0, text->find(separator));
  text->remove_prefix(std::min(whole.size() + 1, text->size()));
  const std::size_t end = std::min(whole.find('='), whole.size());
  return {whole.substr(0, end), whole.substr(std::min(end + 1, whole.size()))};
}

std::string WithoutEscapes(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned char value = 0;
    const char* digits = text.data() + i + 1;
    if (text[i] == '%' && i + 2 < text.size() &&
        std::from_chars(digits, digits + 2, value, 16).ptr == digits + 2) {
      plain.push_back(static_cast<char>(value));
      i += 2;
    } else {
      plain.push_back(text[i]);
    }
  }
  return plain;
}

// The path in "file:/etc/pin", "file:///etc/pin" or "/etc/pin"; empty for another kind of source.
std::string FileOf(std::string_view source) {
  for (const std::string_view scheme : {"file://localhost/", "file:///", "file:/"}) {
    if (source.starts_with(scheme)) {
      return std::string(source.substr(scheme.size() - 1));
    }
  }
  const bool isPath = source.find(':') == std::string_view::npos && !source.starts_with('|');
  return std::string(isPath ? source : std::string_view());
}

bool TakeQuery(std::string_view query, TokenUri* uri, cvn::String* problem) {
  while (!query.empty()) {
    const auto [name, value] = TakeAttribute(&query, '&');
    const std::string plain = WithoutEscapes(value);
    if (name == "module-path") {
      uri->modulePath = plain;
    } else if (name == "pin-source") {
      uri->pinFile = cvn::Utf8ToWide(FileOf(plain));
    } else {
      *problem = cvn::Format(
          u"'%s' isn't known here; behind the '?' may stand module-path and "
          u"pin-source",
          cvn::Utf8ToWide(name));
      return false;
    }
    if (plain.empty() || (name == "pin-source" && uri->pinFile.Empty())) {
      *problem = cvn::Format(u"'%s' must name a file", cvn::Utf8ToWide(name));
      return false;
    }
  }
  return true;
}

}  // namespace

bool IsTokenUri(cvn::StringView place) { return place.starts_with(cvn::Utf8ToWide(kScheme)); }

cvn::String ShownTokenUri(cvn::StringView uri) {
  const cvn::StringView object = uri.substr(0, uri.find(u'?'));
  return object.substr(0, object.find(cvn::Utf8ToWide(kPin)));
}

std::optional<TokenUri> ReadTokenUri(cvn::StringView uri, cvn::String* problem) {
  const std::string text = cvn::WideToUtf8(uri);
  if (text.find(kPin) != std::string::npos) {
    *problem =
        u"a PIN is never an argument, where every program of the host can read it: put it into a "
        u"file for --pin-file, or leave it out to be asked";
    return std::nullopt;
  }
  const std::size_t end = std::min(text.find('?'), text.size());
  TokenUri read;
  read.object = text.substr(0, end);
  if (read.object.size() == kScheme.size()) {
    *problem = u"it names no key, such as pkcs11:token=...;object=...";
    return std::nullopt;
  }
  if (!TakeQuery(std::string_view(text).substr(std::min(end + 1, text.size())), &read, problem)) {
    return std::nullopt;
  }
  return read;
}

}  // namespace tlx
