#include <json/value.h>

#include "tools/tlx/change_report.h"
#include "tools/tlx/json_output.h"

namespace tlx {
namespace {

using platform::machine::EntryKind;
using platform::machine::EntryState;

void AddBytes(const char* name, const std::optional<EntryState>& state, Json::Value* value) {
  if (state && state->kind == EntryKind::File) {
    (*value)[name]["size"] = Json::UInt64{state->size};
    (*value)[name]["digest"] = state->digest;
  }
}

Json::Value DiffJson(const tessel::ContentDiff& diff) {
  Json::Value value(Json::objectValue);
  value["form"] = NameOf(diff.form);
  value["isLayoutOnly"] = diff.isLayoutOnly;
  value["isTooLarge"] = diff.isTooLarge;
  value["lines"] = Json::Value(Json::arrayValue);
  for (const tessel::DiffLine& line : diff.lines) {
    value["lines"].append((line.origin == '@' ? std::string() : std::string(1, line.origin)) +
                          line.text);
  }
  return value;
}

Json::Value FileJson(const FileNote& note) {
  Json::Value value(Json::objectValue);
  value["kind"] = NameOf(note.kind);
  value["what"] = NameOf(note.what);
  value["path"] = JsonText(note.path);
  if (!note.movedFrom.Empty()) {
    value["movedFrom"] = JsonText(note.movedFrom);
  }
  if (note.contained != 0) {
    value["contained"] = Json::UInt64{note.contained};
  }
  AddBytes("before", note.before, &value);
  AddBytes("after", note.after, &value);
  value["facts"] = JsonTexts(note.facts);
  if (note.content) {
    value["diff"] = DiffJson(*note.content);
  }
  return value;
}

Json::Value KeyJson(const KeyNote& note) {
  Json::Value value(Json::objectValue);
  value["kind"] = NameOf(note.kind);
  value["path"] = JsonText(note.path);
  value["facts"] = JsonTexts(note.facts);
  value["values"] = Json::Value(Json::arrayValue);
  for (const ValueNote& one : note.values) {
    Json::Value item(Json::objectValue);
    item["kind"] = NameOf(one.kind);
    item["name"] = JsonText(one.name);
    item["before"] = JsonTexts(one.before);
    item["after"] = JsonTexts(one.after);
    value["values"].append(std::move(item));
  }
  return value;
}

Json::Value ServiceJson(const ServiceNote& note) {
  Json::Value value(Json::objectValue);
  value["kind"] = NameOf(note.kind);
  value["name"] = JsonText(note.name);
  value["keys"] = Json::Value(Json::arrayValue);
  for (const KeyNote& key : note.keys) {
    value["keys"].append(KeyJson(key));
  }
  return value;
}

template <typename Note>
Json::Value ListJson(const cvn::List<Note>& notes, Json::Value (*toJson)(const Note&)) {
  Json::Value list(Json::arrayValue);
  for (const Note& note : notes) {
    list.append(toJson(note));
  }
  return list;
}

}  // namespace

Json::Value ReportJson(const ChangeReport& report) {
  Json::Value value(Json::objectValue);
  value["files"] = ListJson(report.files, FileJson);
  value["keys"] = ListJson(report.keys, KeyJson);
  value["services"] = ListJson(report.services, ServiceJson);
  value["atNextBoot"] = JsonTexts(report.atNextBoot);
  value["notAtNextBoot"] = JsonTexts(report.notAtNextBoot);
  value["ownFiles"] = JsonTexts(report.ownFiles);
  return value;
}

}  // namespace tlx
