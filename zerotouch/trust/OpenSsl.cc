#include "zerotouch/trust/OpenSsl.h"

#include <openssl/err.h>

#include <array>
#include <ctime>

#include "platform/kel/Format.h"

namespace ZeroTouch {

Kel::String subjectOf(X509 const* certificate) {
  constexpr std::size_t longest = 200;
  if (certificate == nullptr) return "unknown";
  Bio const text(BIO_new(BIO_s_mem()));
  X509_NAME_print_ex(text.get(), X509_get_subject_name(certificate), 0,
                     XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB));
  char* bytes = nullptr;
  long const length = BIO_get_mem_data(text.get(), &bytes);
  return Kel::printable(std::string_view(bytes, static_cast<std::size_t>(std::max(length, 0L))), longest);
}

Kel::String fingerprintOf(X509 const* certificate) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  X509_digest(certificate, EVP_sha256(), digest.data(), &length);
  Kel::String result;
  for (unsigned i = 0; i < length; ++i) result += Kel::format(i == 0 ? "%02X" : ":%02X", digest.at(i));
  return result;
}

Kel::Seconds secondsOf(ASN1_TIME const* time) {
  std::tm parts{};
  return time != nullptr && ASN1_TIME_to_tm(time, &parts) == 1 ? static_cast<Kel::Seconds>(timegm(&parts))
                                                               : 0;
}

Kel::String lastError() {
  unsigned long const code = ERR_peek_last_error();
  char const* const reason = ERR_reason_error_string(code);
  Kel::String const text = reason != nullptr ? reason
                           : code != 0       ? "an error of the system"
                                             : "no reason given";
  ERR_clear_error();
  return text;
}

}  // namespace ZeroTouch
