#include "engine/script_engine.h"
#include "support/utf.h"
#include "tools/tlx/inspection.h"
#include "tools/tlx/json_output.h"

namespace tlx {
namespace {

Json::Value LinesJson(const ScriptLines& lines) {
  Json::Value value(Json::arrayValue);
  for (const std::size_t line : lines) {
    value.append(Json::UInt64{line});
  }
  return value;
}

Json::Value NamesJson(const NameSet& names) {
  return JsonTexts(cvn::List<cvn::String>(names.begin(), names.end()));
}

Json::Value ContainerJson(const Inspection& inspection) {
  Json::Value value(Json::objectValue);
  const bool isPatch = inspection.input.blocks != 0;
  value["kind"] = isPatch ? "patch" : "script";
  value["size"] = Json::UInt64{inspection.input.size};
  value["sha256"] = JsonText(inspection.input.digest);
  if (isPatch) {
    value["blocks"] = Json::UInt64{inspection.input.blocks};
    value["key"] = inspection.keyFile.Empty() ? "own" : "given";
  }
  return value;
}

Json::Value HeaderJson(const Inspection& inspection) {
  Json::Value value(Json::objectValue);
  value["id"] = JsonText(inspection.header.id);
  value["type"] = JsonText(inspection.header.patchType);
  value["tags"] = JsonTexts(inspection.header.tags);
  value["state"] = JsonText(StateOf(inspection.dates));
  if (inspection.dates.madeAt != 0) {
    value["made"] = JsonText(UtcText(inspection.dates.madeAt));
  }
  if (inspection.dates.expiresAt != 0) {
    value["expires"] = JsonText(UtcText(inspection.dates.expiresAt));
  }
  return value;
}

Json::Value TouchesJson(const ScriptReading& reading) {
  Json::Value touches(Json::arrayValue);
  for (const Touch& touch : reading.touches) {
    Json::Value value(Json::objectValue);
    value["subject"] = JsonText(NameOf(touch.subject));
    value["use"] = JsonText(NameOf(touch.use));
    value["name"] = JsonText(touch.name);
    value["lines"] = LinesJson(touch.lines);
    value["variables"] = NamesJson(touch.decidedByVariables);
    value["environment"] = NamesJson(touch.decidedByMachine);
    if (!touch.deferredBy.empty()) {
      value["deferredBy"] = JsonText(touch.deferredBy);
    }
    touches.append(value);
  }
  return touches;
}

const char* NameOf(VariableOrigin origin) {
  switch (origin) {
    case VariableOrigin::Script:
      return "script";
    case VariableOrigin::Builtin:
      return "builtin";
    case VariableOrigin::Machine:
      return "environment";
    case VariableOrigin::CommandLine:
      break;
  }
  return "commandLine";
}

Json::Value VariablesJson(const ScriptReading& reading) {
  Json::Value variables(Json::arrayValue);
  for (const auto& [name, variable] : reading.variables) {
    Json::Value value(Json::objectValue);
    value["name"] = JsonText(name);
    value["origin"] = NameOf(variable.origin);
    value["isAskedFor"] = variable.isAskedFor;
    value["readIn"] = LinesJson(variable.readIn);
    value["setIn"] = LinesJson(variable.setIn);
    if (variable.text) {
      value["text"] = JsonText(*variable.text);
    }
    variables.append(value);
  }
  return variables;
}

Json::Value ExitsJson(const ScriptReading& reading) {
  Json::Value exits(Json::arrayValue);
  for (const auto& [code, lines] : reading.exits) {
    Json::Value value(Json::objectValue);
    value["code"] = code;
    value["exitCode"] = tessel::ProcessCodeOf(code);
    value["lines"] = LinesJson(lines);
    exits.append(value);
  }
  return exits;
}

Json::Value CommandsJson(const ScriptReading& reading) {
  Json::Value families(Json::arrayValue);
  for (const auto& [title, commands] : reading.commands) {
    Json::Value value(Json::objectValue);
    value["family"] = JsonText(title);
    value["commands"] = Json::Value(Json::objectValue);
    for (const auto& [name, count] : commands) {
      value["commands"][cvn::WideToUtf8(name)] = Json::UInt64{count};
    }
    families.append(value);
  }
  return families;
}

Json::Value FaultsJson(const Inspection& inspection) {
  Json::Value faults(Json::arrayValue);
  for (const Finding& fault : inspection.faults) {
    Json::Value value(Json::objectValue);
    value["line"] = Json::UInt64{fault.position.line};
    value["column"] = Json::UInt64{fault.position.column};
    value["text"] = JsonText(fault.text);
    faults.append(value);
  }
  return faults;
}

}  // namespace

Json::Value InspectionJson(const Inspection& inspection) {
  Json::Value document(Json::objectValue);
  document["version"] = 1;
  document["file"] = JsonText(inspection.file);
  document["container"] = ContainerJson(inspection);
  document["header"] = HeaderJson(inspection);
  document["touches"] = TouchesJson(inspection.reading);
  document["variables"] = VariablesJson(inspection.reading);
  document["exits"] = ExitsJson(inspection.reading);
  document["mayRunOffTheEnd"] = inspection.reading.mayRunOffTheEnd;
  document["commands"] = CommandsJson(inspection.reading);
  document["unreached"] = Json::UInt64{inspection.reading.unreached};
  document["faults"] = FaultsJson(inspection);
  if (inspection.verification) {
    document["verification"] = VerificationJson(*inspection.verification);
  } else {
    document["whyNotJudged"] = JsonText(inspection.whyNotJudged);
  }
  return document;
}

}  // namespace tlx
