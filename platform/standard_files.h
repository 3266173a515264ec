// Standard input and output as files, for bytes as they are.
#pragma once

#include "platform/error.h"
#include "platform/files.h"

namespace platform {

enum class StandardFile { Input, Output };

// Gives a handle of its own on what the caller of the program passed, at the position it stands at.
// 6 when the caller passed nothing.
Code OpenStandardFile(StandardFile which, files::File* file);

}  // namespace platform
