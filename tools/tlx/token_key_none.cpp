// OpenSSL as it is built for Windows loads no code at run time, and so reaches no token.
#include "tools/tlx/token_key.h"

namespace tlx {

platform::OpenSsl<EVP_PKEY> LoadTokenKey(const TokenUri& /*uri*/, const std::string& /*pin*/,
                                         cvn::String* problem) {
  *problem =
      u"tlx reaches tokens on Linux only; here a catalog is signed elsewhere, with --unsigned and "
      u"--attach";
  return nullptr;
}

}  // namespace tlx
