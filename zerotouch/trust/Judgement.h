// Whether the one signature of a file counts.
#pragma once

#include "zerotouch/trust/Pem.h"
#include "zerotouch/trust/SignedFile.h"
#include "zerotouch/trust/Trust.h"

namespace ZeroTouch {

// The digest by which the content is to be digested. Throws Refusal for more than one, and for a weak one.
EVP_MD const* contentDigest(Bytes const& digestAlgorithms);

// What the signature says. `parsed` is the file without its content, `digest` the filter (BIO_f_md) through
// which the content has gone. Throws Refusal.
Signature judge(SignedFile const& file, Bytes const& parsed, BIO* digest,
                std::vector<PemCertificate> const& signers, Expectations const& expectations);

}  // namespace ZeroTouch
