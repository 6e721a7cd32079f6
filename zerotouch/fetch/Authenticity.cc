#include "zerotouch/fetch/Authenticity.h"

#include "platform/kel/Clock.h"
#include "zerotouch/agent/Events.h"

namespace ZeroTouch {

namespace {

// The time by which dates are checked; a warning says why they are not.
std::optional<Kel::Seconds> timeForDatesOrWarning() {
  auto const result = timeForDates(Kel::now());
  if (!result) datesNotChecked.log(utcTime(Kel::now()));
  return result;
}

// Called once libcurl has prepared a connection, and before that is used.
CURLcode skipDatesCB(CURL*, void* tlsContext, void* library) {
  static_cast<TrustLibrary const*>(library)->skipDates(tlsContext);
  return CURLE_OK;
}

}  // namespace

Kel::String verifyServer(CurlTransfer& transfer, AuthenticityPolicy const& policy) {
  auto const setopt = [&transfer](CURLoption option, auto value) {
    transfer.curl->easySetopt(transfer.easy, option, value);
  };
  if (!policy.httpsCertificate().empty()) {
    auto const& key = policy.httpsKey().empty() ? policy.httpsCertificate() : policy.httpsKey();
    setopt(CURLOPT_SSLCERT, policy.httpsCertificate().c_str());
    setopt(CURLOPT_SSLKEY, key.c_str());
  }
  // libcurl's own words for what is wrong with a certificate are more exact than its codes.
  if (!policy.httpsCa().empty() || !policy.httpsCertificate().empty())
    setopt(CURLOPT_ERRORBUFFER, transfer.errorDetail.data());
  if (policy.httpsCa().empty()) {
    // A switch fresh from the factory knows no authority that could vouch for the server.
    setopt(CURLOPT_SSL_VERIFYPEER, 0L);
    setopt(CURLOPT_SSL_VERIFYHOST, 0L);
    return "";
  }
  setopt(CURLOPT_SSL_VERIFYPEER, 1L);
  setopt(CURLOPT_SSL_VERIFYHOST, 2L);
  if (policy.httpsCa() != "system") {
    // Besides the file, libcurl would believe the system's folder of authorities.
    setopt(CURLOPT_CAPATH, static_cast<char const*>(nullptr));
    setopt(CURLOPT_CAINFO, policy.httpsCa().c_str());
  }
  if (timeForDatesOrWarning()) return "";
  Kel::String failure;
  auto const* const library = trustLibrary(failure);
  if (library == nullptr) return "the HTTPS server cannot be verified: " + failure;
  setopt(CURLOPT_SSL_CTX_FUNCTION, skipDatesCB);
  setopt(CURLOPT_SSL_CTX_DATA, library);
  return "";
}

Expectations expectationsOf(AuthenticityPolicy const& policy, Kel::String const& serialNumber,
                            Kel::String const& newest) {
  Expectations result{
      .signers = policy.signers(), .serialNumber = {}, .now = timeForDatesOrWarning(), .newest = {}};
  if (policy.bind() == BoundTo::serial) result.serialNumber = serialNumber;
  if (policy.newest()) result.newest = newest.empty() ? 0 : timeOf(newest);
  return result;
}

}  // namespace ZeroTouch
