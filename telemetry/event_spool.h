// The spool folder: where events wait, a file each, until another part of the product takes them.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <variant>

#include "support/string.h"

namespace tessel {

// A receiver of events in the process, as a host of the reporter may set it in place of the spool.
class IEventReceiver {
 public:
  virtual std::int32_t Attach() = 0;
  virtual std::int32_t Detach() = 0;
  // Takes an event. Flags are always 0. Returns 0, or the receiver's own status.
  virtual std::int32_t Receive(const Json::Value& event, std::int32_t flags) = 0;

 protected:
  ~IEventReceiver() = default;
};

// The file spool has nothing of its own to remember.
struct FileSpool {};

// Where events go.
using EventSink = std::variant<IEventReceiver*, FileSpool>;

// The spool folder, "matrix\events" below the product's install folder. Empty when that isn't
// known.
cvn::String GetEventsFolder();

// Brings an event to the sink, which must have one. Into the spool: a file with a new name and no
// extension appears, whole and on the disk, or (after a failure) nothing does but perhaps a file
// whose name ends in ".tmp". `event_time` is added when the event has none.
//
// 0; 1359 when no install folder is known, or the spool folder can't be made; 3, 680, 13, 183, 87
// or 1006 when there is no target, no name, no text, the name is taken, the document can't be made,
// or the file can't be opened; else the platform's code.
//
// Throws std::ios_base::failure when the file can't be written to its end, a full disk above all:
// the caller decides what that means.
std::int32_t SpoolEvent(const EventSink& sink, const Json::Value& event);

}  // namespace tessel
