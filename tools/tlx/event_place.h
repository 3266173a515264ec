// Where events lie: in a machine's spool, or in a folder with event files.
#pragma once

#include <cstdint>

#include "platform/held_folder.h"
#include "support/string.h"

namespace tlx {

class EventPlace {
 public:
  // A folder that the caller named: of a machine, or of events. An empty one is this machine's.
  explicit EventPlace(cvn::StringView folder) : folder_(folder) {}

  enum class State {
    Found,
    Unused,   // a machine whose spool folder isn't there: no run has left an event yet
    Missing,  // there is no such folder
    Failed,
  };

  // Finds the folder of the events and holds it, without keeping the machine open. Called again, it
  // looks again: the folder may be another one, and a machine may have come. After Missing and
  // Failed, `*problem` is what to tell of Name().
  State Open(platform::files::HeldFolder* held, cvn::String* problem);

  // How the caller named it; for this machine, its folder where it has one.
  cvn::String Name() const;
  // Whether it is a machine, as Open has found.
  bool IsMachine() const { return isMachine_; }
  // Of a file in the folder that Open has found, for messages.
  cvn::String PathOf(cvn::StringView file) const;

 private:
  platform::Code OpenMachine();
  platform::Code FindSpool();

  cvn::String folder_;
  bool isMachine_ = false;
  cvn::String spool_;  // of the machine; empty when that isn't known
  std::uint32_t askedAt_ = 0;
};

}  // namespace tlx
