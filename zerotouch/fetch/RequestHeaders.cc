#include "zerotouch/fetch/RequestHeaders.h"

#include <optional>
#include <sstream>

#include "platform/kel/Assert.h"
#include "platform/kel/Format.h"
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

}  // namespace

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
  for (auto const& line : requestHeaders(entityMibStatus()->systemMacAddr(), *chassis())) {
    auto* const longer = curlCBData_->curl->slistAppend(curlCBData_->headers, forCurl(line).c_str());
    if (longer == nullptr) curlCBData_->curl->slistFreeAll(curlCBData_->headers);
    curlCBData_->headers = longer;
    if (longer == nullptr) return;  // without memory, the request goes out without any
  }
}

}  // namespace ZeroTouch
