#include "tools/tlx/rehearsal_json.h"

#include <limits>
#include <span>

#include "changes/json_input.h"
#include "platform/file_digest.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/json_output.h"
#include "tools/tlx/verification.h"

namespace tlx {
namespace {

using platform::machine::ViewEnd;
using platform::machine::ViewKind;

constexpr int kVersion = 1;

const char* NameOf(ViewEnd end) {
  switch (end) {
    case ViewEnd::Ended:
      return "ended";
    case ViewEnd::TimeOut:
      return "timeOut";
    case ViewEnd::TooMuchWritten:
      return "tooMuchWritten";
    case ViewEnd::TooManyProcesses:
      return "tooManyProcesses";
    case ViewEnd::Crashed:
      return "crashed";
  }
  return "";
}

Json::Value Number(std::uint64_t number) { return static_cast<Json::UInt64>(number); }

Json::Value WouldJson(const cvn::List<WouldDo>& would) {
  Json::Value list(Json::arrayValue);
  for (const WouldDo& one : would) {
    Json::Value value(Json::objectValue);
    value["what"] = JsonText(one.what);
    value["command"] = JsonText(one.command);
    value["line"] = Number(one.line);
    value["answer"] = static_cast<std::uint32_t>(one.answer);
    list.append(value);
  }
  return list;
}

Json::Value FailureJson(const FailurePoint& failure) {
  Json::Value value(Json::objectValue);
  value["command"] = JsonText(failure.command);
  value["line"] = Number(failure.line);
  value["error"] = JsonText(failure.error);
  value["isHandled"] = failure.isHandled;
  return value;
}

Json::Value PlaceJson(std::size_t index) {
  return index == kNoCommand ? Json::Value() : Number(index);
}

Json::Value ScriptJson(const Rehearsal& rehearsal) {
  Json::Value script(Json::objectValue);
  script["sha256"] = ScriptDigest(rehearsal.script);
  Json::Value& commands = script["commands"] = Json::Value(Json::arrayValue);
  for (const CommandVisits& visit : rehearsal.visits) {
    Json::Value value(Json::objectValue);
    value["name"] = JsonText(visit.name);
    value["line"] = Number(visit.line);
    value["column"] = Number(visit.column);
    value["entered"] = Number(visit.count);
    commands.append(value);
  }
  Json::Value& steps = script["steps"] = Json::Value(Json::arrayValue);
  for (const auto& [step, count] : rehearsal.steps) {
    Json::Value value(Json::objectValue);
    value["from"] = PlaceJson(step.first);
    value["to"] = PlaceJson(step.second);
    value["taken"] = Number(count);
    steps.append(value);
  }
  return script;
}

// Each as it is spooled; as a text what is no JSON.
Json::Value EventsJson(const cvn::List<std::string>& events) {
  Json::Value list(Json::arrayValue);
  for (const std::string& event : events) {
    const std::optional<Json::Value> value = tessel::ReadJsonObject(event);
    list.append(value ? *value : JsonText(cvn::Utf8ToWide(event)));
  }
  return list;
}

// Reads back what ScriptJson made. Values of other types than expected make JsonCpp throw, or are
// refused here.
bool ReadScript(const Json::Value& script, RehearsedScript* read) {
  if (!script.isObject() || !script["commands"].isArray() || !script["steps"].isArray()) {
    return false;
  }
  read->digest = script["sha256"].asString();
  for (const Json::Value& command : script["commands"]) {
    read->road.visits.push_back(command["entered"].asUInt64());
  }
  const auto place = [&](const Json::Value& value, std::size_t* index) {
    *index = value.isNull() ? kNoCommand : value.asUInt64();
    return value.isNull() || *index < read->road.visits.size();
  };
  for (const Json::Value& step : script["steps"]) {
    FlowStep between;
    if (!place(step["from"], &between.first) || !place(step["to"], &between.second)) {
      return false;
    }
    read->road.steps[between] = step["taken"].asUInt64();
  }
  return true;
}

}  // namespace

const char* ViewName(ViewKind kind) {
  switch (kind) {
    case ViewKind::Overlay:
      return "overlay";
    case ViewKind::SharedCopy:
      return "sharedCopy";
    case ViewKind::PlainCopy:
      return "plainCopy";
  }
  return "";
}

Json::Value RehearsalJson(const Rehearsal& rehearsal, const ChangeReport& report) {
  Json::Value document(Json::objectValue);
  document["version"] = kVersion;
  document["patch"] = JsonText(rehearsal.patch);
  document["machine"] = JsonText(rehearsal.machineFolder);
  document["view"] = ViewName(rehearsal.kind);
  document["startedAt"] = JsonText(UtcText(rehearsal.startedAt));
  document["milliseconds"] = rehearsal.milliseconds;
  document["end"] = NameOf(rehearsal.end);
  if (!rehearsal.IsCutShort()) {
    document["exitCode"] = rehearsal.exitCode;
    document["reason"] = rehearsal.reason;
  }
  if (rehearsal.failure) {
    document["failure"] = FailureJson(*rehearsal.failure);
  }
  Json::Value& failures = document["failures"] = Json::Value(Json::arrayValue);
  for (const FailurePoint& failure : rehearsal.failures) {
    failures.append(FailureJson(failure));
  }
  document["would"] = WouldJson(rehearsal.would);
  document["isRecordWhole"] = rehearsal.isRecordWhole;
  if (!rehearsal.script.empty()) {
    document["script"] = ScriptJson(rehearsal);
  }
  if (rehearsal.changesCode == platform::kSuccess) {
    document["changes"] = ReportJson(report);
  }
  document["events"] = EventsJson(rehearsal.events);
  document["trace"] = JsonText(cvn::Utf8ToWide(rehearsal.trace));
  return document;
}

std::optional<RehearsedScript> ReadRehearsedScript(std::string_view json) {
  const std::optional<Json::Value> document = tessel::ReadJsonObject(json);
  try {
    RehearsedScript read;
    if (document && (*document)["version"] == kVersion &&
        ReadScript((*document)["script"], &read)) {
      return read;
    }
  } catch (const std::exception&) {
    return std::nullopt;
  }
  return std::nullopt;
}

std::string ScriptDigest(std::string_view script) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  script.remove_prefix(script.starts_with(kMark) ? kMark.size() : 0);
  const platform::Bytes digest = platform::Digest(std::as_bytes(std::span(script)), EVP_sha256());
  return cvn::WideToUtf8(cvn::HexText(std::as_bytes(std::span(digest))));
}

}  // namespace tlx
