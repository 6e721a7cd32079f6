// Whom the agent believes, as platform.toml says: the server of an HTTPS download, and the signer of the boot
// file. The file is verified on the loop, a piece in each pass, between its download and the decision what it
// is.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "platform/kel/Format.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/fetch/BootFileCheck.h"
#include "zerotouch/fetch/CurlTransfer.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

namespace {

// The highest date of a boot file that was taken, in the settings file.
constexpr char const* newestSetting = "NEWEST_BOOT_FILE";

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

// Reads again what was read of an earlier boot file, but from the file that was verified.
bool beginsWithHashPling(char const* path) {
  auto const start = readStart(path, 2);
  return start && start->text == "#!";
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

void ZeroTouchSm::noteVerifiedServer() {
  auto const& authorities = policy()->authenticity()->httpsCa();
  if (!option67UriIsHttps() || authorities.empty()) return;
  serverVerifiedAgainstIs(authorities == "system" ? "the authorities of the system" : authorities);
  httpsServerVerified.log(shownUri(), serverVerifiedAgainst());
}

void ZeroTouchSm::BootFileCheckEnd::operator()(BootFileCheck* check) const { delete check; }

BootFileCheck::~BootFileCheck() {
  if (output != nullptr) std::fclose(output);
  unlink(verifiedBootFilePath);
}

bool ZeroTouchSm::beginBootFileCheck() {
  auto const authenticity = policy()->authenticity();
  if (authenticity->signers().empty() || bytesRead() == 0) return false;  // an empty file is refused as such
  Kel::String failure;
  std::unique_ptr<BootFileCheck, BootFileCheckEnd> check(
      new BootFileCheck([this] { handleBootFileCheck(); }));
  auto const* const library = trustLibrary(failure);
  if (library != nullptr) check->output = openDownload(verifiedBootFilePath, failure);
  Expectations expectations{
      .signers = authenticity->signers(), .serialNumber = {}, .now = timeForDatesOrWarning(), .newest = {}};
  if (authenticity->bind() == BoundTo::serial) expectations.serialNumber = chassis()->serialNum();
  if (authenticity->newest()) {
    Kel::String const kept = configEntry().contains(newestSetting) ? configEntry(newestSetting) : "";
    expectations.newest = kept.empty() ? 0 : timeOf(kept);
    if (!expectations.newest) failure = Kel::String(newestSetting) + " in the settings file is no date";
  }
  if (!failure.empty()) {
    refuseBootFile("the boot file cannot be verified: " + failure);
    return false;
  }
  check->verification = library->verify(configDownloadPath, fileno(check->output), expectations);
  bootFileCheck_ = std::move(check);
  bootFileCheck_->next.at(Kel::now());
  return true;
}

void ZeroTouchSm::handleBootFileCheck() {
  if (!mayMoveOnFrom(stateFetchConfig())) return;
  auto const& verification = *bootFileCheck_->verification;
  if (bootFileCheck_->verification->work()) {
    bootFileCheck_->next.at(Kel::now());
    return;
  }
  if (!verification.objection().empty()) {
    refuseBootFile(verification.objection());
  } else if (rename(verifiedBootFilePath, configDownloadPath) != 0) {
    refuseBootFile(Kel::String("the boot file cannot be kept: ") + std::strerror(errno));
  } else {
    believeBootFile(verification.signature(), verification.size());
  }
  bootFileCheck_ = nullptr;
  curlTransferDoneIs(true);
  concludeDownload();
}

void ZeroTouchSm::refuseBootFile(Kel::String const& objection) {
  SM_TRACE(1, " - " << objection);
  unlink(configDownloadPath);
  curlSuccessIs(false);
  curlErrorStrIs(objection);
  downloadOutcomeIs(objection);
  downloadProblem_ = Problem::signatureRefused;
}

// From here on, the file is what was signed, without its signature.
void ZeroTouchSm::believeBootFile(Signature const& signature, std::uint64_t size) {
  bytesReadIs(static_cast<std::uint32_t>(size));
  fileIsHashPlingIs(beginsWithHashPling(configDownloadPath));
  bootFileSignerIs(signature.signer);
  bootFileSignerFingerprintIs(signature.fingerprint);
  bootFileSignedTimeIs(signature.signedAt);
  bootFileSigned.log(shownUri(), signature.signer, signature.fingerprint);
  if (policy()->authenticity()->newest()) doAddConfigEntry(newestSetting, utcTime(signature.signedAt));
}

}  // namespace ZeroTouch
