// Which answer wins, which URL it asks for, and the start of the download.
#include "zerotouch/fetch/BootFile.h"

#include "platform/kel/Assert.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/agent/Warnings.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

BootFile bootFile(Kel::String const& serverName, Kel::String const& bootFileName) {
  if (!serverName.empty()) return {"tftp://" + serverName + "/" + bootFileName, "tftp", ""};
  std::size_t const colon = bootFileName.find(':');
  if (colon == Kel::String::npos) return {"", "", "it is no URL, and the answer names no TFTP server"};
  Kel::String const scheme = bootFileName.substr(0, colon);
  bool const known = scheme == "http" || scheme == "https" || scheme == "ftp" || scheme == "tftp";
  if (!known) return {"", "", "its scheme is none of http, https, ftp and tftp in lower case"};
  return {bootFileName, scheme, ""};
}

// The one place where the winner is decided: DHCPv4, if both families have named a boot file on the port. What
// is reported after that, as by a client that has not ended yet, changes nothing.
void ZeroTouchSm::choosenIntfIs(Kel::Ptr<IntfStatus> const& intf) {
  ZeroTouchSmModel::choosenIntfIs(intf);
  Kel::Ptr<ChosenAnswer> answer;
  if (intf) {
    auto const v4 = dhcpStatus()->intfDhcpStatus(intf->kernelIntfName());
    auto const v6 = dhcpStatus()->intfDhcp6Status(intf->kernelIntfName());
    if (v4 && !v4->bootFileName().empty()) {
      answer = answerFrom(AnswerFamily::dhcpv4, v4);
    } else if (v6 && !v6->bootFileName().empty()) {
      bool const stateless = v6->addrWithMask().v6().address.isZero();
      answer = answerFrom(stateless ? AnswerFamily::statelessDhcpv6 : AnswerFamily::dhcpv6, v6);
    }
  }
  chosenAnswerIs(answer);
}

Kel::Ptr<ChosenAnswer> ZeroTouchSm::answerFrom(AnswerFamily family,
                                               Kel::Ptr<IntfDhcpStatus const> const& result) {
  BootFile const file = bootFile(result->serverName(), result->bootFileName());
  return Kel::makePtr<ChosenAnswer>(family, result, file.url, file.scheme, file.objection);
}

Cause ZeroTouchSm::doTryFetchConfigFromServer() {
  KEL_ASSERT(choosenIntf(), "choosenIntf()");
  auto const answer = chosenAnswer();
  if (!answer) return {TransitionCause::bootFileNotUrl, "the answer names none"};
  Kel::String const& name = answer->result()->bootFileName();
  if (answer->url().empty()) {
    SM_TRACE(1, " - No URL in bootfile-name " << name);
    bootFileUnusable.log(name, answer->objection());
    return {TransitionCause::bootFileNotUrl, name + ": " + answer->objection()};
  }
  option67UriIs(answer->url());
  option67UriIsHttpIs(answer->scheme() == "http" || answer->scheme() == "https");
  option67UriIsHttpsIs(answer->scheme() == "https");
  doTryFetchUri();
  if (!curlTransferDone()) return TransitionCause::downloadNotStarted;  // unless it runs
  if (!curlSuccess()) reportFailedDownload();
  return {TransitionCause::downloadRefusedAtOnce, curlErrorStr()};
}

void ZeroTouchSm::reportFailedDownload() {
  ZTP_CONFIG_DOWNLOAD_FAIL.log(option67Uri(), curlErrorStr().empty() ? "unknown" : curlErrorStr());
}

}  // namespace ZeroTouch
