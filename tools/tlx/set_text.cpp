#include "tools/tlx/set_text.h"

#include "platform/clock.h"
#include "tools/tlx/verification.h"

namespace tlx {

using tessel::SetState;

cvn::StringView WordsFor(SetState state) {
  switch (state) {
    case SetState::Rehearsed:
      return u"rehearsed only";
    case SetState::Committed:
      return u"on the machine";
    case SetState::Undone:
      break;
  }
  return u"taken back";
}

cvn::String TimeText(const tessel::SetRecord& record) {
  return UtcText((record.time - platform::clock::kTicksFrom1601To1970) /
                 platform::clock::kTicksPerSecond);
}

}  // namespace tlx
