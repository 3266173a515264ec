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

// The text of a value that names a place. An empty one names none.
std::optional<std::u16string> PlaceIn(cvn::StringView key, cvn::StringView name) {
  std::optional<std::u16string> place = ReadText(Root::LocalMachine, key, name);
  return place && !place->empty() ? place : std::nullopt;
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

bool IsKey(cvn::StringView path) {
  registry::Key key;
  return registry::OpenKey(registry::Key(Root::LocalMachine), path, registry::kQueryValue, &key) ==
         kSuccess;
}

}  // namespace

std::optional<IniMapping> FindIniMapping(cvn::StringView file, cvn::StringView section,
                                         cvn::StringView key) {
  constexpr cvn::StringView kMappings =
      u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\IniFileMapping";
  const cvn::StringView name = paths::FindFileName(file);
  const cvn::String ofFile = Below(kMappings, name);
  const cvn::String ofSection = Below(ofFile, section);
  if (name.empty() || name.ends_with(u'\\') || !IsKey(ofFile)) {
    return std::nullopt;
  }
  if (const auto place = PlaceIn(ofFile, section)) {
    return ParsePlace(*place);
  }
  if (IsKey(ofSection)) {
    auto place = PlaceIn(ofSection, key);
    place = place ? place : PlaceIn(ofSection, u"");
    return place ? ParsePlace(*place) : std::nullopt;
  }
  const auto place = PlaceIn(ofFile, u"");
  std::optional<IniMapping> mapping = place ? ParsePlace(*place) : std::nullopt;
  if (mapping) {
    mapping->path = Below(mapping->path, section);
  }
  return mapping;
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
