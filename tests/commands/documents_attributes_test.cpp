#include "tests/commands/documents_fixture.h"

namespace tessel::testing {
namespace {

// Attributes of one command: those that must hold something, those that must be there, and the
// others.
struct CommandForm {
  const char* name;
  std::vector<std::string> nonEmpty;
  std::vector<std::string> present;
  std::vector<std::string> optional;
};

const CommandForm kForms[] = {
    {"xmlOpen", {"path", "handle"}, {}, {}},
    {"xmlClose", {"handle"}, {}, {}},
    {"xmlSave", {"path", "handle"}, {}, {}},
    {"xmlAddChild", {"xpath", "handle", "data"}, {}, {"insert_before", "insert_after", "cdata"}},
    {"xmlRemoveChild", {"xpath", "handle"}, {}, {}},
    {"xmlSetValue", {"xpath", "handle"}, {"value"}, {}},
    {"xmlSetCDataValue", {"xpath", "handle"}, {"value"}, {}},
    {"xmlGetValue", {"xpath", "handle"}, {"var"}, {}},
    {"xmlGetElement", {"xpath", "handle", "destHandle"}, {}, {}},
    {"jsonOpen", {"path", "handle"}, {}, {}},
    {"jsonClose", {"handle"}, {}, {}},
    {"jsonSave", {"path", "handle"}, {}, {}},
    {"jsonAddChild", {"handle", "data"}, {"path"}, {}},
    {"jsonRemoveChild", {"path", "handle"}, {}, {}},
    {"jsonSetStringValue", {"handle"}, {"path", "value"}, {}},
    {"jsonSetIntValue", {"handle"}, {"path", "value"}, {}},
    {"jsonSetBoolValue", {"handle"}, {"path", "value"}, {}},
    {"jsonGetValue", {"handle"}, {"path", "var"}, {}},
    {"jsonGetElement", {"path", "handle", "destHandle"}, {}, {"enumStep"}},
};

// The command with all its attributes, but with `changed` empty or absent.
std::string Write(const CommandForm& form, const std::string& changed, bool isAbsent) {
  std::string text = std::string("<") + form.name;
  for (const auto* list : {&form.nonEmpty, &form.present, &form.optional}) {
    for (const std::string& name : *list) {
      if (name != changed) {
        text += " " + name + "='x'";
      } else if (!isAbsent) {
        text += " " + name + "=''";
      }
    }
  }
  return text + "/>";
}

void ExpectLoads(const CommandForm& form, const std::string& changed, bool isAbsent, bool loads) {
  const std::string text = Write(form, changed, isAbsent);
  const ScriptOutcome outcome = RunScript("<exit/>" + text);
  EXPECT_EQ(outcome.loadCode, loads ? kLoadSuccess : kLoadCorrupt) << text;
  EXPECT_EQ(outcome.Traced("Function '" + std::string(form.name) +
                           "' has invalid parameters (attributes)"),
            !loads)
      << text;
}

TEST(DocumentCommands, NeedTheirAttributes) {
  for (const CommandForm& form : kForms) {
    ExpectLoads(form, "", false, true);
    for (const std::string& name : form.nonEmpty) {
      ExpectLoads(form, name, true, false);
      ExpectLoads(form, name, false, false);
    }
    for (const std::string& name : form.present) {
      ExpectLoads(form, name, true, false);
      ExpectLoads(form, name, false, true);
    }
    for (const std::string& name : form.optional) {
      ExpectLoads(form, name, true, true);
      ExpectLoads(form, name, false, true);
    }
  }
}

}  // namespace
}  // namespace tessel::testing
