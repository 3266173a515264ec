#define OPENSSL_SUPPRESS_DEPRECATED
#include "platform/openssl.h"

#include <openssl/rsa.h>

namespace platform {

void FreeOpenSsl::operator()(RSA* it) const { RSA_free(it); }

}  // namespace platform
