#include "launcher/command_line.h"

#include "support/format.h"
#include "support/numbers.h"
#include "trace/trace.h"

namespace tessel {
namespace {

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

bool ParseCommandLine(const cvn::List<cvn::String>& arguments, LaunchSettings* settings,
                      cvn::String* errorText, cvn::List<cvn::String>* options) {
  std::size_t index = 1;
  while (index < arguments.size()) {
    const cvn::StringView key = KeyOf(arguments[index]);
    if (cvn::EqualNoCase(key, u"encfile")) {
      if (index + 1 >= arguments.size()) {
        *errorText =
            cvn::Format(u"Argument key '%s' does not have the required value\n", arguments.back());
        return false;
      }
      settings->patchFilePath = &arguments[index + 1];
      index += 2;
    } else if (cvn::EqualNoCase(key, u"diagnostic")) {
      SetDiagnosticMode(true);
      options->push_back(u"diagnostic");
      ++index;
    } else if (cvn::EqualNoCase(key, u"detach")) {
      settings->detachMode = true;
      options->push_back(u"detach");
      ++index;
    } else if (cvn::EqualNoCase(key, u"skipInstanceCheck")) {
      settings->skipInstanceCheck = true;
      options->push_back(u"skipInstanceCheck");
      ++index;
    } else if (cvn::EqualNoCase(key, u"var")) {
      TakeVariable(ArgumentAt(arguments, index + 1), ArgumentAt(arguments, index + 2), settings,
                   options);
      index += 3;
    } else {
      *errorText = cvn::Format(u"Unknown argument key: '%s'\n", arguments[index]);
      return false;
    }
  }
  return true;
}

}  // namespace tessel
