#include "zerotouch/fetch/CurlTransfer.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

#include "platform/kel/Assert.h"
#include "platform/kel/Clock.h"
#include "platform/kel/Format.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/fetch/Resume.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

namespace {

constexpr mode_t ownerOnly = 0600;
constexpr std::size_t outputBufferBytes = 65'536;
constexpr std::string_view bootImageUrlHeader = "X-Ostrel-BootImage-Url:";

// The replies of an FTP server to SIZE and MDTM (RFC 3659): a number, and a time of 14 digits.
void noteFtpReply(CurlTransfer& transfer, std::string_view line) {
  constexpr std::size_t timeDigits = 14;
  // RFC 959, 4.2.1: the data connection is open, or about to be opened.
  if (line.starts_with("125") || line.starts_with("150")) transfer.ftpFileFollows = true;
  if (!line.starts_with("213 ")) return;
  line.remove_prefix(4);
  line = line.substr(0, line.find_first_not_of("0123456789"));
  if (line.size() == timeDigits) {
    transfer.ftpChanged = line;
  } else {
    std::from_chars(line.data(), line.data() + line.size(), transfer.ftpBytes);
  }
}

// A redirect may lead from HTTP to HTTPS, and from there to HTTPS only.
void noteHttpHeader(CurlTransfer& transfer, std::string_view line) {
  transfer.http.note(line);
  transfer.contentLength = transfer.http.fileLength();
  char const* scheme = nullptr;
  if (!transfer.followsRedirects || !line.starts_with("HTTP/") ||
      transfer.curl->easyGetinfo(transfer.easy, CURLINFO_SCHEME, &scheme) != CURLE_OK || scheme == nullptr)
    return;
  if (strcasecmp(scheme, "https") == 0)
    transfer.curl->easySetopt(transfer.easy, CURLOPT_REDIR_PROTOCOLS_STR, "https");
}

void keepFirstBytes(CurlTransfer& transfer, std::string_view data) {
  for (std::uint8_t* const byte : {&transfer.firstByte, &transfer.secondByte}) {
    if (*byte != 0 || data.empty()) continue;
    *byte = data.front() == '\0' ? '*' : static_cast<std::uint8_t>(data.front());
    data.remove_prefix(1);
  }
}

}  // namespace

namespace {
Curl const* replaced = nullptr;
}

void Curl::replacementIs(Curl const* replacement) { replaced = replacement; }

Curl const* Curl::load() {
  if (replaced != nullptr) return replaced;
  static Curl curl;
  if (curl.easyCleanup != nullptr) return &curl;
  void* const library = dlopen("libcurl.so.4", RTLD_LAZY | RTLD_LOCAL);
  auto const find = [&](auto& function, char const* name) {
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(library, name));
    return function != nullptr;
  };
  bool const complete =
      library != nullptr && find(curl.easyInit, "curl_easy_init") &&
      find(curl.multiInit, "curl_multi_init") && find(curl.easySetopt, "curl_easy_setopt") &&
      find(curl.easyGetinfo, "curl_easy_getinfo") && find(curl.multiAddHandle, "curl_multi_add_handle") &&
      find(curl.multiPerform, "curl_multi_perform") && find(curl.multiFdset, "curl_multi_fdset") &&
      find(curl.multiInfoRead, "curl_multi_info_read") && find(curl.easyStrerror, "curl_easy_strerror") &&
      find(curl.slistAppend, "curl_slist_append") && find(curl.slistFreeAll, "curl_slist_free_all") &&
      find(curl.multiCleanup, "curl_multi_cleanup") && find(curl.getdate, "curl_getdate") &&
      find(curl.easyCleanup, "curl_easy_cleanup");
  if (complete) return &curl;
  char const* const reason = dlerror();
  downloadImpossible.log(reason != nullptr ? reason : "libcurl.so.4 is not complete");
  if (library != nullptr) dlclose(library);
  return nullptr;
}

CurlTransfer::~CurlTransfer() {
  if (dataSocket) dataSocket->descriptorIs(-1);
  if (output != nullptr) std::fclose(output);
  if (headers != nullptr) curl->slistFreeAll(headers);
  if (multi != nullptr) curl->multiCleanup(multi);
  if (easy != nullptr) curl->easyCleanup(easy);
}

void CurlTransfer::addHeader(Kel::String const& line) {
  if (headers == nullptr && headersLost) return;
  auto* const longer = curl->slistAppend(headers, line.c_str());
  if (longer == nullptr) curl->slistFreeAll(headers);
  headersLost = longer == nullptr;
  headers = longer;
}

Promise CurlTransfer::announced() const {
  return isHttp ? Promise{http.etag, http.fileLength()} : Promise{ftpChanged, ftpBytes};
}

std::FILE* openDownload(char const* path, Kel::String& failure) {
  // Somebody else may put another file there in between, but not for ever.
  constexpr int tries = 100;
  int fd = -1;
  for (int i = 0; i < tries && fd < 0; ++i) {
    if (unlink(path) != 0 && errno != ENOENT) break;
    fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownerOnly);
    if (fd < 0 && errno != EEXIST) break;
  }
  std::FILE* const output = fd >= 0 ? fdopen(fd, "wb") : nullptr;
  if (output != nullptr) {
    // libcurl hands over 16 KiB at a time; the default buffer would make two writes of that.
    std::setvbuf(output, nullptr, _IOFBF, outputBufferBytes);
    return output;
  }
  failure = Kel::format("cannot write %s: %s", path, std::strerror(errno));
  if (fd >= 0) close(fd);
  return nullptr;
}

void noteUnwritable(CurlTransfer& transfer, int error) {
  transfer.failure = Kel::format("cannot write %s: %s", transfer.outFileName, std::strerror(error));
  transfer.problem = Problem::noRoomForDownload;
}

std::size_t curlWriteCB(void* buf, std::size_t size, std::size_t n, void* data) {
  auto* const cd = static_cast<CurlTransfer*>(data);
  KEL_ASSERT(cd, "cd");
  std::string_view const body(static_cast<char const*>(buf), size * n);
  if (body.empty()) return 0;
  if (!cd->begun) Resume::begin(*cd);
  if (!cd->failure.empty()) return 0;
  if (cd->output == nullptr) {
    KEL_ASSERT(cd->outFileName, "cd->outFileName");
    cd->output = openDownload(cd->outFileName, cd->failure);
    if (cd->output == nullptr) cd->problem = Problem::noRoomForDownload;
    if (cd->output == nullptr) return static_cast<std::size_t>(-1);
  }
  keepFirstBytes(*cd, body);
  if (body.size() > cd->maxBytes - cd->byteCount) {
    cd->failure = Kel::format("the file is larger than the limit of %u bytes", cd->maxBytes);
    cd->problem = Problem::fileTooLarge;
    return 0;
  }
  if (cd->resumable && cd->promised.bytes != 0 && cd->byteCount + body.size() > cd->promised.bytes) {
    cd->failure = Kel::format("the file is larger than the %u bytes that were announced", cd->promised.bytes);
    cd->problem = Problem::downloadOther;
    return 0;
  }
  std::size_t const written = std::fwrite(body.data(), 1, body.size(), cd->output);
  if (written < body.size()) noteUnwritable(*cd, errno);
  cd->byteCount += static_cast<std::uint32_t>(written);
  cd->movedTime = Kel::now();
  KEL_TRACE(traceZeroTouchSm, 8,
            "ZeroTouchSm::" << __func__ << " - Written " << written << " bytes to " << cd->outFileName);
  return written;
}

std::size_t curlHeaderCB(void* buf, std::size_t size, std::size_t n, void* data) {
  auto* const cd = static_cast<CurlTransfer*>(data);
  KEL_ASSERT(cd, "cd");
  std::string_view line(static_cast<char const*>(buf), size * n);
  if (line.size() > maxHeaderBytes - cd->headerBytes) {
    cd->failure = Kel::format("the server's headers are longer than %u bytes", maxHeaderBytes);
    cd->problem = Problem::serverError;
    return 0;
  }
  cd->headerBytes += static_cast<std::uint32_t>(line.size());
  cd->isHttp ? noteHttpHeader(*cd, line) : noteFtpReply(*cd, line);
  if (!line.starts_with(bootImageUrlHeader)) return size * n;
  line.remove_prefix(bootImageUrlHeader.size());
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  if (line.empty() || line.size() >= cd->bootImageUrl.size()) return size * n;
  std::string_view const url = line.substr(0, line.find(' '));
  *std::copy(url.begin(), url.end(), cd->bootImageUrl.begin()) = '\0';
  cd->bootImageUrlPresent = true;
  KEL_TRACE(traceZeroTouchSm, 5,
            "ZeroTouchSm::" << __func__ << "- BootImage-Url=" << cd->bootImageUrl.data());
  return size * n;
}

int curlCloseSocketCB(void* data, curl_socket_t socket) {
  auto const* const cd = static_cast<CurlTransfer*>(data);
  KEL_ASSERT(cd, "cd");
  if (cd->ftpFileFollows)
    cd->curl->easySetopt(cd->easy, CURLOPT_SERVER_RESPONSE_TIMEOUT, ftpFarewellTimeoutSeconds);
  return close(socket);
}

}  // namespace ZeroTouch
