// Signatures and certificates in words, for the trace and for people.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/signatures.h"
#include "support/string.h"
#include "trust/signature_info.h"

namespace tessel {

// A serial number in lower-case hexadecimal digits, two for each byte.
cvn::String SerialText(const platform::signatures::Certificate& certificate);

using SignatureRecord = cvn::amsdk::AntivirusScan::ObjectInfo::SignatureInfo::Chain;

// What there is against a good signature.
enum class PublisherFault { None, OtherName, RefusedSerial };

// What is found of one signature of a file.
struct SignatureFinding {
  platform::signatures::TrustStatus status = platform::signatures::kNoSignature;
  platform::signatures::Chain signer;   // the way up from the signer's certificate
  platform::signatures::Chain stamper;  // from that of who stamped the time, if anybody did
  // When it was stamped, in seconds since 1970 UTC; 0 when nobody vouches for a time.
  std::int64_t stampedAt = 0;
  std::optional<SignatureRecord> chain = {};  // what the reader tells of it, when it is good
  PublisherFault publisher = PublisherFault::None;
};

// What there is against a signature, and which certificate is at fault, as one sentence without its
// full stop; empty when there is nothing.
cvn::String WhatIsWrong(const SignatureFinding& finding);

// The certificate by its subject and serial number.
cvn::String NameOf(const platform::signatures::Certificate& certificate);

}  // namespace tessel
