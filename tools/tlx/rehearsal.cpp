#include "tools/tlx/rehearsal.h"

#include <algorithm>
#include <limits>

#include "launcher/run_sequence.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "platform/rehearsal.h"
#include "platform/streams.h"
#include "platform/whole_file.h"
#include "support/numbers.h"
#include "tools/tlx/own_files.h"
#include "tools/tlx/run_record.h"
#include "tools/tlx/view_options.h"

namespace tlx {
namespace {

// The words that scripts see in place of codes.
struct ErrorWord {
  cvn::StringView word;
  platform::Code code;
};
constexpr ErrorWord kWords[] = {
    {u"timeout", 258},
    {u"Timeout", 258},
    {u"InitFailed", platform::kModNotFound},
    {u"IntegrationPlg init failed", platform::kModNotFound},
    {u"OperationFailed", platform::kGenFailure},
};

constexpr cvn::StringView kBeyond[] = {
    u"amStart",           u"amStop",
    u"applyHqPolicies",   u"fileDownload",
    u"processEntrypoint", u"processImpersonateUser",
    u"processKill",       u"processRun",
    u"serviceStart",      u"serviceStop",
};

// As the runner's own command line has it.
cvn::List<cvn::String> ArgumentsFor(const RunRequest& request) {
  cvn::List<cvn::String> arguments = {u"tlx", u"/encfile", request.patch};
  for (std::size_t i = 0; i + 1 < request.variables.size(); i += 2) {
    arguments.emplace_back(u"/var");
    arguments.push_back(request.variables[i]);
    arguments.push_back(request.variables[i + 1]);
  }
  return arguments;
}

int RunAndRecord(const RunRequest& request, std::span<std::byte> memory) {
  if (request.sparesOutput) {
    platform::streams::SendOutputToError();
  }
  tessel::WatchedRun run;
  RunRecorder recorder(request, run, memory);
  run.observer = &recorder;
  run.script = request.script ? &*request.script : nullptr;
  if (request.isRehearsal) {
    platform::rehearsal::Begin(&recorder);
  }
  const std::int32_t exitCode = tessel::RunPatch(ArgumentsFor(request), &run);
  recorder.Finish();
  return exitCode;
}

// The whole of a file that the run made; empty when it can't be read.
std::string ContentOf(const platform::machine::FileChange& change,
                      platform::machine::ChangeBytes* bytes) {
  platform::files::File file;
  std::string content;
  if (bytes->Open(change, platform::machine::Side::After, &file) != platform::kSuccess ||
      platform::ReadWholeFile(&file, &content) != platform::kSuccess) {
    content.clear();
  }
  return content;
}

std::string_view WithoutByteOrderMark(std::string_view text) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  return text.starts_with(kMark) ? text.substr(kMark.size()) : text;
}

// Reads what the run reported of itself; that of a rehearsal is no change.
void TakeReports(const RunPlaces& places, bool isRehearsal, platform::machine::ChangeBytes* bytes,
                 Rehearsal* rehearsal) {
  cvn::String spool = places.eventsFolder;
  platform::paths::AddBackslash(&spool);
  const auto isEvent = [&spool](cvn::StringView path) {
    const std::size_t name = spool.Length();
    return name > 1 && path.size() > name && cvn::EqualNoCase(path.substr(0, name), spool) &&
           IsEventName(path.substr(name));
  };
  std::erase_if(rehearsal->changes.files, [&](const platform::machine::FileChange& change) {
    const bool isTrace = cvn::EqualNoCase(change.path, places.traceFile);
    if (change.before || (!isTrace && !isEvent(change.path))) {
      return false;
    }
    std::string content = ContentOf(change, bytes);
    if (isTrace) {
      rehearsal->trace = WithoutByteOrderMark(content);
    } else {
      content.resize(std::min(content.find('\n'), content.size()));
      rehearsal->events.push_back(std::move(content));
    }
    return isRehearsal;
  });
}

}  // namespace

platform::Code RunInView(const RunRequest& request, platform::machine::View* view,
                         Rehearsal* rehearsal) {
  const auto memory = view->SharedMemory();
  RunPlaces places;
  RunProgress progress;
  rehearsal->kind = view->Kind();
  rehearsal->machineFolder = view->Folder();
  rehearsal->startedAt = platform::clock::NowTicks() / platform::clock::kTicksPerSecond;
  const std::uint32_t start = platform::clock::TimerMilliseconds();
  const platform::Code code =
      view->Run([&] { return RunAndRecord(request, memory); }, request.limits,
                [&progress](const platform::machine::ViewUse& use) { progress.Show(use); },
                &rehearsal->end, &rehearsal->exitCode);
  rehearsal->milliseconds = platform::clock::TimerMilliseconds() - start;
  if (code != platform::kSuccess) {
    return code;
  }
  ReadRunRecord(memory, rehearsal, &places);
  rehearsal->changesCode = view->CollectChanges(&rehearsal->changes);
  if (rehearsal->changesCode == platform::kSuccess) {
    TakeReports(places, request.isRehearsal, &view->Bytes(), rehearsal);
  }
  // A rehearsal has more to tell; what is to be committed has to be whole.
  return request.isRehearsal ? platform::kSuccess : rehearsal->changesCode;
}

std::optional<platform::Code> AnswerCode(cvn::StringView error) {
  const auto* word = std::ranges::find(kWords, error, &ErrorWord::word);
  if (word != std::end(kWords)) {
    return word->code;
  }
  if (!cvn::IsAllDigits(error.substr(error.starts_with(u'-') ? 1 : 0))) {
    return std::nullopt;
  }
  // Codes are shown with a sign and without one.
  const std::int64_t number = cvn::ReadInt64(error);
  return number >= std::numeric_limits<std::int32_t>::min() &&
                 number <= std::numeric_limits<std::uint32_t>::max()
             ? std::optional(platform::Code(static_cast<std::uint32_t>(number)))
             : std::nullopt;
}

bool ReachesBeyond(cvn::StringView command) {
  return std::ranges::find(kBeyond, command) != std::end(kBeyond);
}

}  // namespace tlx
