// Rehearsals: runs in which nothing is done that reaches beyond the machine. What would do that
// asks here first, and does nothing when it gets an answer.
#pragma once

#include <cstdint>

#include "platform/error.h"
#include "support/string.h"

namespace platform::rehearsal {

enum class Action {
  StartProgram,  // its command line
  EndProcess,    // its name and number
  Download,      // the URL
  StartService,  // its name
  StopService,
  CallLibrary,  // the library, and what is called in it
  Impersonate,  // the user, as "domain\user"
};

// Who answers for the world beyond the machine.
class World {
 public:
  // 0 when the action counts as done, else the code that it fails with.
  virtual Code Answer(Action action, cvn::StringView what) = 0;

 protected:
  ~World() = default;
};

// From now on this process rehearses; `world` lives as long as it does.
void Begin(World* world);

bool IsOn();

// For a rehearsal: the world's answer.
Code Answer(Action action, cvn::StringView what);

// What was answered counts: a process that was ended is gone, a service that was started runs.
bool HasEnded(std::uint32_t processId);
void SetEnded(std::uint32_t processId);
bool IsRunning(cvn::StringView service);
void SetRunning(cvn::StringView service, bool isRunning);

}  // namespace platform::rehearsal
