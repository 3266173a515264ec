#include "tools/tlx/completion.h"

#include <algorithm>

#include "launcher/command_line.h"
#include "support/format.h"
#include "support/numbers.h"
#include "support/utf.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"

namespace tlx {
namespace {

constexpr OperandSpec kOperands[] = {
    {u"bash|zsh|fish", true, u"The shell"},
};

class Candidates {
 public:
  void Add(cvn::StringView word, cvn::StringView meaning) {
    text_.Append(cvn::Format(u"%s\t%s\n", word, meaning));
  }

  void AddValue(const ValueName& value, cvn::StringView meaning) {
    if (value.Kind() == ValueKind::Choice) {
      for (const cvn::StringView choice : ChoicesOf(value.Text())) {
        Add(choice, meaning);
      }
    } else if (value.Kind() == ValueKind::File) {
      text_.Append(u":files\n");
    } else if (value.Kind() == ValueKind::Folder) {
      text_.Append(u":folders\n");
    }
  }

  void Print() const {
    if (!text_.Empty()) {
      WriteText({}, cvn::WideToUtf8(text_));
    }
  }

 private:
  cvn::String text_;
};

// The second word of a command that begins with the word `first`; empty for any other.
cvn::StringView SecondWord(const CommandSpec& command, cvn::StringView first) {
  const bool isOfGroup =
      command.name.starts_with(first) && command.name.substr(first.size()).starts_with(u' ');
  return isOfGroup ? command.name.substr(first.size() + 1) : cvn::StringView();
}

// The first words of the commands; one that several begin with, with the second words of these.
void AddCommands(Candidates* candidates) {
  cvn::StringView last;
  for (const CommandSpec* command : AllCommands()) {
    const cvn::StringView first = command->name.substr(0, command->name.find(u' '));
    if (first == last) {
      continue;
    }
    last = first;
    cvn::String meaning = first == command->name ? command->summary : cvn::StringView();
    for (const CommandSpec* other : AllCommands()) {
      const cvn::StringView second = SecondWord(*other, first);
      meaning.Append(meaning.Empty() || second.empty() ? u"" : u", ");
      meaning.Append(second);
    }
    candidates->Add(first, meaning);
  }
  candidates->Add(u"--help", u"List the commands");
  candidates->Add(u"--version", u"Tell which release this is");
}

void AddSecondWords(cvn::StringView first, Candidates* candidates) {
  for (const CommandSpec* command : AllCommands()) {
    if (const cvn::StringView second = SecondWord(*command, first); !second.empty()) {
      candidates->Add(second, command->summary);
    }
  }
}

const CommandSpec* CommandNamed(cvn::StringView name) {
  const std::span<const CommandSpec* const> commands = AllCommands();
  const auto found = std::ranges::find(commands, name, &CommandSpec::name);
  return found == commands.end() ? nullptr : *found;
}

// What may follow the complete words of a command's options and operands.
void AddArguments(const CommandSpec& command, std::span<const cvn::String> words,
                  Candidates* candidates) {
  cvn::Map<cvn::String, bool> given;
  std::size_t operands = 0;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const auto spec = std::ranges::find(command.options, words[i].AsView(), &OptionSpec::name);
    if (spec == command.options.end()) {
      ++operands;
      continue;
    }
    given[words[i]] = true;
    const std::size_t values = spec->value.Kind() == ValueKind::None                    ? 0
                               : spec->value.Text().find(u' ') != cvn::StringView::npos ? 2
                                                                                        : 1;
    if (i + values >= words.size()) {
      return candidates->AddValue(spec->value, spec->help);
    }
    i += values;
  }
  if (const OperandSpec* operand = OperandAfter(command, operands)) {
    candidates->AddValue(operand->name, operand->help);
  }
  for (const OptionSpec& spec : command.options) {
    if (spec.isRepeatable || !given.contains(spec.name)) {
      candidates->Add(spec.name, spec.help);
    }
  }
  candidates->Add(u"--help", u"Show usage and options");
}

void AddForTool(std::span<const cvn::String> words, Candidates* candidates) {
  if (words.empty()) {
    return AddCommands(candidates);
  }
  const CommandSpec* command = CommandNamed(words[0]);
  if (command != nullptr) {
    return AddArguments(*command, words.subspan(1), candidates);
  }
  if (words.size() == 1) {
    return AddSecondWords(words[0], candidates);
  }
  command = CommandNamed(cvn::Format(u"%s %s", words[0], words[1]));
  if (command != nullptr) {
    AddArguments(*command, words.subspan(2), candidates);
  }
}

// `word` is the beginning of the next one: a path may begin with a slash, as keys do.
void AddForRunner(std::span<const cvn::String> words, cvn::StringView word,
                  Candidates* candidates) {
  const std::span<const tessel::LaunchArgumentSpec> specs = tessel::LaunchArguments();
  for (std::size_t i = 0; i < words.size(); ++i) {
    const auto spec = std::ranges::find_if(specs, [&](const tessel::LaunchArgumentSpec& candidate) {
      return cvn::EqualNoCase(words[i].AsView().substr(1), candidate.key);
    });
    if (spec == specs.end()) {
      continue;
    }
    if (spec->argument == tessel::LaunchArgument::PatchFile && i + 1 == words.size()) {
      return candidates->AddValue(u"PATCH", spec->help);
    }
    if (spec->argument == tessel::LaunchArgument::Variable) {
      i += 2;
      if (i >= words.size()) {
        return;
      }
    }
  }
  for (const tessel::LaunchArgumentSpec& spec : specs) {
    candidates->Add(cvn::Format(u"%c%s", word.starts_with(u'-') ? u'-' : u'/', spec.key),
                    spec.help);
  }
}

int Completion(const Options& options) {
  return WriteText({}, CompletionScript(options.Operand(0)));
}

}  // namespace

void PrintCandidates(std::span<const cvn::String> words) {
  Candidates candidates;
  if (words.size() >= 2) {
    const std::span<const cvn::String> complete = words.subspan(1, words.size() - 2);
    if (words.front() == u"tessel") {
      AddForRunner(complete, words.back(), &candidates);
    } else {
      AddForTool(complete, &candidates);
    }
  }
  candidates.Print();
}

const CommandSpec kCompletionCommand = {
    u"completion",
    u"Print what lets a shell complete command lines",
    u"Prints a script for a shell, which then completes the command lines of tlx and tessel: "
    u"commands, options, their\nvalues, files and folders. Packages install it. Without one: "
    u"'source <(tlx completion bash)' in ~/.bashrc, the\nsame with zsh in ~/.zshrc behind "
    u"compinit, and 'tlx completion fish | source' in config.fish.\n",
    {},
    Completion,
    kOperands,
};

}  // namespace tlx
