// What [authenticity] of platform.toml demands of a file server and of a boot file.
#pragma once

#include "platform/model/policy.h"
#include "zerotouch/fetch/CurlTransfer.h"
#include "zerotouch/trust/Trust.h"

namespace ZeroTouch {

// Makes an HTTPS transfer verify its server as the policy says, or not at all. Returns why that is
// impossible, or "". The policy must outlive the transfer.
Kel::String verifyServer(CurlTransfer& transfer, AuthenticityPolicy const& policy);

// What a signed boot file has to fulfil. `newest` is the date of the newest one that was taken so far, ""
// for none; where it should count and is no date, the result has none.
Expectations expectationsOf(AuthenticityPolicy const& policy, Kel::String const& serialNumber,
                            Kel::String const& newest);

}  // namespace ZeroTouch
