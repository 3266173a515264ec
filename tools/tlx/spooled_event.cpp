#include "tools/tlx/spooled_event.h"

#include <json/value.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "changes/json_input.h"
#include "platform/whole_file.h"
#include "support/utf.h"
#include "tools/tlx/messages.h"

namespace tlx {
namespace {

// Twice the longest command line of a Linux host, with each character escaped, is less.
constexpr std::uint64_t kLargestEvent = std::uint64_t{64} << 20;

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
  event->fields = fields;
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

}  // namespace

std::optional<SpooledEvent> ReadEventLine(std::string line) {
  SpooledEvent event;
  event.line = std::move(line);
  return DescribeLine(&event).Empty() ? std::optional(std::move(event)) : std::nullopt;
}

cvn::String ReadEventFile(const platform::files::HeldFolder& folder, cvn::StringView name,
                          SpooledEvent* event, bool* isGone) {
  platform::files::File file;
  platform::Code code = folder.OpenEntry(name, &file);
  *isGone = code == platform::kFileNotFound;
  std::uint64_t size = 0;
  if (code == platform::kSuccess) {
    code = file.Size(&size);
  }
  if (code == platform::kSuccess && size > kLargestEvent) {
    return u"it is larger than an event can be, which is 64 MiB";
  }
  if (code == platform::kSuccess) {
    code = platform::ReadWholeFile(&file, &event->line);
  }
  if (code != platform::kSuccess) {
    return *isGone                                   ? cvn::String()
           : code == platform::files::kNoRegularFile ? cvn::String(u"it is no regular file")
                                                     : DescribeCode(code);
  }
  event->line.resize(event->line.size() - (event->line.ends_with('\n') ? 1 : 0));
  return DescribeLine(event);
}

}  // namespace tlx
