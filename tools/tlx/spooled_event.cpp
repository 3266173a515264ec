#include "tools/tlx/spooled_event.h"

#include <json/reader.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "platform/file_search.h"
#include "platform/paths.h"
#include "platform/whole_file.h"
#include "support/utf.h"
#include "tools/tlx/messages.h"

namespace tlx {
namespace {

namespace files = platform::files;

// An event is one line, and whoever takes it in must find in it what is shown here: no parser may
// have a choice between two members, or leave something out.
bool Parse(const std::string& text, Json::Value* document) {
  const std::size_t end = text.find_first_of("\r\n");
  if ((end != std::string::npos && end != text.size() - 1) || !cvn::IsValidUtf8(text)) {
    return false;
  }
  Json::CharReaderBuilder rules;
  Json::CharReaderBuilder::strictMode(&rules.settings_);
  try {
    const std::unique_ptr<Json::CharReader> reader(rules.newCharReader());
    return reader->parse(text.data(), text.data() + text.size(), document, nullptr) &&
           document->isObject();
  } catch (const std::exception&) {  // nests too deep
    return false;
  }
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

// What is wrong with a file; empty when it is an event.
cvn::String ReadEvent(cvn::StringView path, SpooledEvent* event) {
  std::string text;
  const platform::Code code = platform::ReadWholeFile(path, &text);
  if (code != platform::kSuccess) {
    return DescribeCode(code);
  }
  if (!Parse(text, &event->document)) {
    return u"it is not one JSON object in one line of UTF-8";
  }
  const bool hasData = event->document["data"].isObject();
  return hasData && Describe(event->document, event) ? cvn::String() : u"it holds no event";
}

bool IsEventFile(const files::SearchEntry& entry) {
  return !entry.IsDirectory() && !entry.Name().AsView().ends_with(u".tmp");
}

}  // namespace

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
