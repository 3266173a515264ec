// A script that is to be looked at: as it is, or in a patch.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "support/string.h"

namespace tlx {

struct PatchInput {
  std::string script;      // in UTF-8
  std::size_t size = 0;    // of the file, in bytes
  cvn::String digest;      // its SHA-256, as a catalog lists it
  std::size_t blocks = 0;  // of a patch; 0 for a script as it is
};

// Deciphers the bytes of a patch with the public key in the file `keyFile`. The exit code of a
// failure that it told; `shownAs` names the patch then.
int DecipherWith(cvn::StringView keyFile, cvn::StringView shownAs, std::string_view bytes,
                 std::string* script);

// Reads a patch or a script, or standard input for "-". A patch is deciphered as above,
// or with the program's own key when `keyFile` is empty. The exit code of a failure that it told.
int ReadPatchInput(cvn::StringView path, cvn::StringView shownAs, cvn::StringView keyFile,
                   PatchInput* input);

}  // namespace tlx
