// Whether a certificate is one with which a run accepts a catalog.
#pragma once

#include <openssl/types.h>

#include "support/string.h"

namespace tlx {

struct PublisherCheck {
  cvn::StringView path;    // of the certificate's file, for messages
  bool isForced = false;   // whether one that isn't valid now is only warned of
  bool isStamped = false;  // whether a time stamp will say when it signed
};

// Tells what a run, wherever it takes place, would have against the certificate. Fails for one that
// isn't valid now; all else is a warning, since other runners may be built for another publisher.
// Returns the exit code.
int CheckPublisher(X509* certificate, const PublisherCheck& check);

}  // namespace tlx
