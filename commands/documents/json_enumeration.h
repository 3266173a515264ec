// The walk over a JSON array that jsonGetElement makes. There is one in the process.
#pragma once

#include <string>

#include "commands/documents/json_document.h"
#include "engine/object_store.h"
#include "platform/error.h"
#include "support/string.h"

namespace tessel {

// Gives a value the handle `name`.
void SetElementHandle(const cvn::String& name, const JsonPlace& place, ObjectStore* objects);

// Begins at the array at `path` from `place`, which becomes that array's.
platform::Code BeginEnumeration(const std::string& path, JsonPlace* place);

// Gives the next element the handle `destHandle`.
platform::Code TakeNextElement(const cvn::String& destHandle, ObjectStore* objects);

}  // namespace tessel
