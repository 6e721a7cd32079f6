#include "zerotouch/fetch/Download.h"

#include <cerrno>

#include "platform/kel/Clock.h"
#include "platform/kel/Format.h"
#include "platform/model/values/Grammar.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/fetch/Authenticity.h"
#include "zerotouch/fetch/BootFile.h"
#include "zerotouch/fetch/DownloadEnd.h"
#include "zerotouch/fetch/Resume.h"

namespace ZeroTouch {

namespace {

constexpr long connectTimeoutSeconds = 60;

constexpr long mostRedirects = 5;

// Redirects lead where boot files may come from, and never from HTTPS to HTTP.
void setRedirects(CurlTransfer& transfer, Kel::String const& scheme) {
  if (policy()->download()->redirects() != RedirectPolicy::follow) return;
  auto const& allowed = policy()->authenticity()->scheme();
  Kel::String schemes;
  for (char const* const candidate : {"http", "https"}) {
    bool const allows = allowed.empty() || allowed.contains(candidate);
    if (allows && (scheme == "http" || candidate == scheme))
      schemes += (schemes.empty() ? "" : ",") + Kel::String(candidate);
  }
  transfer.followsRedirects = true;
  transfer.curl->easySetopt(transfer.easy, CURLOPT_FOLLOWLOCATION, 1L);
  transfer.curl->easySetopt(transfer.easy, CURLOPT_MAXREDIRS, mostRedirects);
  transfer.curl->easySetopt(transfer.easy, CURLOPT_REDIR_PROTOCOLS_STR, schemes.c_str());
}

// Why a body that libcurl has taken for complete is no boot file; nothing when it may be one.
Trouble objection(CurlTransfer const& transfer) {
  auto const& rules = *policy()->download();
  auto const& answer = transfer.http;
  if (transfer.isHttp && answer.isRedirect() && rules.redirects() != RedirectPolicy::keep) {
    if (answer.location.empty())
      return {Problem::redirected, "the server redirects, but does not say where to"};
    return {Problem::redirected, "the server redirects to " +
                                     Kel::printable(Grammar::withoutPasswords(answer.location)) +
                                     ", and redirects are refused"};
  }
  if (transfer.isHttp && rules.requireLength() && !answer.tellsEnd)
    return {Problem::transferCut, "the server has said neither how long the file is nor where it ends"};
  if (transfer.resumable && transfer.promised.bytes != 0 && transfer.byteCount != transfer.promised.bytes)
    return {Problem::transferCut, Kel::format("%u bytes have come of the %u that were announced",
                                              transfer.byteCount, transfer.promised.bytes)};
  return {};
}

void setOptions(CurlTransfer& transfer, Kel::String const& url, Kel::String const& scheme, bool proxies) {
  auto const setopt = [&transfer](CURLoption option, auto value) {
    transfer.curl->easySetopt(transfer.easy, option, value);
  };
  setopt(CURLOPT_PROTOCOLS_STR, scheme.c_str());
  // An empty name makes libcurl leave http_proxy and its like alone.
  if (!proxies) setopt(CURLOPT_PROXY, "");
  setopt(CURLOPT_NOPROGRESS, 1L);
  setopt(CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_WHATEVER));
  setopt(CURLOPT_URL, url.c_str());
  setopt(CURLOPT_FAILONERROR, 1L);
  setopt(CURLOPT_CONNECTTIMEOUT, connectTimeoutSeconds);
  setopt(CURLOPT_WRITEFUNCTION, curlWriteCB);
  setopt(CURLOPT_WRITEDATA, &transfer);
  setopt(CURLOPT_HEADERFUNCTION, curlHeaderCB);
  setopt(CURLOPT_HEADERDATA, &transfer);
  setopt(CURLOPT_DNS_CACHE_TIMEOUT, 0L);
  transfer.isHttp = scheme == "http" || scheme == "https";
  transfer.resumable = policy()->download()->resume();
  transfer.movedTime = Kel::now();
  if (transfer.isHttp) {
    setopt(CURLOPT_USERAGENT, "zerotouch/" ZEROTOUCH_VERSION);
    setRedirects(transfer, scheme);
  }
  if (scheme == "ftp") {
    transfer.isFtp = true;
    setopt(CURLOPT_SERVER_RESPONSE_TIMEOUT, ftpResponseTimeoutSeconds);
    // When it is freed, libcurl waits 60 s for the answer to its farewell, if it has kept the connection.
    setopt(CURLOPT_FORBID_REUSE, 1L);
    setopt(CURLOPT_CLOSESOCKETFUNCTION, curlCloseSocketCB);
    setopt(CURLOPT_CLOSESOCKETDATA, &transfer);
    // Has the server say when the file has changed last.
    if (transfer.resumable) setopt(CURLOPT_FILETIME, 1L);
  }
}

// libcurl takes a line without a value for the wish not to send that header; an empty one ends with a
// semicolon (CURLOPT_HTTPHEADER(3)).
Kel::String forCurl(Kel::String line) {
  if (line.ends_with(": ")) line.replace(line.size() - 2, 2, ";");
  return line;
}

}  // namespace

TransferFacts factsOf(CurlTransfer const& transfer, Kel::String const& url) {
  auto const number = [&transfer](CURLINFO what) {
    long value = 0;
    transfer.curl->easyGetinfo(transfer.easy, what, &value);
    return value;
  };
  auto const passed = [&transfer](CURLINFO what) {
    curl_off_t time = 0;
    transfer.curl->easyGetinfo(transfer.easy, what, &time);
    return time > 0;
  };
  return {.host = hostOf(url),
          .responseCode = url.starts_with("http") ? number(CURLINFO_RESPONSE_CODE) : 0,
          .systemError = number(CURLINFO_OS_ERRNO),
          .resolved = passed(CURLINFO_NAMELOOKUP_TIME_T),
          .connected = passed(CURLINFO_CONNECT_TIME_T) || transfer.byteCount > 0,
          .bytes = transfer.byteCount};
}

void addRequestHeaders(CurlTransfer& transfer, Wire::EthAddr const& systemMacAddr,
                       EntityMib::Fru const& chassis) {
  for (auto const& line : requestHeaders(systemMacAddr, chassis)) transfer.addHeader(forCurl(line));
}

Kel::String prepareTransfer(CurlTransfer& transfer, DownloadOrder const& order) {
  if (!transfer.isMade()) return "libcurl cannot prepare a transfer";
  // What was read is counted in 32 bits.
  transfer.maxBytes = static_cast<std::uint32_t>(std::min<std::uint64_t>(order.maxBytes, UINT32_MAX));
  setOptions(transfer, order.url, order.scheme, order.proxies);
  if (transfer.isHttp) order.addHeaders(transfer);
  if (order.scheme == "https" || transfer.followsRedirects) {
    auto const failure = verifyServer(transfer, *policy()->authenticity());
    if (!failure.empty()) return failure;
  }
  if (order.resume != nullptr) order.resume->give(transfer, order.url);
  auto const& curl = *transfer.curl;
  if (transfer.headers != nullptr) curl.easySetopt(transfer.easy, CURLOPT_HTTPHEADER, transfer.headers);
  // Says nothing about the transfer: to end one must not wait, on the loop, for a name server that is silent.
  curl.easySetopt(transfer.easy, CURLOPT_QUICK_EXIT, 1L);
  bool const started = curl.multiAddHandle(transfer.multi, transfer.easy) == CURLM_OK;
  return started ? "" : "libcurl cannot start the transfer";
}

TransferResult transferResult(CurlTransfer const& transfer, Kel::String const& url) {
  CURLcode code = CURLE_FAILED_INIT;  // unless libcurl says how the transfer ended
  int left = 0;
  while (CURLMsg const* const message = transfer.curl->multiInfoRead(transfer.multi, &left)) {
    if (message->msg != CURLMSG_DONE || message->easy_handle != transfer.easy) continue;
    code = message->data.result;
    break;
  }
  TransferResult result{.received = code == CURLE_OK, .error = "", .end = {}};
  bool const detailed = transfer.errorDetail.front() != '\0';
  if (!result.received)
    result.error = detailed ? Kel::printable(transfer.errorDetail.data())
                            : Kel::String(transfer.curl->easyStrerror(code));
  result.end = downloadEnd(code, factsOf(transfer, url), result.error);
  return result;
}

void judgeBody(CurlTransfer& transfer, bool received) {
  // An answer without a body leaves nothing of what came before.
  if (received && transfer.resumes && !transfer.begun) Resume::begin(transfer);
  if (received && transfer.failure.empty()) {
    auto const [problem, text] = objection(transfer);
    transfer.failure = text;
    transfer.problem = problem;
  }
  // The file's last bytes may still wait to be written, and may not fit.
  if (transfer.output != nullptr && transfer.failure.empty() && std::fflush(transfer.output) != 0)
    noteUnwritable(transfer, errno);
}

bool endIfStalled(CurlTransfer& transfer) {
  Kel::Seconds const limit = policy()->download()->stallLimit();
  if (limit <= 0 || Kel::now() < transfer.movedTime + limit) return false;
  transfer.stalled = true;
  transfer.failure = Kel::format("nothing has moved for %g seconds", limit);
  transfer.problem = Problem::transferSlow;
  return true;
}

}  // namespace ZeroTouch
