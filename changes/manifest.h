// The manifest of a kept change set, as text.
#pragma once

#include <string>
#include <string_view>

#include "changes/kept_set.h"

namespace tessel {

// Empty when there is too little memory, or the library fails.
std::string PrintManifest(const SetRecord& record, const platform::machine::ChangeSet& changes);

// False when it isn't as docs/change-set.schema.json has it, or a set can't be so; `*problem` then
// says in a sentence what is wrong.
bool ParseManifest(std::string_view text, SetRecord* record, platform::machine::ChangeSet* changes,
                   cvn::String* problem);

}  // namespace tessel
