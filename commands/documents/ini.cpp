#include "commands/documents/ini.h"

#include "engine/variable_store.h"
#include "platform/profile.h"
#include "trace/trace.h"

namespace tessel {
namespace {

// With the terminator, so that 10,239 characters of a longer value are left.
constexpr std::size_t kValueCapacity = 10'240;

}  // namespace

bool FunctionIniGetValue::Parse() {
  if (!ReadNonEmpty(u"path", &path_) || !ReadNonEmpty(u"section", &section_) ||
      !ReadNonEmpty(u"key", &key_) || !ReadNonEmpty(u"var", &var_)) {
    return false;
  }
  ReadAttribute(u"default", &default_);
  return true;
}

void FunctionIniGetValue::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  const cvn::String section = ExpandVariables(section_, variables);
  const cvn::String key = ExpandVariables(key_, variables);
  const cvn::String fallback = ExpandVariables(default_, variables);
  TraceLine(u"iniGetValue in '%s' at '%s\\%s'. variable: '%s' (default:%s)", path, section, key,
            var_, fallback);
  SetVariable(var_, platform::profile::ReadString(section, key, fallback, kValueCapacity, path),
              variables);
  TraceEnd(u"iniGetValue");
}

bool FunctionIniSetValue::Parse() {
  return ReadNonEmpty(u"path", &path_) && ReadNonEmpty(u"section", &section_) &&
         ReadNonEmpty(u"key", &key_) && ReadAttribute(u"value", &value_);
}

void FunctionIniSetValue::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  const cvn::String section = ExpandVariables(section_, variables);
  const cvn::String key = ExpandVariables(key_, variables);
  const cvn::String value = ExpandVariables(value_, variables);
  // The value as written: what a variable holds doesn't get into the trace.
  TraceLine(u"iniSetValue in '%s' at '%s\\%s'. value: '%s'", path, section, key, value_);
  ReportCode(platform::profile::WriteString(section, key, value, path));
  TraceEnd(u"iniSetValue");
}

}  // namespace tessel
