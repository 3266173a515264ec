#include "changes/content_form.h"

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <ostream>
#include <pugixml.hpp>
#include <stdexcept>
#include <streambuf>

#include "platform/profile.h"
#include "support/utf.h"

namespace tessel {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kBigEndianMark = "\xFE\xFF";

bool HasTextOnly(std::string_view bytes) {
  return std::ranges::all_of(bytes, [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= ' ' || (byte >= '\t' && byte <= '\r') || byte == 0x1A || byte == 0x1B;
  });
}

// Indented, a document that nests deep is many times as long as it was.
constexpr std::size_t kLargestPrint = 4 * kLargestDiffed;

class BoundedWriter : public pugi::xml_writer {
 public:
  void write(const void* data, std::size_t size) override {
    if (size > kLargestPrint - text.size()) {
      throw std::length_error("too long a print");
    }
    text.append(static_cast<const char*>(data), size);
  }

  std::string text;
};

// A stream over it turns bad at the end.
class BoundedBuffer : public std::streambuf {
 public:
  std::string text;

 protected:
  int overflow(int character) override {
    const auto one = static_cast<char>(character);
    return xsputn(&one, 1) == 1 ? character : EOF;
  }
  std::streamsize xsputn(const char* data, std::streamsize size) override {
    if (static_cast<std::size_t>(size) > kLargestPrint - text.size()) {
      return 0;
    }
    text.append(data, static_cast<std::size_t>(size));
    return size;
  }
};

// Whether there are more digits in a row than a number keeps for sure when it is read.
bool HasLongNumber(std::string_view text) {
  constexpr int kMostDigits = 15;
  int digits = 0;
  for (const char c : text) {
    const bool isDigit = c >= '0' && c <= '9';
    digits = isDigit ? digits + 1 : (c == '.' ? digits : 0);
    if (digits > kMostDigits) {
      return true;
    }
  }
  return false;
}

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

}  // namespace

std::optional<std::string> TextOfBytes(std::string_view bytes) {
  if (bytes.starts_with(kUtf16Mark) || bytes.starts_with(kBigEndianMark)) {
    std::string text =
        cvn::Utf16BytesToUtf8(bytes.substr(kUtf16Mark.size()), bytes.starts_with(kBigEndianMark));
    return HasTextOnly(text) ? std::optional(std::move(text)) : std::nullopt;
  }
  if (!HasTextOnly(bytes)) {
    return std::nullopt;
  }
  if (cvn::IsValidUtf8(bytes)) {
    return std::string(bytes.substr(bytes.starts_with(kUtf8Mark) ? kUtf8Mark.size() : 0));
  }
  return cvn::WideToUtf8(platform::profile::DecodeAnsi(bytes));
}

std::optional<std::string> CanonicalXml(std::string_view bytes) {
  try {
    constexpr unsigned kParsing = pugi::parse_default | pugi::parse_comments | pugi::parse_pi |
                                  pugi::parse_doctype | pugi::parse_trim_pcdata;
    pugi::xml_document document;
    if (!document.load_buffer(bytes.data(), bytes.size(), kParsing) ||
        !document.document_element()) {
      return std::nullopt;
    }
    BoundedWriter out;
    document.save(out, "  ", pugi::format_indent | pugi::format_no_declaration,
                  pugi::encoding_utf8);
    return std::move(out.text);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<std::string> CanonicalJson(std::string_view text) {
  if (HasLongNumber(text)) {
    return std::nullopt;
  }
  try {
    Json::CharReaderBuilder rules;
    rules["collectComments"] = false;
    // What would be lost can differ: then it is compared as a text.
    rules["allowComments"] = false;
    rules["failIfExtra"] = true;
    rules["rejectDupKeys"] = true;
    const std::unique_ptr<Json::CharReader> reader(rules.newCharReader());
    Json::Value document;
    if (!reader->parse(text.data(), text.data() + text.size(), &document, nullptr)) {
      return std::nullopt;
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    builder["emitUTF8"] = true;
    BoundedBuffer buffer;
    std::ostream out(&buffer);
    const std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
    writer->write(document, &out);
    out << '\n';
    return out.good() ? std::optional(std::move(buffer.text)) : std::nullopt;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::string CanonicalIni(std::string_view text) {
  std::string printed;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = Trimmed(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty() || line.front() == ';') {
      continue;
    }
    const std::size_t sign = line.front() == '[' ? std::string_view::npos : line.find('=');
    printed += Trimmed(line.substr(0, sign));
    if (sign != std::string_view::npos) {
      (printed += '=') += Trimmed(line.substr(sign + 1));
    }
    printed += '\n';
  }
  return printed;
}

}  // namespace tessel
