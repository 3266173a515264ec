// Distinguished names as text.
#pragma once

#include <openssl/x509.h>

#include "platform/error.h"
#include "support/string.h"

namespace platform::posix {

// As CertNameToStrW with CERT_X500_NAME_STR: in the certificate's order, with ", " between the
// parts and " + " between the values of one part. An attribute without an X.500 key is "OID." and
// its number; a value with characters that the text uses itself stands in quotes, its own quotes
// doubled; one that is no text is "#" and hexadecimal digits.
cvn::String X500Text(const X509_NAME* name);

// As CertGetNameStringW with CERT_NAME_SIMPLE_DISPLAY_TYPE: the subject's common name, else
// organizational unit, organization or mail address, else the alternative mail address, else the
// first attribute that there is.
cvn::String SimpleDisplayName(X509* certificate);

// Takes the first key and value off a text as X500Text makes it; a value keeps its quotes. 8350 for
// what is no such text. A backslash stands for itself, as that is how it is written there.
Code TakeRdn(cvn::StringView* name, cvn::String* key, cvn::String* value);

}  // namespace platform::posix
