#include "commands/documents/xml_printer.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "commands/documents/xml_marks.h"

namespace tessel {
namespace {

// The length of a hexadecimal character reference at the start of `text`; 0 when there is none.
std::size_t ReferenceLength(std::string_view text) {
  constexpr std::string_view kStart = "&#x";
  if (!text.starts_with(kStart)) {
    return 0;
  }
  const std::size_t end = text.find_first_not_of("0123456789abcdefABCDEF", kStart.size());
  return end != std::string_view::npos && end > kStart.size() && text[end] == ';' ? end + 1 : 0;
}

void AppendControl(unsigned char c, std::string* out) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  out->append("&#x").append(1, kDigits[c >> 4]).append(1, kDigits[c & 0xF]).append(1, ';');
}

// What isn't a mark, a control character or one that XML gives a meaning to.
struct OrdinaryCharacters {
  constexpr OrdinaryCharacters() noexcept {
    for (int c = 32; c < 256; ++c) {
      has[c] = FindXmlMark(static_cast<char>(c)) == nullptr;
    }
    for (const char c : {'&', '<', '>', '"', '\''}) {
      has[static_cast<unsigned char>(c)] = false;
    }
  }
  bool has[256] = {};
};
const OrdinaryCharacters kOrdinary;

// Appends the ordinary characters at the start of `text` at once, and returns how many they are.
std::size_t AppendOrdinary(std::string_view text, std::string* out) {
  std::size_t count = 0;
  while (count < text.size() && kOrdinary.has[static_cast<unsigned char>(text[count])]) {
    ++count;
  }
  out->append(text.data(), count);
  return count;
}

// Hexadecimal character references in the text stay what they are; makers of documents rely on it,
// and the library, as distributed, escapes them.
void AppendEncoded(std::string_view text, std::string* out) {
  for (std::size_t at = AppendOrdinary(text, out); at < text.size();
       at += AppendOrdinary(text.substr(at), out)) {
    const char c = text[at];
    std::size_t length = 1;
    switch (c) {
      case '&':
        length = ReferenceLength(text.substr(at));
        out->append(length == 0 ? "&amp;" : text.substr(at, length));
        length = std::max<std::size_t>(length, 1);
        break;
      case '<':
        out->append("&lt;");
        break;
      case '>':
        out->append("&gt;");
        break;
      case '"':
        out->append("&quot;");
        break;
      case '\'':
        out->append("&apos;");
        break;
      default:
        if (const XmlMark* mark = FindXmlMark(c)) {
          out->append(mark->printed);
        } else {
          AppendControl(static_cast<unsigned char>(c), out);
        }
    }
    at += length;
  }
}

void AppendSections(std::string_view text, std::string* out) {
  out->append("<![CDATA[");
  for (const char c : text) {
    const XmlMark* mark = FindXmlMark(c);
    mark == nullptr ? out->append(1, c) : out->append(mark->printed);
  }
  out->append("]]>\n");
}

void AppendAttribute(const TiXmlAttribute& attribute, std::string* out) {
  const char quote = attribute.ValueStr().find('"') == std::string::npos ? '"' : '\'';
  AppendEncoded(attribute.NameTStr(), out);
  out->append(1, '=').append(1, quote);
  AppendEncoded(attribute.ValueStr(), out);
  out->append(1, quote);
}

void AppendIndent(int depth, std::string* out) {
  out->append(static_cast<std::size_t>(depth) * 4, ' ');
}

void AppendDeclaration(const TiXmlDeclaration& declaration, std::string* out) {
  const std::pair<const char*, const char*> parts[] = {{"version", declaration.Version()},
                                                       {"encoding", declaration.Encoding()},
                                                       {"standalone", declaration.Standalone()}};
  out->append("<?xml ");
  for (const auto& [name, value] : parts) {
    if (*value != '\0') {
      out->append(name).append("=\"").append(value).append("\" ");
    }
  }
  out->append("?>");
}

// The forms that documents are saved in.
class Printer {
 public:
  explicit Printer(std::string* out) : out_(out) {}

  void Print(const TiXmlNode& node, int depth) {
    if (const TiXmlElement* element = node.ToElement()) {
      PrintElement(*element, depth);
    } else if (const TiXmlText* text = node.ToText()) {
      PrintText(*text, depth);
    } else if (node.ToComment() != nullptr) {
      AppendIndent(depth, out_);
      out_->append("<!--").append(node.ValueStr()).append("-->");
    } else if (const TiXmlDeclaration* declaration = node.ToDeclaration()) {
      AppendDeclaration(*declaration, out_);
    } else {
      AppendIndent(depth, out_);
      out_->append("<").append(node.ValueStr()).append(">");
    }
  }

 private:
  void PrintElement(const TiXmlElement& element, int depth) {
    AppendIndent(depth, out_);
    out_->append("<").append(element.ValueStr());
    for (const TiXmlAttribute* at = element.FirstAttribute(); at != nullptr; at = at->Next()) {
      out_->append(" ");
      AppendAttribute(*at, out_);
    }
    const TiXmlNode* child = element.FirstChild();
    if (child == nullptr) {
      out_->append(" />");
      return;
    }
    out_->append(">");
    if (child == element.LastChild() && child->ToText() != nullptr) {
      Print(*child, depth + 1);
    } else {
      for (; child != nullptr; child = child->NextSibling()) {
        if (child->ToText() == nullptr) {
          out_->append("\n");
        }
        Print(*child, depth + 1);
      }
      out_->append("\n");
      AppendIndent(depth, out_);
    }
    out_->append("</").append(element.ValueStr()).append(">");
  }

  void PrintText(const TiXmlText& text, int depth) {
    if (text.CDATA()) {
      out_->append("\n");
      AppendIndent(depth, out_);
      AppendSections(text.ValueStr(), out_);
    } else {
      AppendEncoded(text.ValueStr(), out_);
    }
  }

  std::string* out_;
};

// Unlike TinyXML's own encoding, leaves nothing of the text to be read as a reference.
void AppendPlain(std::string_view text, std::string* out) {
  for (std::size_t at = AppendOrdinary(text, out); at < text.size();
       at += 1 + AppendOrdinary(text.substr(at + 1), out)) {
    const char c = text[at];
    if (const XmlMark* mark = FindXmlMark(c)) {
      AppendPlain(mark->plain, out);
    } else if (c == '\'') {
      out->append(1, c);
    } else {
      char digits[4];
      const auto end =
          std::to_chars(digits, digits + sizeof(digits), static_cast<unsigned char>(c)).ptr;
      out->append("&#").append(digits, end).append(1, ';');
    }
  }
}

void AppendBareName(const std::string& name, std::string* out) {
  const std::size_t start = out->size();
  out->append(name);
  std::replace(out->begin() + static_cast<std::ptrdiff_t>(start), out->end(), '\x7F', kDeleteMark);
}

void AppendBare(const TiXmlNode& node, std::string* out) {
  if (const TiXmlText* text = node.ToText()) {
    AppendPlain(text->ValueStr(), out);
    return;
  }
  if (node.ToComment() != nullptr) {
    out->append("<!--").append(node.ValueStr()).append("-->");
    return;
  }
  const TiXmlElement* element = node.ToElement();
  if (element == nullptr) {
    return;
  }
  out->append("<");
  AppendBareName(element->ValueStr(), out);
  for (const TiXmlAttribute* at = element->FirstAttribute(); at != nullptr; at = at->Next()) {
    out->append(" ");
    AppendBareName(at->NameTStr(), out);
    out->append("=\"");
    AppendPlain(at->ValueStr(), out);
    out->append("\"");
  }
  out->append(">");
  for (const TiXmlNode* child = element->FirstChild(); child != nullptr;
       child = child->NextSibling()) {
    AppendBare(*child, out);
  }
  out->append("</");
  AppendBareName(element->ValueStr(), out);
  out->append(">");
}

}  // namespace

std::string PrintXml(const TiXmlDocument& document, std::size_t size) {
  std::string out;
  out.reserve(size);
  for (const TiXmlNode* node = document.FirstChild(); node != nullptr; node = node->NextSibling()) {
    Printer(&out).Print(*node, 0);
    out.append("\n");
  }
  return out;
}

std::string PrintXmlBare(const TiXmlDocument& document) {
  std::string out;
  for (const TiXmlNode* node = document.FirstChild(); node != nullptr; node = node->NextSibling()) {
    AppendBare(*node, &out);
  }
  return out;
}

}  // namespace tessel
