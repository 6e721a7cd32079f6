#include "zerotouch/fetch/BootFile.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <sstream>
#include <string_view>

#include "platform/kel/Format.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/sm/SmTrace.h"
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

BootFile bootFileOf(IntfDhcpStatus const& answer) {
  auto const schemes = policy()->authenticity()->scheme().keys();
  return bootFile(answer.serverName(), answer.bootFileName(), {schemes.begin(), schemes.end()});
}

Trouble toMend(Problem ofName, Trouble const& end) {
  return ofName != Problem::none ? Trouble{ofName, end.text} : end;
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

}  // namespace ZeroTouch
