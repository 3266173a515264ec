#include "platform/offline/profile/ini_mapping.h"

#include <algorithm>
#include <span>
#include <string>

#include "platform/formats/names.h"
#include "platform/offline/registry/registry.h"
#include "platform/paths.h"

namespace platform::posix {
namespace {

using registry::Root;

cvn::String Below(cvn::StringView path, cvn::StringView name) {
  cvn::String below(path);
  below.Append(u'\\');
  below.Append(name);
  return below;
}

// What is damaged, or can't be read at all, maps nothing; what is only busy may do so.
Code Judged(Code code) { return code == kBusy ? code : kSuccess; }

// The text of a value that names a place. An empty one names none.
Code FindPlace(cvn::StringView key, cvn::StringView name, std::optional<std::u16string>* place) {
  const Code code = ReadText(Root::LocalMachine, key, name, place);
  if (*place && (*place)->empty()) {
    place->reset();
  }
  return Judged(code);
}

// A place as values of IniFileMapping have it: "!#@SYS:path", with or without marks, or "USR:path".
// '#' concerns the first logon of a new user. Nothing for what has another form.
std::optional<IniMapping> ParsePlace(cvn::StringView place) {
  IniMapping mapping;
  for (; !place.empty(); place.remove_prefix(1)) {
    const char16_t mark = place.front();
    if (mark != u'!' && mark != u'#' && mark != u'@') {
      break;
    }
    mapping.hidesFile = mapping.hidesFile || mark == u'@';
    mapping.writesToFile = mapping.writesToFile || mark == u'!';
  }
  constexpr std::size_t kPrefix = 4;
  const std::u16string prefix = Folded(place.substr(0, kPrefix));
  place.remove_prefix(std::min(kPrefix, place.size()));
  if (prefix == u"SYS:") {
    mapping.path = Below(u"SOFTWARE", place);
  } else if (prefix == u"USR:") {
    mapping.root = Root::CurrentUser;
    mapping.path = place;
  } else {
    return std::nullopt;
  }
  return mapping;
}

Code FindKey(cvn::StringView path, bool* isThere) {
  registry::Key key;
  const Code code =
      registry::OpenKey(registry::Key(Root::LocalMachine), path, registry::kQueryValue, &key);
  *isThere = code == kSuccess;
  return Judged(code);
}

// The mapping of a section that has a key of its own.
Code FindInSection(cvn::StringView section, cvn::StringView key,
                   std::optional<IniMapping>* mapping) {
  std::optional<std::u16string> place;
  Code code = FindPlace(section, key, &place);
  if (code == kSuccess && !place) {
    code = FindPlace(section, u"", &place);
  }
  *mapping = place ? ParsePlace(*place) : std::nullopt;
  return code;
}

}  // namespace

Code FindIniMapping(cvn::StringView file, cvn::StringView section, cvn::StringView key,
                    std::optional<IniMapping>* mapping) {
  constexpr cvn::StringView kMappings =
      u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\IniFileMapping";
  const cvn::StringView name = paths::FindFileName(file);
  const cvn::String ofFile = Below(kMappings, name);
  const cvn::String ofSection = Below(ofFile, section);
  mapping->reset();
  bool isKey = false;
  const bool isName = !name.empty() && !name.ends_with(u'\\');
  Code code = isName ? FindKey(ofFile, &isKey) : kSuccess;
  if (code != kSuccess || !isKey) {
    return code;
  }
  std::optional<std::u16string> place;
  code = FindPlace(ofFile, section, &place);
  if (code != kSuccess || place) {
    *mapping = place ? ParsePlace(*place) : std::nullopt;
    return code;
  }
  code = FindKey(ofSection, &isKey);
  if (code != kSuccess || isKey) {
    return isKey ? FindInSection(ofSection, key, mapping) : code;
  }
  code = FindPlace(ofFile, u"", &place);
  *mapping = place ? ParsePlace(*place) : std::nullopt;
  if (*mapping) {
    (*mapping)->path = Below((*mapping)->path, section);
  }
  return code;
}

std::optional<cvn::String> ReadMapped(const IniMapping& mapping, cvn::StringView key) {
  const std::optional<std::u16string> text = ReadText(mapping.root, mapping.path, key);
  return text ? std::optional(cvn::String(*text)) : std::nullopt;
}

Code WriteMapped(const IniMapping& mapping, cvn::StringView key, cvn::StringView value) {
  registry::Key opened;
  const Code code = registry::CreateKey(registry::Key(mapping.root), mapping.path, false,
                                        registry::kSetValue, &opened);
  const std::u16string ended(value);
  return code == kSuccess
             ? registry::SetValue(opened, key, registry::kTypeString,
                                  std::as_bytes(std::span(ended.c_str(), ended.size() + 1)))
             : code;
}

}  // namespace platform::posix
