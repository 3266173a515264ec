#include "kit/case_text.h"

#include <algorithm>
#include <array>
#include <regex>

namespace kit {
namespace {

void Take(Case* out, const std::string& word, const std::string& text) {
  const std::pair<const char*, std::string*> kTexts[] = {{"skip", &out->skip},
                                                         {"windows", &out->windows},
                                                         {"key", &out->key},
                                                         {"program", &out->program},
                                                         {"load", &out->load}};
  const std::pair<const char*, Lines*> kLists[] = {
      {"arg", &out->arguments}, {"library", &out->libraries}, {"make", &out->make}};
  for (const auto& [name, member] : kTexts) {
    if (word == name) {
      *member = text;
    }
  }
  for (const auto& [name, member] : kLists) {
    if (word == name) {
      member->push_back(text);
    }
  }
  if (word == "sign") {
    out->isSigned = true;
  } else if (word == "copy") {
    out->isCopied = true;
  } else if (word == "exit") {
    out->exitCode = std::stol(text);
  } else if (word == "env") {
    const std::size_t equals = text.find('=');
    out->environment.emplace_back(text.substr(0, equals), text.substr(equals + 1));
  } else if (word == "expect") {
    out->expected.push_back({text, {}});
  } else if (word == "=") {
    out->expected.back().lines.push_back(text);
  }
}

// The first member of this name, as text.
std::string Member(const std::string& json, const std::string& name) {
  const std::string key = "\"" + name + "\":";
  const std::size_t at = json.find(key);
  if (at == json.npos) {
    return "";
  }
  const std::size_t start = at + key.size();
  const bool isText = json[start] == '"';
  const std::size_t end = isText ? json.find('"', start + 1) : json.find_first_of(",}", start);
  return isText ? json.substr(start + 1, end - start - 1) : json.substr(start, end - start);
}

bool StartsAt(std::string_view text, std::size_t at, std::string_view part) {
  return text.substr(std::min(at, text.size())).starts_with(part);
}

}  // namespace

Case ParseCase(const std::string& text) {
  Case out;
  for (const std::string& line : LinesOf(text)) {
    const std::size_t blank = std::min(line.find(' '), line.size());
    Take(&out, line.substr(0, blank),
         Unescaped(std::string_view(line).substr(std::min(blank + 1, line.size()))));
  }
  return out;
}

std::string FilledIn(std::string text, const std::string& folder, std::time_t now) {
  static const std::regex kNow("@NOW(?:([+-]\\d+)([dhms]))?@");
  std::smatch match;
  while (std::regex_search(text, match, kNow)) {
    const std::map<std::string, std::time_t> kUnits = {
        {"d", 86400}, {"h", 3600}, {"m", 60}, {"s", 1}};
    const std::time_t moment =
        match[1].matched ? now + std::stol(match[1]) * kUnits.at(match[2]) : now;
    text.replace(static_cast<std::size_t>(match.position()),
                 static_cast<std::size_t>(match.length()), std::to_string(moment));
  }
  ReplaceAll(&text, "@PATCH@", folder + "\\patch.tlx");
  ReplaceAll(&text, "@DIR@", folder);
  return text;
}

Lines WithoutGates(const Lines& lines, const Lines& gates) {
  Lines rest;
  bool isReport = false;  // whose text has a second line
  for (const std::string& line : lines) {
    const bool isEnd = isReport && (line == "~]" || line == "]");
    isReport = Matches("tool_ran event data: [{*}", line);
    const bool isAboutReports =
        isEnd || isReport || Matches("critical_issue_occurred event data: [event_name: *]", line) ||
        Matches("ToolRan::Process result = [*", line) ||
        Matches("CriticalIssueOccurred::Process result = [*", line);
    if (!isAboutReports && std::none_of(gates.begin(), gates.end(), [&](const std::string& gate) {
          return Matches(gate, line);
        })) {
      rest.push_back(line);
    }
    if (line == "compare with service path failed") {
      const auto start = std::find_if(rest.rbegin(), rest.rend(), [](const std::string& other) {
        return other.starts_with("install path: ");
      });
      rest.erase(start == rest.rend() ? rest.end() : std::prev(start.base()), rest.end());
    }
  }
  return rest;
}

std::optional<Lines> TraceLines(std::string_view trace) {
  static const std::regex kStamp("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} ");
  constexpr std::string_view kMark = "\xef\xbb\xbf";
  if (!trace.starts_with(kMark)) {
    return std::nullopt;
  }
  Lines lines = LinesOf(trace.substr(kMark.size()));
  for (std::string& line : lines) {
    constexpr std::size_t kLength = 24;
    line = std::regex_match(line.substr(0, kLength), kStamp) ? line.substr(kLength) : "~" + line;
  }
  return lines;
}

std::string Normalised(std::string line, const std::wstring& program, const std::wstring& folder) {
  ReplaceAll(&line, Utf8(program), "@PROGRAM@");
  ReplaceAll(&line, Utf8(program.substr(0, program.rfind(L'\\'))), "@BIN@");
  ReplaceAll(&line, Utf8(folder), "@DIR@");
  constexpr std::size_t kLength = 18;  // of a pointer
  for (std::size_t at = 0; (at = line.find("0x", at)) != line.npos; ++at) {
    const std::string digits = line.substr(at + 2, kLength - 2);
    // The roots of the registry have the same values everywhere.
    if (digits.size() == kLength - 2 &&
        digits.find_first_not_of("0123456789ABCDEF") == digits.npos &&
        !StartsAt(digits, 0, "FFFFFFFF8000000")) {
      line.replace(at, kLength, "@P@");
    }
  }
  return line;
}

std::string TellEvent(const std::string& json) {
  const std::string name = Member(json, "event_name");
  return name == "m_tool_ran"
             ? name + " " + Member(json, "exit_code") + " " + Member(json, "exit_reason")
             : name + " " + Member(json, "error_code") + " " + Member(json, "error");
}

}  // namespace kit
