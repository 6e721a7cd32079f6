// Certificates in PEM files, each with the line in which it begins.
#pragma once

#include "zerotouch/trust/OpenSsl.h"

namespace ZeroTouch {

struct PemCertificate {
  unsigned line = 0;
  Certificate certificate;
};

// All of them; of what else there is in the file, nothing is looked at. Throws Refusal, "FILE: reason" or
// "FILE:LINE: reason", when the file cannot be read, one of them is damaged, or there is none.
std::vector<PemCertificate> readCertificates(Kel::String const& path);

}  // namespace ZeroTouch
