// What a run in a view leaves for the process that had it made, in memory that both share: also
// when the run is killed, all is there that it did until then.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <utility>

#include "engine/run_observer.h"
#include "launcher/run_sequence.h"
#include "platform/rehearsal.h"
#include "tools/tlx/rehearsal.h"

namespace tlx {

// Writes the record, as the run goes on.
class RunRecorder : public tessel::RunObserver, public platform::rehearsal::World {
 public:
  // The memory is all zeroes. All arguments outlive this.
  RunRecorder(const RunRequest& request, const tessel::WatchedRun& run, std::span<std::byte> memory)
      : request_(request), run_(run), memory_(memory) {}

  void Parsing(cvn::StringView text) override;
  void Entering(const tessel::FunctionBase& command) override;
  void Failed(const tessel::FunctionBase& command, const cvn::String& error,
              bool isHandled) override;
  platform::Code Answer(platform::rehearsal::Action action, cvn::StringView what) override;

  // When the run has ended.
  void Finish();

 private:
  void AddPlaces();
  void StepTo(std::size_t index);

  const RunRequest& request_;
  const tessel::WatchedRun& run_;
  const std::span<std::byte> memory_;
  const tessel::FunctionBase* current_ = nullptr;
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::size_t> commands_;  // by line and column
  std::set<const tessel::FunctionBase*> failed_;
  std::size_t previous_ = kNoCommand;  // that was entered last
};

// Where the run wrote what isn't the machine's; empty when that isn't known.
struct RunPlaces {
  cvn::String traceFile;
  cvn::String eventsFolder;
};

// Reads it, when the run has ended. What is in it counts as far as it is sound.
void ReadRunRecord(std::span<const std::byte> memory, Rehearsal* rehearsal, RunPlaces* places);

}  // namespace tlx
