// Time stamps (RFC 3161): an authority vouches for when a signature was there.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/openssl.h"
#include "support/string.h"

namespace tlx {

struct TimeStamp {
  std::string token;  // signed data in DER form
  platform::OpenSsl<ASN1_TIME> time;
};

// Asks the authority at `url` for a time stamp of the signature. What it answers is verified: that
// it is the answer to this question, that its signature is good, and that its certificate is valid
// and for time stamps alone. Who trusts the authority is for the machine to say on which a patch
// runs. Nothing on failure, with `*problem` saying why.
std::optional<TimeStamp> FetchTimeStamp(cvn::StringView url, std::string_view signature,
                                        cvn::String* problem);

}  // namespace tlx
