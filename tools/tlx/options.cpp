#include "tools/tlx/options.h"

#include <algorithm>

#include "support/format.h"

namespace tlx {

std::span<const cvn::String> Options::Values(cvn::StringView name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? std::span<const cvn::String>() : found->second;
}

cvn::StringView Options::Value(cvn::StringView name) const {
  const std::span<const cvn::String> values = Values(name);
  return values.empty() ? cvn::StringView() : values.front().AsView();
}

cvn::StringView Options::Operand(std::size_t index) const {
  return index < operands_.size() ? operands_[index].AsView() : cvn::StringView();
}

namespace {

bool IsChoice(cvn::StringView choices, cvn::StringView value) {
  const cvn::List<cvn::StringView> all = ChoicesOf(choices);
  return std::ranges::find(all, value) != all.end();
}

}  // namespace

cvn::List<cvn::StringView> ChoicesOf(cvn::StringView name) {
  cvn::List<cvn::StringView> choices;
  while (true) {
    const std::size_t end = name.find(u'|');
    choices.push_back(name.substr(0, end));
    if (end == cvn::StringView::npos) {
      return choices;
    }
    name.remove_prefix(end + 1);
  }
}

const OperandSpec* OperandAfter(const CommandSpec& command, std::size_t given) {
  const std::span<const OperandSpec> specs = command.operands;
  if (given < specs.size()) {
    return &specs[given];
  }
  return !specs.empty() && specs.back().isRepeatable ? &specs.back() : nullptr;
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
      const std::size_t taken =
          IsOperand(name) ? TakeOperand(name) : TakeOption(name, arguments.subspan(1));
      if (taken == 0) {
        return ParseOutcome::BadUsage;
      }
      arguments = arguments.subspan(taken);
    }
    if (HasAllRequired() && command_.faultOf != nullptr) {
      *problem_ = command_.faultOf(*options_);
    }
    return problem_->Empty() ? ParseOutcome::Run : ParseOutcome::BadUsage;
  }

 private:
  bool IsOperand(cvn::StringView argument) const {
    return (!argument.starts_with(u"-") || argument == u"-") && NextOperand() != nullptr;
  }

  const OperandSpec* NextOperand() const {
    return OperandAfter(command_, options_->operands_.size());
  }

  // Like TakeOption, for the operand.
  std::size_t TakeOperand(cvn::StringView value) {
    const OperandSpec& spec = *NextOperand();
    if (value.empty()) {
      return Fail(u"%s is empty", spec.name.Text());
    }
    if (spec.name.Kind() == ValueKind::Choice && !IsChoice(spec.name.Text(), value)) {
      *problem_ = cvn::Format(u"'%s' isn't one of %s", value, spec.name.Text());
      return 0;
    }
    options_->operands_.emplace_back(value);
    return 1;
  }

  // Returns how many arguments belong to the option, itself included; 0 after a problem.
  std::size_t TakeOption(cvn::StringView name, std::span<const cvn::String> rest) {
    const auto spec = std::ranges::find(command_.options, name, &OptionSpec::name);
    if (spec == command_.options.end()) {
      return Fail(name.starts_with(u"-") ? u"unknown option '%s'" : u"unexpected argument '%s'",
                  name);
    }
    if (options_->Has(name) && !spec->isRepeatable) {
      return Fail(u"option '%s' is given twice", name);
    }
    if (spec->value.Kind() == ValueKind::None) {
      options_->values_[name] = {};
      return 1;
    }
    if (rest.empty() || rest.front().Empty() || rest.front().AsView().starts_with(u"--")) {
      return Fail(u"option '%s' needs a value", name);
    }
    const cvn::StringView value = rest.front();
    if (spec->value.Kind() == ValueKind::Choice && !IsChoice(spec->value.Text(), value)) {
      *problem_ = cvn::Format(u"option '%s' takes %s, not '%s'", name, spec->value.Text(), value);
      return 0;
    }
    options_->values_[name].emplace_back(value);
    if (spec->value.Text().find(u' ') == cvn::StringView::npos) {
      return 2;
    }
    if (rest.size() < 2) {
      return Fail(u"option '%s' needs two values", name);
    }
    options_->values_[name].push_back(rest[1]);
    return 3;
  }

  bool HasAllRequired() {
    for (const OptionSpec& spec : command_.options) {
      if (spec.isRequired && !options_->Has(spec.name)) {
        Fail(u"option '%s' is missing", spec.name);
        return false;
      }
    }
    const std::size_t given = std::min(options_->operands_.size(), command_.operands.size());
    for (const OperandSpec& spec : command_.operands.subspan(given)) {
      if (spec.isRequired) {
        Fail(u"%s is missing", spec.name.Text());
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
  if (spec.value.Kind() != ValueKind::None) {
    text.Append(u' ');
    text.Append(spec.value.Text());
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
  for (const OperandSpec& spec : command.operands) {
    text.Append(cvn::Format(spec.isRequired ? u" %s" : u" [%s]", spec.name.Text()));
    text.Append(spec.isRepeatable ? cvn::StringView(u"...") : cvn::StringView());
  }
  for (const OptionSpec& spec : command.options) {
    text.Append(cvn::Format(spec.isRequired ? u" %s" : u" [%s]", WithValue(spec)));
    text.Append(spec.isRepeatable ? cvn::StringView(u"...") : cvn::StringView());
  }
  return text;
}

cvn::String HelpOf(const CommandSpec& command) {
  constexpr std::size_t kColumn = 20;
  const auto row = [](cvn::StringView name, cvn::StringView help) {
    return name.size() <= kColumn ? cvn::Format(u"  %-20s %s", name, help)
                                  : cvn::Format(u"  %s\n  %-20s %s", name, u"", help);
  };
  cvn::String text = cvn::Format(u"%s\n\n%s\n", UsageOf(command), command.details);
  for (const OperandSpec& spec : command.operands) {
    text.Append(cvn::Format(u"%s\n", row(spec.name.Text(), spec.help)));
  }
  text.Append(command.operands.empty() ? u"Options:\n" : u"\nOptions:\n");
  for (const OptionSpec& spec : command.options) {
    text.Append(cvn::Format(u"%s\n", row(WithValue(spec), spec.help)));
  }
  text.Append(row(u"--help, -h", u"Show this text"));
  return text;
}

}  // namespace tlx
