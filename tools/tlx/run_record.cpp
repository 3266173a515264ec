#include "tools/tlx/run_record.h"

#include <json/value.h>
#include <tinyxml.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <optional>
#include <string_view>

#include "changes/json_input.h"
#include "engine/function_base.h"
#include "engine/xml_text.h"
#include "support/format.h"
#include "support/utf.h"
#include "telemetry/event_envelope.h"
#include "telemetry/event_spool.h"
#include "telemetry/reason_names.h"
#include "tools/tlx/script_flow.h"

namespace tlx {
namespace {

using platform::rehearsal::Action;

// What stands at the beginning of the memory. Lines of JSON follow; behind their room, 64 bits
// each, how often each command was entered; and then how often one followed another.
struct Head {
  std::uint64_t lines;  // their bytes
  std::uint64_t isCut;  // a line had no room
  // The last failure: places that are written over, since there may be any number.
  std::uint64_t failureLine;
  std::uint64_t isFailureHandled;
  char command[64];
  char error[256];
};

// For the lines; a script that enters a million times what reaches beyond the machine has more.
constexpr std::uint64_t kMostLines = std::uint64_t{32} << 20;

// A place of a table by hash. Its numbers are one more than those of the commands; 0 stands for no
// command, and both are 0 in a place that is free.
struct StepCount {
  std::uint32_t from;
  std::uint32_t to;
  std::uint64_t count;
};
// A command is followed by few others; what finds no place among so many isn't counted.
constexpr std::size_t kMostProbes = 64;

template <std::size_t Size>
void StoreText(cvn::StringView text, char (&place)[Size]) {
  const std::string bytes = cvn::WideToUtf8(text);
  const std::size_t length = std::min(bytes.size(), Size - 1);
  std::memcpy(place, bytes.data(), length);
  place[length] = '\0';
}

template <std::size_t Size>
cvn::String StoredIn(const char (&place)[Size]) {
  return cvn::Utf8ToWide(std::string(place, std::find(place, place + Size, '\0')));
}

Head* HeadOf(std::span<std::byte> memory) { return reinterpret_cast<Head*>(memory.data()); }

void AddLine(std::span<std::byte> memory, const Json::Value& value) {
  const std::string line = tessel::PrintLine(value);
  Head* head = HeadOf(memory);
  if (line.size() > kMostLines - head->lines) {
    head->isCut = 1;
    return;
  }
  std::memcpy(memory.data() + sizeof(Head) + head->lines, line.data(), line.size());
  head->lines += line.size();
}

// The commands of a script in its order, with where they stand. None when it can't be parsed.
cvn::List<CommandVisits> CommandsOf(cvn::StringView text) {
  cvn::List<CommandVisits> commands;
  TiXmlDocument document;
  const TiXmlElement* root =
      tessel::ParseXmlText(text, &document, true) ? document.RootElement() : nullptr;
  const TiXmlElement* script = root == nullptr ? nullptr : root->FirstChildElement("script");
  if (script == nullptr) {
    return commands;
  }
  const ScriptFlow flow(*script);
  for (const FlowCommand& command : flow.Commands()) {
    const TiXmlElement& element = *command.element;
    commands.push_back({static_cast<std::size_t>(element.Row()),
                        static_cast<std::size_t>(element.Column()),
                        cvn::Utf8ToWide(element.ValueStr()), 0});
  }
  return commands;
}

// The counters of so many commands; none when there is no room.
template <typename Byte>
auto CountersIn(std::span<Byte> memory, std::size_t count) {
  using Counter = std::conditional_t<std::is_const_v<Byte>, const std::uint64_t, std::uint64_t>;
  const std::size_t room = memory.size() - sizeof(Head) - kMostLines;
  const bool fits = count <= room / sizeof(std::uint64_t);
  auto* first = reinterpret_cast<Counter*>(memory.data() + sizeof(Head) + kMostLines);
  return std::span<Counter>(first, fits ? count : 0);
}

// The table of steps of so many commands; empty when there is no room.
template <typename Byte>
auto StepsIn(std::span<Byte> memory, std::size_t count) {
  using Step = std::conditional_t<std::is_const_v<Byte>, const StepCount, StepCount>;
  const std::size_t places = 4 * count + kMostProbes;
  const std::size_t begin = sizeof(Head) + kMostLines + count * sizeof(std::uint64_t);
  const bool fits = begin <= memory.size() && places <= (memory.size() - begin) / sizeof(Step);
  return std::span<Step>(reinterpret_cast<Step*>(memory.data() + begin), fits ? places : 0);
}

void CountStep(std::span<StepCount> table, std::uint32_t from, std::uint32_t to) {
  constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;  // 2^64 by the golden ratio
  const std::uint64_t hash = ((std::uint64_t{from} << 32) + to) * kSpread >> 20;
  for (std::size_t i = 0; i < std::min(kMostProbes, table.size()); ++i) {
    StepCount& place = table[(hash + i) % table.size()];
    if (place.count == 0 || (place.from == from && place.to == to)) {
      place.from = from;
      place.to = to;
      ++place.count;
      return;
    }
  }
}

cvn::StringView WordsFor(Action action) {
  switch (action) {
    case Action::StartProgram:
      return u"start the program";
    case Action::EndProcess:
      return u"end the process";
    case Action::Download:
      return u"download";
    case Action::StartService:
      return u"start the service";
    case Action::StopService:
      return u"stop the service";
    case Action::CallLibrary:
      return u"call the library";
    case Action::Impersonate:
      return u"go on as the user";
  }
  return u"";
}

void TakeWould(const Json::Value& would, Rehearsal* rehearsal) {
  rehearsal->would.push_back({cvn::Utf8ToWide(would["what"].asString()),
                              cvn::Utf8ToWide(would["command"].asString()),
                              static_cast<std::size_t>(would["line"].asUInt64()),
                              platform::Code(would["answer"].asUInt())});
}

void TakeFailure(const Json::Value& failure, Rehearsal* rehearsal) {
  rehearsal->failures.push_back({cvn::Utf8ToWide(failure["command"].asString()),
                                 static_cast<std::size_t>(failure["line"].asUInt64()),
                                 cvn::Utf8ToWide(failure["error"].asString()),
                                 failure["isHandled"].asBool()});
}

void TakeLine(const Json::Value& line, Rehearsal* rehearsal, RunPlaces* places) {
  if (line.isMember("failure")) {
    TakeFailure(line["failure"], rehearsal);
  }
  if (line.isMember("would")) {
    TakeWould(line["would"], rehearsal);
  }
  if (line.isMember("script")) {
    rehearsal->script = line["script"].asString();
  }
  if (line.isMember("trace")) {
    places->traceFile = cvn::Utf8ToWide(line["trace"].asString());
    places->eventsFolder = cvn::Utf8ToWide(line["events"].asString());
  }
  if (line.isMember("reason")) {
    rehearsal->reason = line["reason"].asString();
  }
}

// JsonCpp throws on a value of another type than expected.
void TakeText(std::string_view text, Rehearsal* rehearsal, RunPlaces* places) {
  try {
    const std::optional<Json::Value> line = tessel::ReadJsonObject(text);
    if (line) {
      TakeLine(*line, rehearsal, places);
    }
  } catch (const std::exception&) {
    rehearsal->isRecordWhole = false;
  }
}

}  // namespace

void RunRecorder::AddPlaces() {
  Json::Value places(Json::objectValue);
  places["trace"] = cvn::WideToUtf8(run_.traceFile);
  places["events"] = cvn::WideToUtf8(tessel::GetEventsFolder());
  AddLine(memory_, places);
}

void RunRecorder::Parsing(cvn::StringView text) {
  AddPlaces();
  Json::Value script(Json::objectValue);
  script["script"] = cvn::WideToUtf8(text);
  AddLine(memory_, script);
  for (const CommandVisits& command : CommandsOf(text)) {
    commands_.try_emplace(
        {static_cast<std::uint32_t>(command.line), static_cast<std::uint32_t>(command.column)},
        commands_.size());
  }
}

void RunRecorder::Entering(const tessel::FunctionBase& command) {
  current_ = &command;
  const tessel::ScriptPlace& place = command.scriptPlace;
  const auto found = commands_.find({place.line, place.column});
  if (found == commands_.end()) {
    return;
  }
  // The commands of a loop follow each other within it.
  if (place.isWithinLoop == 0 || found->second != previous_) {
    StepTo(found->second);
  }
  const auto counters = CountersIn(memory_, commands_.size());
  if (place.isWithinLoop == 0 && found->second < counters.size()) {
    ++counters[found->second];
  }
}

void RunRecorder::StepTo(std::size_t index) {
  CountStep(StepsIn(memory_, commands_.size()), static_cast<std::uint32_t>(previous_ + 1),
            static_cast<std::uint32_t>(index + 1));
  previous_ = index;
}

void RunRecorder::Failed(const tessel::FunctionBase& command, const cvn::String& error,
                         bool isHandled) {
  if (failed_.insert(&command).second) {
    Json::Value line(Json::objectValue);
    Json::Value& failure = line["failure"];
    failure["command"] = cvn::WideToUtf8(command.name);
    failure["line"] = command.scriptPlace.line;
    failure["error"] = cvn::WideToUtf8(error);
    failure["isHandled"] = isHandled;
    AddLine(memory_, line);
  }
  Head* head = HeadOf(memory_);
  head->failureLine = command.scriptPlace.line;
  head->isFailureHandled = isHandled ? 1 : 0;
  StoreText(command.name, head->command);
  StoreText(error, head->error);
}

platform::Code RunRecorder::Answer(Action action, cvn::StringView what) {
  const cvn::String command = current_ == nullptr ? cvn::String() : current_->name;
  const auto found = request_.answers.find(command);
  const platform::Code answer =
      found == request_.answers.end() ? platform::kSuccess : found->second;
  Json::Value line(Json::objectValue);
  Json::Value& would = line["would"];
  // A command line may end in a blank.
  const std::size_t length = what.find_last_not_of(u' ') + 1;
  would["what"] = cvn::WideToUtf8(cvn::Format(u"%s %s", WordsFor(action), what.substr(0, length)));
  would["command"] = cvn::WideToUtf8(command);
  would["line"] = current_ == nullptr ? 0 : current_->scriptPlace.line;
  would["answer"] = static_cast<std::uint32_t>(answer);
  AddLine(memory_, line);
  return answer;
}

void RunRecorder::Finish() {
  if (previous_ != kNoCommand) {
    StepTo(kNoCommand);
  }
  AddPlaces();  // a refused run never came to its script
  Json::Value line(Json::objectValue);
  line["reason"] = run_.end.detail.empty() ? tessel::ToolRanReasonName(run_.end.exitCode)
                                           : cvn::WideToUtf8(run_.end.detail);
  AddLine(memory_, line);
}

void ReadRunRecord(std::span<const std::byte> memory, Rehearsal* rehearsal, RunPlaces* places) {
  Head head{};
  std::memcpy(&head, memory.data(), sizeof(head));
  rehearsal->isRecordWhole = head.isCut == 0;
  std::string_view lines(reinterpret_cast<const char*>(memory.data()) + sizeof(Head),
                         std::min(head.lines, kMostLines));
  while (!lines.empty()) {
    const std::string_view line = lines.substr(0, lines.find('\n'));
    TakeText(line, rehearsal, places);
    lines.remove_prefix(std::min(line.size() + 1, lines.size()));
  }
  if (head.failureLine != 0 || head.command[0] != '\0') {
    rehearsal->failure =
        FailurePoint{StoredIn(head.command), static_cast<std::size_t>(head.failureLine),
                     StoredIn(head.error), head.isFailureHandled != 0};
  }
  rehearsal->visits = CommandsOf(cvn::Utf8ToWide(rehearsal->script));
  const auto counters = CountersIn(memory, rehearsal->visits.size());
  for (std::size_t i = 0; i < counters.size(); ++i) {
    rehearsal->visits[i].count = counters[i];
  }
  for (const StepCount& step : StepsIn(memory, rehearsal->visits.size())) {
    if (step.count != 0 && std::max(step.from, step.to) <= rehearsal->visits.size()) {
      const FlowStep between(std::size_t{step.from} - 1, std::size_t{step.to} - 1);
      rehearsal->steps.emplace(between, step.count);
    }
  }
}

}  // namespace tlx
