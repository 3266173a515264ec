#include <json/value.h>
#include <json/writer.h>

#include <exception>

#include "changes/manifest.h"
#include "changes/manifest_names.h"
#include "changes/manifest_text.h"

namespace tessel {
namespace {

using platform::machine::ChangeSet;
using platform::machine::EntryKind;
using platform::machine::EntryState;
using platform::machine::FileChange;
using platform::machine::KeyChange;
using platform::machine::KeyState;
using platform::machine::ValueChange;
using platform::machine::ValueState;

// Both sides of a change, as far as they are there.
template <typename Change, typename ToJson>
void AddSides(const Change& change, ToJson toJson, Json::Value* value) {
  if (change.before) {
    (*value)["before"] = toJson(*change.before);
  }
  if (change.after) {
    (*value)["after"] = toJson(*change.after);
  }
}

Json::Value ToJson(const EntryState& state) {
  Json::Value value(Json::objectValue);
  value["kind"] = NameOf(kKindNames, state.kind);
  if (state.kind == EntryKind::Link) {
    value["target"] = BytesToJson(state.target);
    return value;
  }
  value["attributes"] = state.attributes;
  value["mode"] = OctalText(state.mode);
  value["written"] = std::to_string(state.written);
  if (state.kind == EntryKind::File) {
    value["size"] = Json::UInt64{state.size};
    value["digest"] = state.digest;
  }
  for (const auto& [name, bytes] : state.extended) {
    Json::Value attribute(Json::objectValue);
    attribute["name"] = BytesToJson(name);
    attribute["value"] = ToHex(bytes);
    value["extended"].append(std::move(attribute));
  }
  return value;
}

Json::Value ToJson(const KeyState& state) {
  Json::Value value(Json::objectValue);
  if (!state.className.Empty()) {
    value["class"] = TextToJson(state.className);
  }
  if (state.isLink) {
    value["isLink"] = true;
  }
  value["security"] = ToHex(state.security);
  return value;
}

Json::Value ToJson(const ValueState& state) {
  Json::Value value(Json::objectValue);
  value["type"] = state.type;
  value["data"] = ToHex(state.data);
  return value;
}

Json::Value ToJson(const FileChange& change) {
  Json::Value value(Json::objectValue);
  value["path"] = TextToJson(change.path);
  if (!change.movedFrom.Empty()) {
    value["movedFrom"] = TextToJson(change.movedFrom);
  }
  AddSides(
      change, [](const EntryState& state) { return ToJson(state); }, &value);
  return value;
}

Json::Value ToJson(const ValueChange& change) {
  Json::Value value(Json::objectValue);
  value["name"] = TextToJson(change.name);
  AddSides(
      change, [](const ValueState& state) { return ToJson(state); }, &value);
  return value;
}

Json::Value ToJson(const KeyChange& change) {
  Json::Value value(Json::objectValue);
  value["hive"] = TextToJson(change.hive);
  value["path"] = TextToJson(change.path);
  AddSides(
      change, [](const KeyState& state) { return ToJson(state); }, &value);
  value["values"] = Json::Value(Json::arrayValue);
  for (const ValueChange& one : change.values) {
    value["values"].append(ToJson(one));
  }
  return value;
}

Json::Value ToJson(const SetRecord& record) {
  Json::Value document(Json::objectValue);
  document["version"] = kManifestVersion;
  document["state"] = NameOf(kStateNames, record.state);
  document["time"] = std::to_string(record.time);
  document["machine"] = TextToJson(record.machineFolder);
  document["patch"] = TextToJson(record.patch);
  if (!record.patchId.Empty()) {
    document["patchId"] = TextToJson(record.patchId);
  }
  document["exitCode"] = record.exitCode;
  document["reason"] = record.reason;
  document["view"] = record.view;
  return document;
}

}  // namespace

std::string PrintManifest(const SetRecord& record, const ChangeSet& changes) {
  try {
    Json::Value document = ToJson(record);
    document["files"] = Json::Value(Json::arrayValue);
    for (const FileChange& change : changes.files) {
      document["files"].append(ToJson(change));
    }
    document["keys"] = Json::Value(Json::arrayValue);
    for (const KeyChange& change : changes.keys) {
      document["keys"].append(ToJson(change));
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, document) + '\n';
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace tessel
