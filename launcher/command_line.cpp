#include "launcher/command_line.h"

#include <algorithm>

#include "support/format.h"
#include "support/numbers.h"
#include "trace/trace.h"

namespace tessel {
namespace {

constexpr LaunchArgumentSpec kArguments[] = {
    {LaunchArgument::PatchFile, u"encfile", u"PATCH",
     u"The patch to run, by its full path; the last one counts"},
    {LaunchArgument::Diagnostic, u"diagnostic", u"",
     u"Write every trace line to standard output as well"},
    {LaunchArgument::Detach, u"detach", u"",
     u"Write \"Patch validation finished.\" to standard output when the patch has passed its "
     u"gates"},
    {LaunchArgument::SkipInstanceCheck, u"skipInstanceCheck", u"",
     u"Run an external patch beside another one"},
    {LaunchArgument::Variable, u"var", u"KEY VALUE",
     u"Set a variable of the script; may be repeated"},
};

cvn::StringView KeyOf(cvn::StringView argument) {
  const bool prefixed = !argument.empty() && (argument[0] == u'-' || argument[0] == u'/');
  return prefixed ? argument.substr(1) : argument;
}

cvn::StringView ArgumentAt(const cvn::List<cvn::String>& arguments, std::size_t index) {
  return index < arguments.size() ? arguments[index].AsView() : cvn::StringView();
}

// The key and value of /var are not required to be there: each one that is missing counts as empty.
void TakeVariable(cvn::StringView key, cvn::StringView value, LaunchSettings* settings,
                  cvn::List<cvn::String>* options) {
  settings->scriptVariables[key] = value;
  options->push_back(cvn::Format(u"var(%s:%s)", key, value));
}

}  // namespace

std::span<const LaunchArgumentSpec> LaunchArguments() { return kArguments; }

bool ParseCommandLine(const cvn::List<cvn::String>& arguments, LaunchSettings* settings,
                      cvn::String* errorText, cvn::List<cvn::String>* options) {
  std::size_t index = 1;
  while (index < arguments.size()) {
    const auto spec = std::ranges::find_if(
        kArguments, [key = KeyOf(arguments[index])](const LaunchArgumentSpec& candidate) {
          return cvn::EqualNoCase(key, candidate.key);
        });
    if (spec == std::end(kArguments)) {
      *errorText = cvn::Format(u"Unknown argument key: '%s'\n", arguments[index]);
      return false;
    }
    ++index;
    switch (spec->argument) {
      case LaunchArgument::PatchFile:
        if (index >= arguments.size()) {
          *errorText = cvn::Format(u"Argument key '%s' does not have the required value\n",
                                   arguments.back());
          return false;
        }
        settings->patchFilePath = &arguments[index];
        ++index;
        continue;
      case LaunchArgument::Diagnostic:
        SetDiagnosticMode(true);
        break;
      case LaunchArgument::Detach:
        settings->detachMode = true;
        break;
      case LaunchArgument::SkipInstanceCheck:
        settings->skipInstanceCheck = true;
        break;
      case LaunchArgument::Variable:
        TakeVariable(ArgumentAt(arguments, index), ArgumentAt(arguments, index + 1), settings,
                     options);
        index += 2;
        continue;
    }
    options->push_back(spec->key);
  }
  return true;
}

}  // namespace tessel
