// Private keys that never leave their token.
#pragma once

#include <string>

#include "platform/openssl.h"
#include "support/string.h"
#include "tools/tlx/token_uri.h"

namespace tlx {

// Reaches a private key on a token, by the PKCS #11 library that the URI names, or else the
// environment's PKCS11_MODULE_PATH, or else p11-kit, which knows all that the host has. What is
// done with the key, the token does. With an empty `pin`, a token that needs one asks for it on the
// terminal. Null on failure, with `*problem` saying why.
platform::OpenSsl<EVP_PKEY> LoadTokenKey(const TokenUri& uri, const std::string& pin,
                                         cvn::String* problem);

}  // namespace tlx
