// Writing over a file that has to stay the same file.
#pragma once

#include "platform/error.h"
#include "platform/files.h"

namespace platform {

// Gives `to`, which is open for reading and writing, the content of `from`, and returns when it has
// reached the disk. What is longer than before is written first, so that a full disk leaves `to` as
// it was. Who is killed meanwhile, or meets a fault of the disk, leaves a part of both contents.
Code OverwriteContent(files::File* from, files::File* to);

}  // namespace platform
