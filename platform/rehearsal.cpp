#include "platform/rehearsal.h"

#include <set>

#include "platform/name_fold.h"

namespace platform::rehearsal {
namespace {

World* answers = nullptr;

// What the answers have led to.
struct Consequences {
  std::set<std::uint32_t> ended;  // ids of processes
  std::set<cvn::String> running;  // folded names of services
};

Consequences& All() {
  static Consequences all;
  return all;
}

}  // namespace

void Begin(World* world) { answers = world; }

bool IsOn() { return answers != nullptr; }

Code Answer(Action action, cvn::StringView what) { return answers->Answer(action, what); }

bool HasEnded(std::uint32_t processId) {
  return answers != nullptr && All().ended.contains(processId);
}

void SetEnded(std::uint32_t processId) { All().ended.insert(processId); }

bool IsRunning(cvn::StringView service) {
  return answers != nullptr && All().running.contains(paths::FoldName(service));
}

void SetRunning(cvn::StringView service, bool isRunning) {
  if (isRunning) {
    All().running.insert(paths::FoldName(service));
  } else {
    All().running.erase(paths::FoldName(service));
  }
}

}  // namespace platform::rehearsal
