#include "tools/tlx/script_check.h"

#include <string_view>
#include <utility>

#include "platform/formats/patch_container.h"
#include "support/format.h"
#include "support/numbers.h"
#include "support/utf.h"
#include "support/xml_nesting.h"
#include "tools/tlx/file_io.h"

namespace tlx {
namespace {

constexpr std::size_t kLongestScript =
    platform::kLargestWholeFile / platform::kPatchBlockSize * platform::kPatchPieceSize;

bool StartsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

// Lines end as TinyXML counts them: with CR LF, or one of the two alone.
TextPosition PositionOf(std::string_view text, std::size_t offset) {
  TextPosition position{1, 1};
  for (std::size_t at = 0; at < offset; ++at) {
    const bool isPairsFirst = text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n';
    if (text[at] == '\n' || (text[at] == '\r' && !isPairsFirst)) {
      ++position.line;
      position.column = 1;
    } else if (StartsCharacter(text[at])) {
      ++position.column;
    }
  }
  return position;
}

std::optional<ScriptFault> CheckBytes(std::string_view script) {
  if (script.empty()) {
    return ScriptFault{{1, 0}, u"the file is empty"};
  }
  if (script.size() > kLongestScript) {
    return ScriptFault{{1, 0}, u"the script is too long: its patch would be larger than 2 GiB"};
  }
  std::size_t offset = script.find('\0');
  if (offset != std::string_view::npos) {
    return ScriptFault{PositionOf(script, offset),
                       u"there is a zero byte; the runner stops reading at it"};
  }
  if (!cvn::IsValidUtf8(script, &offset)) {
    return ScriptFault{PositionOf(script, offset), u"the text is not UTF-8 here"};
  }
  if (!cvn::IsXmlNestingAllowed(script, &offset)) {
    return ScriptFault{PositionOf(script, offset),
                       cvn::Format(u"elements nest deeper than %u levels", cvn::kDeepestXml)};
  }
  return std::nullopt;
}

// TinyXML gives no position for what it misses at the end of the text.
TextPosition ErrorPosition(const TiXmlDocument& document, std::string_view script) {
  if (document.ErrorRow() < 1) {
    return PositionOf(script, script.size());
  }
  return {static_cast<std::size_t>(document.ErrorRow()),
          static_cast<std::size_t>(document.ErrorCol())};
}

TextPosition PositionOf(const TiXmlElement& element) {
  return {static_cast<std::size_t>(element.Row()), static_cast<std::size_t>(element.Column())};
}

std::optional<ScriptFault> CheckRoot(const TiXmlElement& root) {
  if (root.FirstChildElement("script") == nullptr) {
    return ScriptFault{PositionOf(root),
                       cvn::Format(u"there is no element 'script' under the root element '%s'",
                                   cvn::Utf8ToWide(root.ValueStr()))};
  }
  const std::string* version = root.Attribute(std::string("version"));
  if (version == nullptr || version->empty()) {
    return ScriptFault{PositionOf(root), cvn::Format(u"the root element '%s' has no version",
                                                     cvn::Utf8ToWide(root.ValueStr()))};
  }
  const cvn::String wideVersion = cvn::Utf8ToWide(*version);
  if (cvn::ReadInt32(wideVersion) != 1) {
    return ScriptFault{
        PositionOf(root),
        cvn::Format(u"the runner refuses version '%s': the number before the point must be 1",
                    wideVersion)};
  }
  return std::nullopt;
}

}  // namespace

std::optional<ScriptFault> CheckScript(const std::string& script, TiXmlDocument* document) {
  // Zero bytes, bad UTF-8 and deep nesting go first: TinyXML survives none of the last two.
  if (auto fault = CheckBytes(script)) {
    return fault;
  }
  document->SetTabSize(1);
  document->Parse(script.c_str(), nullptr, TIXML_ENCODING_UTF8);
  if (document->Error()) {
    return ScriptFault{
        ErrorPosition(*document, script),
        cvn::Format(u"not well-formed XML: %s", cvn::Utf8ToWide(document->ErrorDesc()))};
  }
  const TiXmlElement* root = document->RootElement();
  if (root == nullptr) {
    return ScriptFault{{1, 0}, u"there is no root element"};
  }
  return CheckRoot(*root);
}

int ReadScript(cvn::StringView path, TiXmlDocument* document, std::string* text) {
  std::string script;
  const platform::Code code = ReadInput(path, &script);
  if (code != platform::kSuccess) {
    return FailToRead(path, code);
  }
  const auto fault = CheckScript(script, document);
  if (fault) {
    return FailAt(path, fault->position, fault->text);
  }
  if (text != nullptr) {
    *text = std::move(script);
  }
  return kExitDone;
}

}  // namespace tlx
