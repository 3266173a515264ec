#include "tools/tlx/options.h"

#include <algorithm>

#include "support/format.h"

namespace tlx {

cvn::StringView Options::Value(cvn::StringView name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? cvn::StringView() : found->second.AsView();
}

class OptionParser {
 public:
  OptionParser(const CommandSpec& command, Options* options, cvn::String* problem)
      : command_(command), options_(options), problem_(problem) {}

  ParseOutcome Parse(std::span<const cvn::String> arguments) {
    while (!arguments.empty()) {
      const cvn::StringView name = arguments.front();
      if (name == u"--help" || name == u"-h") {
        return ParseOutcome::Help;
      }
      const std::size_t taken = TakeOption(name, arguments.subspan(1));
      if (taken == 0) {
        return ParseOutcome::BadUsage;
      }
      arguments = arguments.subspan(taken);
    }
    return HasAllRequired() ? ParseOutcome::Run : ParseOutcome::BadUsage;
  }

 private:
  // Returns how many arguments belong to the option, itself included; 0 after a problem.
  std::size_t TakeOption(cvn::StringView name, std::span<const cvn::String> rest) {
    const auto spec = std::ranges::find(command_.options, name, &OptionSpec::name);
    if (spec == command_.options.end()) {
      return Fail(name.starts_with(u"-") ? u"unknown option '%s'" : u"unexpected argument '%s'",
                  name);
    }
    if (options_->Has(name)) {
      return Fail(u"option '%s' is given twice", name);
    }
    if (spec->valueName.empty()) {
      options_->values_[name] = cvn::String();
      return 1;
    }
    if (rest.empty() || rest.front().Empty() || rest.front().AsView().starts_with(u"--")) {
      return Fail(u"option '%s' needs a value", name);
    }
    options_->values_[name] = rest.front();
    return 2;
  }

  bool HasAllRequired() {
    for (const OptionSpec& spec : command_.options) {
      if (spec.isRequired && !options_->Has(spec.name)) {
        Fail(u"option '%s' is missing", spec.name);
        return false;
      }
    }
    return true;
  }

  std::size_t Fail(cvn::StringView format, cvn::StringView name) {
    *problem_ = cvn::Format(format, name);
    return 0;
  }

  const CommandSpec& command_;
  Options* options_;
  cvn::String* problem_;
};

namespace {

cvn::String WithValue(const OptionSpec& spec) {
  cvn::String text = spec.name;
  if (!spec.valueName.empty()) {
    text.Append(u' ');
    text.Append(spec.valueName);
  }
  return text;
}

}  // namespace

ParseOutcome ParseOptions(const CommandSpec& command, std::span<const cvn::String> arguments,
                          Options* options, cvn::String* problem) {
  return OptionParser(command, options, problem).Parse(arguments);
}

cvn::String UsageOf(const CommandSpec& command) {
  cvn::String text = cvn::Format(u"Usage: tlx %s", command.name);
  for (const OptionSpec& spec : command.options) {
    text.Append(cvn::Format(spec.isRequired ? u" %s" : u" [%s]", WithValue(spec)));
  }
  return text;
}

cvn::String HelpOf(const CommandSpec& command) {
  cvn::String text = cvn::Format(u"%s\n\n%s\nOptions:\n", UsageOf(command), command.details);
  for (const OptionSpec& spec : command.options) {
    text.Append(cvn::Format(u"  %-20s %s\n", WithValue(spec), spec.help));
  }
  text.Append(cvn::Format(u"  %-20s %s", u"--help, -h", u"Show this text"));
  return text;
}

}  // namespace tlx
