#include "tools/tlx/spooled_event.h"

#include <json/value.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "changes/json_input.h"
#include "platform/file_search.h"
#include "platform/paths.h"
#include "platform/whole_file.h"
#include "support/utf.h"
#include "tools/tlx/messages.h"

namespace tlx {
namespace {

namespace files = platform::files;

bool IsJsonNumber(std::string_view text) {
  const auto skipDigits = [&text] {
    const std::size_t count = std::min(text.find_first_not_of("0123456789"), text.size());
    text.remove_prefix(count);
    return count;
  };
  text.remove_prefix(text.starts_with('-') ? 1 : 0);
  const bool hasZero = text.starts_with('0');
  const std::size_t digits = skipDigits();
  bool isNumber = digits == 1 || (digits > 1 && !hasZero);
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    isNumber = skipDigits() != 0 && isNumber;
  }
  if (text.starts_with('e') || text.starts_with('E')) {
    text.remove_prefix(1);
    text.remove_prefix(text.starts_with('+') || text.starts_with('-') ? 1 : 0);
    isNumber = skipDigits() != 0 && isNumber;
  }
  return isNumber && text.empty();
}

// Whether a line is free of what JsonCpp takes and JSON has not: a zero, at which it stops reading,
// other control characters, a mark at the start, numbers in forms of their own.
bool HasJsonTokens(std::string_view line) {
  bool isInText = false;
  for (std::size_t at = 0; at < line.size(); ++at) {
    const char c = line[at];
    const bool isControl = static_cast<unsigned char>(c) < 0x20;
    if (isInText) {
      at += c == '\\' ? 1 : 0;
      isInText = c != '"';
      if (isControl) {
        return false;
      }
    } else if (c == '-' || c == '+' || c == '.' || (c >= '0' && c <= '9')) {
      const std::size_t end = std::min(line.find_first_not_of("+-.0123456789eE", at), line.size());
      if (!IsJsonNumber(line.substr(at, end - at))) {
        return false;
      }
      at = end - 1;
    } else if ((isControl && c != '\t') || static_cast<unsigned char>(c) >= 0x7F) {
      return false;
    } else {
      isInText = c == '"';
    }
  }
  return true;
}

// An event is one line, and whoever takes it in must find in it what is shown here: no parser may
// have a choice between two members, or leave something out.
std::optional<Json::Value> Parse(std::string_view line) {
  return cvn::IsValidUtf8(line) && HasJsonTokens(line) ? tessel::ReadJsonObject(line)
                                                       : std::nullopt;
}

// A member of an object; null when there is none, or the value is no object.
const Json::Value& Member(const Json::Value& value, const char* name) {
  return value.isObject() ? value[name] : Json::Value::nullSingleton();
}

cvn::String TextOf(const Json::Value& value) {
  return value.isString() ? cvn::Utf8ToWide(value.asString()) : cvn::String();
}

std::int64_t NumberOf(const Json::Value& value) { return value.isInt64() ? value.asInt64() : 0; }

// The reports keep their facts under different names.
bool Describe(const Json::Value& document, SpooledEvent* event) {
  const Json::Value& data = Member(document, "data");
  const Json::Value& fields = Member(data, data.isMember("fields") ? "fields" : "extraData");
  event->name = TextOf(Member(fields, "event_name"));
  if (event->name.Empty()) {
    return false;
  }
  event->time = NumberOf(Member(fields, "event_time"));
  const bool isRefusal = Member(fields, "error_code").isInt64();
  event->reason = TextOf(Member(fields, isRefusal ? "error" : "exit_reason"));
  event->code = NumberOf(Member(fields, isRefusal ? "error_code" : "exit_code"));
  event->patchId = TextOf(isRefusal ? Member(fields, "tessera.patch_id")
                                    : Member(Member(fields, "tessera"), "patch_id"));
  return true;
}

// What is wrong with the event's line; empty when it is an event.
cvn::String DescribeLine(SpooledEvent* event) {
  const std::optional<Json::Value> document = Parse(event->line);
  if (!document) {
    return u"it is not one JSON object in one line of UTF-8";
  }
  return (*document)["data"].isObject() && Describe(*document, event) ? cvn::String()
                                                                      : u"it holds no event";
}

// What is wrong with a file; empty when it is an event.
cvn::String ReadEvent(cvn::StringView path, SpooledEvent* event) {
  const platform::Code code = platform::ReadWholeFile(path, &event->line);
  if (code != platform::kSuccess) {
    return DescribeCode(code);
  }
  event->line.resize(event->line.size() - (event->line.ends_with('\n') ? 1 : 0));
  return DescribeLine(event);
}

bool IsEventFile(const files::SearchEntry& entry) {
  return !entry.IsDirectory() && !entry.Name().AsView().ends_with(u".tmp");
}

}  // namespace

std::optional<SpooledEvent> ReadEventLine(std::string line) {
  SpooledEvent event;
  event.line = std::move(line);
  return DescribeLine(&event).Empty() ? std::optional(std::move(event)) : std::nullopt;
}

platform::Code ReadSpool(cvn::StringView folder, cvn::List<SpooledEvent>* events,
                         cvn::List<BrokenEvent>* broken) {
  cvn::String base(folder);
  platform::paths::AddBackslash(&base);
  cvn::String pattern = base;
  pattern.Append(u'*');
  files::Search search;
  files::SearchEntry entry;
  platform::Code code = search.First(pattern, &entry);
  for (; code == platform::kSuccess; code = search.Next(&entry)) {
    if (!IsEventFile(entry)) {
      continue;
    }
    cvn::String path = base;
    path.Append(entry.Name());
    SpooledEvent event;
    cvn::String problem = ReadEvent(path, &event);
    if (problem.Empty()) {
      events->push_back(std::move(event));
    } else {
      broken->push_back({std::move(path), std::move(problem)});
    }
  }
  std::ranges::stable_sort(*events, {}, &SpooledEvent::time);
  const bool isEnd = code == platform::kNoMoreFiles || code == platform::kFileNotFound;
  return isEnd ? platform::kSuccess : code;
}

}  // namespace tlx
