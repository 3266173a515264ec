// By OpenSSL's PKCS #11 engine. Engines are deprecated since OpenSSL 3, but the provider that takes
// this one's place isn't in Debian 12; nothing outside of this file knows of engines.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/ui.h>

#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/token_key.h"

namespace tlx {
namespace {

// Stays loaded until the process ends: unloaded, the engine would lose memory of its own.
ENGINE* Engine() {
  OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
  static ENGINE* const engine = ENGINE_by_id("pkcs11");
  ERR_clear_error();
  return engine;
}

// The cause that was reported first; what follows it are only its consequences.
cvn::String Cause() {
  const unsigned long error = ERR_get_error();
  const char* text = error == 0 ? nullptr : ERR_reason_error_string(error);
  ERR_clear_error();
  return text == nullptr ? cvn::String(u"it gives no reason") : cvn::Utf8ToWide(text);
}

bool Set(ENGINE* engine, const char* name, const std::string& value) {
  return value.empty() || ENGINE_ctrl_cmd_string(engine, name, value.c_str(), 0) == 1;
}

}  // namespace

platform::OpenSsl<EVP_PKEY> LoadTokenKey(const TokenUri& uri, const std::string& pin,
                                         cvn::String* problem) {
  ENGINE* const engine = Engine();
  if (engine == nullptr) {
    *problem =
        u"a key on a token needs OpenSSL's PKCS #11 engine, Debian's package "
        u"libengine-pkcs11-openssl";
    return nullptr;
  }
  // Without QUIET the engine writes to standard error itself.
  if (ENGINE_ctrl_cmd_string(engine, "QUIET", nullptr, 0) != 1 ||
      !Set(engine, "MODULE_PATH", uri.modulePath) || !Set(engine, "PIN", pin) ||
      ENGINE_init(engine) != 1) {
    *problem = cvn::Format(u"the token's library can't be used: %s", Cause());
    return nullptr;
  }
  platform::OpenSsl<EVP_PKEY> key(
      ENGINE_load_private_key(engine, uri.object.c_str(), UI_OpenSSL(), nullptr));
  if (key == nullptr) {
    *problem = cvn::Format(u"no token gives such a key: %s", Cause());
  }
  ENGINE_finish(engine);  // the key holds it as long as it is used
  return key;
}

}  // namespace tlx
