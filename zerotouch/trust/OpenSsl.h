// What the files of this folder share about OpenSSL: owning handles, and reasons for people.
#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/kel/Types.h"

namespace ZeroTouch {

template <auto release>
struct Release {
  template <typename T>
  void operator()(T* object) const {
    release(object);
  }
};
inline void freeCertificates(STACK_OF(X509) * certificates) { sk_X509_pop_free(certificates, X509_free); }

using Bio = std::unique_ptr<BIO, Release<BIO_free_all>>;
using Cms = std::unique_ptr<CMS_ContentInfo, Release<CMS_ContentInfo_free>>;
using Certificate = std::unique_ptr<X509, Release<X509_free>>;
using Certificates = std::unique_ptr<STACK_OF(X509), Release<freeCertificates>>;
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using Object = std::unique_ptr<ASN1_OBJECT, Release<ASN1_OBJECT_free>>;

using Bytes = std::vector<std::uint8_t>;
using BytesView = std::span<std::uint8_t const>;

// Why a file is refused. Thrown within this folder only.
struct Refusal {
  Kel::String sentence;
};

// The signed attributes of our own, below the private enterprise number that the DHCP options have: for which
// switches a file is (serial numbers, each an UTF8String), and until when (one GeneralizedTime).
inline constexpr char const* serialNumbersAttribute = "1.3.6.1.4.1.32473.2.1";
inline constexpr char const* validUntilAttribute = "1.3.6.1.4.1.32473.2.2";

// The subject of a certificate, as "CN=Boot files,O=Example", printable; "unknown" for null.
Kel::String subjectOf(X509 const* certificate);
Kel::String fingerprintOf(X509 const* certificate);
// Since 1970; 0 for what is no time.
Kel::Seconds secondsOf(ASN1_TIME const* time);
// What OpenSSL says about its last failure; forgets all of them.
Kel::String lastError();

}  // namespace ZeroTouch
