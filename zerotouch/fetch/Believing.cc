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
#include "zerotouch/fetch/Authenticity.h"
#include "zerotouch/fetch/BootFileCheck.h"
#include "zerotouch/fetch/Contents.h"
#include "zerotouch/fetch/CurlTransfer.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

namespace {

// The highest date of a boot file that was taken, in the settings file.
constexpr char const* newestSetting = "NEWEST_BOOT_FILE";

}  // namespace

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
  Kel::String const kept = configEntry().contains(newestSetting) ? configEntry(newestSetting) : "";
  auto const expectations = expectationsOf(*authenticity, chassis()->serialNum(), kept);
  if (authenticity->newest() && !expectations.newest)
    failure = Kel::String(newestSetting) + " in the settings file is no date";
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
  fileIsHashPlingIs(isScript(configDownloadPath));
  bootFileSignerIs(signature.signer);
  bootFileSignerFingerprintIs(signature.fingerprint);
  bootFileSignedTimeIs(signature.signedAt);
  bootFileSigned.log(shownUri(), signature.signer, signature.fingerprint);
  if (policy()->authenticity()->newest()) doAddConfigEntry(newestSetting, utcTime(signature.signedAt));
}

}  // namespace ZeroTouch
