#include "zerotouch/fetch/BootFile.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <sstream>
#include <string_view>

#include "platform/kel/Assert.h"
#include "platform/kel/Format.h"
#include "platform/model/values/Grammar.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/dhcp/Offers.h"
#include "zerotouch/fetch/CurlTransfer.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

namespace {

constexpr std::size_t maxFileBytes = 65'536;
constexpr std::size_t maxValueBytes = 1'024;

#define HEADERS_TRACE(level, text) \
  KEL_TRACE(traceZeroTouchSm, level, "ZeroTouchSm::doBuildCurlHttpHeaders" << text)

// A line end in a value would make the rest of it a header of its own.
Kel::String header(char const* name, Kel::String value) {
  std::erase_if(value, isControl);
  if (value.size() > maxValueBytes) value.resize(maxValueBytes);
  return Kel::String(name) + value;
}

Kel::String traced(char const* before, Kel::String line) {
  HEADERS_TRACE(5, before << line);
  return line;
}

// libcurl takes a line without a value for the wish not to send that header; an empty one ends with a
// semicolon (CURLOPT_HTTPHEADER(3)).
Kel::String forCurl(Kel::String line) {
  if (line.ends_with(": ")) line.replace(line.size() - 2, 2, ";");
  return line;
}

std::optional<Kel::String> readVersion(Kel::String const& path) {
  auto const content = readStart(path, maxFileBytes);
  if (!content) {
    HEADERS_TRACE(5, " - Failed to open " << path);
    return std::nullopt;
  }
  std::optional<Kel::String> version;
  std::istringstream lines(content->text);
  for (Kel::String line; std::getline(lines, line);) {
    std::size_t const equals = line.find('=');
    if (equals != Kel::String::npos && line.substr(0, equals) == "KVO_VERSION")
      version = line.substr(equals + 1);
  }
  return version;
}

std::optional<Kel::String> readEtcArch(Kel::String const& path) {
  auto const content = readStart(path, maxFileBytes);
  if (!content) {
    HEADERS_TRACE(5, " Failed to open " << path);
    return std::nullopt;
  }
  Kel::String const line = content->text.substr(0, content->text.find('\n'));
  return line.substr(0, line.find(' '));
}

// Whether "//" and a host follow the scheme (RFC 3986, 3.2). Without them libcurl guesses another protocol
// from the host's name.
bool namesHost(std::string_view afterScheme) {
  if (!afterScheme.starts_with("//")) return false;
  afterScheme.remove_prefix(2);
  std::string_view const authority = afterScheme.substr(0, afterScheme.find_first_of("/?#"));
  std::string_view const host = authority.substr(authority.rfind('@') + 1);
  return !host.empty() && !host.starts_with(':');
}

bool isKnown(std::string_view scheme) {
  return scheme == "http" || scheme == "https" || scheme == "ftp" || scheme == "tftp";
}

BootFile anyBootFile(Kel::String const& serverName, Kel::String const& bootFileName) {
  if (!serverName.empty()) {
    bool const namesUrl = bootFileName.find("://") != Kel::String::npos;
    return {"tftp://" + serverName + "/" + bootFileName, "tftp", "",
            namesUrl ? Problem::serverNameWithUrl : Problem::none};
  }
  std::size_t const colon = bootFileName.find(':');
  if (colon == Kel::String::npos)
    return {"", "", "it is no URL, and the answer names no TFTP server", Problem::bootFileBare};
  Kel::String const scheme = bootFileName.substr(0, colon);
  if (!isKnown(scheme)) {
    Kel::String lower = scheme;
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return std::tolower(c); });
    return {"", "", "its scheme is none of http, https, ftp and tftp in lower case",
            isKnown(lower) ? Problem::bootFileUpperCase : Problem::bootFileScheme};
  }
  if (!namesHost(std::string_view(bootFileName).substr(colon + 1)))
    return {"", "", "its scheme is not followed by :// and a host", Problem::bootFileNoHost};
  return {bootFileName, scheme, ""};
}

}  // namespace

BootFile bootFile(Kel::String const& serverName, Kel::String const& bootFileName,
                  std::set<Kel::String> const& allowed) {
  BootFile const file = anyBootFile(serverName, bootFileName);
  if (!file.objection.empty() || allowed.empty() || allowed.contains(file.scheme)) return file;
  Kel::String known;
  for (auto const& scheme : allowed) known += (known.empty() ? "" : ", ") + scheme;
  return {"", "", "platform.toml allows no scheme but " + known, Problem::schemeNotAllowed};
}

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
  auto const schemes = policy()->authenticity()->scheme().keys();
  std::set<Kel::String> const allowed(schemes.begin(), schemes.end());
  BootFile const file = bootFile(result->serverName(), result->bootFileName(), allowed);
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

std::vector<Kel::String> requestHeaders(Wire::EthAddr const& systemMacAddr, EntityMib::Fru const& root,
                                        Kel::String const& versionPath, Kel::String const& archPath) {
  auto const& mac = systemMacAddr.bytes;
  std::vector<Kel::String> headers{
      header("X-Ostrel-SystemMAC: ",
             Kel::format("%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5])),
      traced(" ", header("X-Ostrel-ModelName: ", root.modelName())),
      traced(" ", header("X-Ostrel-Serial: ", root.serialNum())),
      traced(" ", header("X-Ostrel-HardwareVersion: ", root.hardwareRev())),
  };
  if (auto const version = readVersion(versionPath))
    headers.push_back(traced(" - ", header("X-Ostrel-SoftwareVersion: ", *version)));
  if (auto const architecture = readEtcArch(archPath))
    headers.push_back(traced(" - ", header("X-Ostrel-Architecture: ", *architecture)));
  return headers;
}

void ZeroTouchSm::doBuildCurlHttpHeaders() {
  KEL_ASSERT(chassis(), "entityMibRoot");
  for (auto const& line : requestHeaders(entityMibStatus()->systemMacAddr(), *chassis()))
    curlCBData_->addHeader(forCurl(line));
}

}  // namespace ZeroTouch
