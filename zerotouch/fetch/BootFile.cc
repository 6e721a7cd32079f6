// Which URL a DHCP answer asks for.
#include <array>

#include "platform/kel/Assert.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/fetch/BootFile.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

std::optional<BootFile> bootFile(Kel::String const& serverName, Kel::String const& bootFileName) {
  if (!serverName.empty()) return BootFile{"tftp://" + serverName + "/" + bootFileName, false, false};
  std::size_t const colon = bootFileName.find(':');
  if (colon == Kel::String::npos) return std::nullopt;
  Kel::String const scheme = bootFileName.substr(0, colon);
  bool const https = scheme == "https";
  bool const http = https || scheme == "http";
  if (!http && scheme != "ftp" && scheme != "tftp") return std::nullopt;
  return BootFile{bootFileName, http, https};
}

// No event when there is no URL: an unknown scheme is nothing to report.
void ZeroTouchSm::doTryFetchConfigFromServer() {
  KEL_ASSERT(choosenIntf(), "choosenIntf()");
  auto const& device = choosenIntf()->kernelIntfName();
  auto answer = dhcpStatus()->intfDhcpStatus(device);
  if (!answer || answer->bootFileName().empty()) answer = dhcpStatus()->intfDhcp6Status(device);
  if (!answer || answer->bootFileName().empty()) return;
  auto const file = bootFile(answer->serverName(), answer->bootFileName());
  if (!file) {
    SM_TRACE(1, " - No URL in bootfile-name " << answer->bootFileName());
    return;
  }
  option67UriIs(file->url);
  option67UriIsHttpIs(file->http);
  option67UriIsHttpsIs(file->https);
  doTryFetchUri();
  if (curlTransferDone() && !curlSuccess()) reportFailedDownload();
}

void ZeroTouchSm::reportFailedDownload() {
  ZTP_CONFIG_DOWNLOAD_FAIL.log(option67Uri(), curlErrorStr().empty() ? "unknown" : curlErrorStr());
}

}  // namespace ZeroTouch
