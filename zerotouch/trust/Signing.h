// Making signed files.
#pragma once

#include "zerotouch/trust/OpenSsl.h"
#include "zerotouch/trust/Trust.h"

namespace ZeroTouch {

// Throws Refusal.
void signFile(SigningRequest const& request);

// Throws Refusal when there is no key at `where`, a file or the URI of one on a PKCS#11 token.
Key readKey(Kel::String const& where);

}  // namespace ZeroTouch
