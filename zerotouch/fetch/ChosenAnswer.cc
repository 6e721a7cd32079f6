// The answer that has won, and the boot file that it names, which is fetched.
#include "platform/kel/Assert.h"
#include "platform/model/values/Grammar.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/dhcp/Offers.h"
#include "zerotouch/fetch/BootFile.h"
#include "zerotouch/fetch/CurlTransfer.h"
#include "zerotouch/fetch/Download.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

void ZeroTouchSm::choosenIntfIs(Kel::Ptr<IntfStatus> const& intf) {
  ZeroTouchSmModel::choosenIntfIs(intf);
  forgetTransfer();  // that was of an earlier answer
  chooseAnswer();
}

// The winner on the port: DHCPv4, if both families have named a boot file, unless platform.toml says
// otherwise. What is reported once the identity is applied, as by a client that has not ended yet, changes
// nothing.
void ZeroTouchSm::chooseAnswer() {
  auto const intf = choosenIntf();
  Kel::Ptr<ChosenAnswer> answer;
  if (intf) {
    if (auto const family = offers_->best(*intf)) {
      auto const& device = intf->kernelIntfName();
      answer = answerFrom(*family, *family == AnswerFamily::dhcpv4 ? dhcpStatus()->intfDhcpStatus(device)
                                                                   : dhcpStatus()->intfDhcp6Status(device));
    }
  }
  chosenAnswerIs(answer);
}

Kel::Ptr<ChosenAnswer> ZeroTouchSm::answerFrom(AnswerFamily family,
                                               Kel::Ptr<IntfDhcpStatus const> const& result) {
  BootFile const file = bootFileOf(*result);
  return Kel::makePtr<ChosenAnswer>(family, result, file.url, file.scheme, file.objection, file.problem);
}

Cause ZeroTouchSm::doTryFetchConfigFromServer() {
  KEL_ASSERT(choosenIntf(), "choosenIntf()");
  auto const answer = chosenAnswer();
  if (!answer) return {TransitionCause::bootFileNotUrl, "the answer names none"};
  Kel::String const& name = answer->result()->bootFileName();
  if (answer->url().empty()) {
    Kel::String const shown = Grammar::withoutPasswords(name);
    SM_TRACE(1, " - No URL in bootfile-name " << shown);
    bootFileUnusable.log(shown, answer->objection());
    return {TransitionCause::bootFileNotUrl, {answer->problem(), shown + ": " + answer->objection()}};
  }
  option67UriIs(answer->url());
  option67UriIsHttpIs(answer->scheme() == "http" || answer->scheme() == "https");
  option67UriIsHttpsIs(answer->scheme() == "https");
  doTryFetchUri();
  if (!curlTransferDone()) return TransitionCause::downloadNotStarted;  // unless it runs
  if (!curlSuccess()) reportFailedDownload();
  return {TransitionCause::downloadRefusedAtOnce, {downloadProblem_, downloadOutcome()}};
}

Kel::String ZeroTouchSm::shownUri() const { return Grammar::withoutPasswords(option67Uri()); }

void ZeroTouchSm::reportFailedDownload() {
  ZTP_CONFIG_DOWNLOAD_FAIL.log(shownUri(), curlErrorStr().empty() ? "unknown" : curlErrorStr());
}

void ZeroTouchSm::doBuildCurlHttpHeaders() {
  KEL_ASSERT(chassis(), "entityMibRoot");
  addRequestHeaders(*curlCBData_, entityMibStatus()->systemMacAddr(), *chassis());
}

}  // namespace ZeroTouch
