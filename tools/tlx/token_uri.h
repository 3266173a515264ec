// Keys on tokens and in HSMs, as a URI of RFC 7512 names them.
#pragma once

#include <optional>
#include <string>

#include "support/string.h"

namespace tlx {

struct TokenUri {
  std::string object;      // "pkcs11:token=...;object=...", what it is without how to reach it
  std::string modulePath;  // of the library that speaks to the token; empty for the usual one
  cvn::String pinFile;     // empty when it names none
};

// Whether this is the place of a key on a token, rather than a file's path.
bool IsTokenUri(cvn::StringView place);

// The URI as messages show it: the object alone, and nothing that could be a PIN.
cvn::String ShownTokenUri(cvn::StringView uri);

// Reads a URI. A PIN in it is refused, for every program of the host can see it there. Nothing on
// failure, with `*problem` saying why.
std::optional<TokenUri> ReadTokenUri(cvn::StringView uri, cvn::String* problem);

}  // namespace tlx
