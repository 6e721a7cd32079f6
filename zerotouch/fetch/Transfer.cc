// The transfer on the loop: started, driven by its socket and by ConfigFetchTimer's ticks, ended.
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <utility>

#include "platform/kel/Assert.h"
#include "platform/kel/FileDescriptor.h"
#include "platform/kel/Format.h"
#include "platform/model/values/Grammar.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/fetch/BootFileCheck.h"
#include "zerotouch/fetch/CurlTransfer.h"
#include "zerotouch/fetch/DownloadEnd.h"
#include "zerotouch/fetch/Resume.h"
#include "zerotouch/sm/Pacing.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

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

}  // namespace

void ZeroTouchSm::TransferEnd::operator()(CurlTransfer* transfer) const { delete transfer; }

void ZeroTouchSm::doTryFetchUri() {
  KEL_ASSERT(!option67Uri().empty(), "uri");
  SM_TRACE(5, " - DHCP (option 67) bootfile-name is: " << shownUri());
  ZTP_CONFIG_DOWNLOAD.log(shownUri());
  forgetTransfer();
  KEL_ASSERT(!curlCBData_, "!curlCBData_");
  Curl const* const curl = Curl::load();
  if (curl == nullptr) return;
  std::unique_ptr<CurlTransfer, TransferEnd> transfer(new CurlTransfer(*curl));
  CURL* const easy = transfer->easy;
  if (easy == nullptr || transfer->multi == nullptr) {
    SM_TRACE(1, " - Failed to init libCURL");
    downloadImpossible.log("libcurl cannot prepare a transfer");
    return;
  }
  curlCBData_ = std::move(transfer);
  // What was read is counted in 32 bits.
  curlCBData_->maxBytes =
      static_cast<std::uint32_t>(std::min<std::uint64_t>(config()->maxDownloadSize(), UINT32_MAX));
  setOptions(*curlCBData_, option67Uri(), chosenAnswer()->scheme(), config()->proxyFromEnvironment());
  if (option67UriIsHttp()) doBuildCurlHttpHeaders();
  if (option67UriIsHttps() || curlCBData_->followsRedirects) {
    if (auto const failure = verifyServer(*curlCBData_, *policy()->authenticity()); !failure.empty()) {
      downloadImpossible.log(failure);
      doCurlShutdown();
      return;
    }
  }
  if (!resume_) resume_ = std::make_shared<Resume>();
  resume_->give(*curlCBData_, option67Uri());
  if (curlCBData_->headers != nullptr) curl->easySetopt(easy, CURLOPT_HTTPHEADER, curlCBData_->headers);
  // Says nothing about the transfer: to end one must not wait, on the loop, for a name server that is silent.
  curl->easySetopt(easy, CURLOPT_QUICK_EXIT, 1L);
  if (curl->multiAddHandle(curlCBData_->multi, easy) != CURLM_OK) {
    downloadImpossible.log("libcurl cannot start the transfer");
    doCurlShutdown();
    return;
  }
  doCurlPerform();
}

void ZeroTouchSm::forgetTransfer() {
  curlTransferDoneIs(false);
  curlSuccessIs(false);
  curlErrorStrIs("");
  downloadOutcomeIs("");
  downloadProblem_ = Problem::none;
  fileIsHashPlingIs(false);
  bytesReadIs(0);
  contentLengthIs(0);
  serverVerifiedAgainstIs("");
  bootFileSignerIs("");
  bootFileSignerFingerprintIs("");
  bootFileSignedTimeIs(0);
}

void ZeroTouchSm::doCurlPerform() {
  if (curlCBData_ == nullptr) return;
  int running = 0;
  CURLMcode result = CURLM_OK;
  do {
    result = curlCBData_->curl->multiPerform(curlCBData_->multi, &running);
  } while (result == CURLM_CALL_MULTI_PERFORM);
  if (result == CURLM_OK && running > 0) {
    bytesReadIs(curlCBData_->byteCount);
    contentLengthIs(curlCBData_->contentLength);
    endStalledTransfer();
    if (curlCBData_ != nullptr) watchCurlSocket();
  } else {
    doCurlClose();
  }
}

// The ticks of ConfigFetchTimer see to it that this is asked every second.
void ZeroTouchSm::endStalledTransfer() {
  Kel::Seconds const limit = policy()->download()->stallLimit();
  if (limit <= 0 || Kel::now() < curlCBData_->movedTime + limit) return;
  curlCBData_->stalled = true;
  curlCBData_->failure = Kel::format("nothing has moved for %g seconds", limit);
  curlCBData_->problem = Problem::transferSlow;
  doCurlClose();
}

namespace {

// FTP brings the file by a second socket, which comes and goes during the transfer.
void watchDataSocket(CurlTransfer& transfer, int highest, fd_set const& readable, fd_set const& writable,
                     std::function<void()> const& ready) {
  int fd = highest;
  while (fd >= 0 && (fd == transfer.socketFd || !(FD_ISSET(fd, &readable) || FD_ISSET(fd, &writable)))) --fd;
  if (!transfer.dataSocket) {
    if (fd < 0) return;
    transfer.dataSocket = Kel::makePtr<Kel::FileDescriptor>();
    using Hooks = Kel::FileDescriptor::NotifieeConst;
    transfer.dataSocketReady =
        Kel::Reactor(transfer.dataSocket, {&Hooks::onReadableCount, &Hooks::onWritableCount}, ready);
  }
  transfer.dataSocket->descriptorIs(fd);
  transfer.dataSocket->notifyOnReadableIs(fd >= 0 && FD_ISSET(fd, &readable));
  transfer.dataSocket->notifyOnWritableIs(fd >= 0 && FD_ISSET(fd, &writable));
}

}  // namespace

// Only the socket that libcurl names first is watched, and that of FTP's data; for all others the ticks must
// do. Whatever it no longer asks for is switched off, so that a number which is not libcurl's any more cannot
// keep the loop busy; and setting a direction registers the number with the kernel anew, since libcurl closes
// one socket (that of its resolver) and gets its number again for the next.
void ZeroTouchSm::watchCurlSocket() {
  fd_set readable;
  fd_set writable;
  fd_set exceptional;
  FD_ZERO(&readable);
  FD_ZERO(&writable);
  FD_ZERO(&exceptional);
  int highest = -1;
  if (curlCBData_->curl->multiFdset(curlCBData_->multi, &readable, &writable, &exceptional, &highest) !=
      CURLM_OK) {
    SM_TRACE(1, " - Failed to get fdset");
    highest = -1;
  }
  std::int32_t& fd = curlCBData_->socketFd;
  if (highest >= 0) {
    SM_TRACE(9, " - CURL socket fd = " << highest);
    if (fd == -1) {
      fd = highest;
      KEL_ASSERT(!curlSockFd(), "!curlSockFd()");
      auto const watch = Kel::makePtr<Kel::FileDescriptor>();
      watch->descriptorIs(fd);
      watch->nonBlockingIs(true);
      curlSockFd_ = watch;
      using Hooks = Kel::FileDescriptor::NotifieeConst;
      curlSockFdReady_ = Kel::Reactor(watch, {&Hooks::onReadableCount, &Hooks::onWritableCount},
                                      [this] { handleCurlSockFd(); });
    }
  }
  if (!curlSockFd()) return;
  bool const read = highest >= 0 && FD_ISSET(fd, &readable);
  bool const write = highest >= 0 && FD_ISSET(fd, &writable);
  SM_TRACE(9, (read ? " - Setting fd=" : " - Revoking fd=") << fd << " as notify on readable");
  curlSockFd()->notifyOnReadableIs(read);
  SM_TRACE(9, (write ? " - Setting fd=" : " - Revoking fd=") << fd << " as notify on writeable");
  curlSockFd()->notifyOnWritableIs(write);
  if (curlCBData_->isFtp)
    watchDataSocket(*curlCBData_, highest, readable, writable, [this] { handleCurlSockFd(); });
}

void ZeroTouchSm::doCheckCurlErrors() {
  auto const* const cd = curlCBData();
  KEL_ASSERT(cd, "cd");
  CURLcode result = CURLE_FAILED_INIT;  // unless libcurl says how the transfer ended
  int left = 0;
  while (CURLMsg const* const message = cd->curl->multiInfoRead(cd->multi, &left)) {
    if (message->msg != CURLMSG_DONE || message->easy_handle != cd->easy) continue;
    result = message->data.result;
    break;
  }
  curlSuccessIs(result == CURLE_OK);
  bool const detailed = cd->errorDetail.front() != '\0';
  curlErrorStrIs(result == CURLE_OK ? ""
                 : detailed         ? Kel::printable(cd->errorDetail.data())
                                    : Kel::String(cd->curl->easyStrerror(result)));
  if (curlSuccess()) noteVerifiedServer();
  if (!curlSuccess()) SM_TRACE(1, " - CURL error: " << curlErrorStr());
  Trouble const end = downloadEnd(result, factsOf(*cd, option67Uri()), curlErrorStr());
  downloadProblem_ = curlSuccess() ? end.problem : toMend(end).problem;
  downloadOutcomeIs(end.text);
}

void ZeroTouchSm::doCurlClose() {
  doCheckCurlErrors();
  auto& cd = *curlCBData_;
  // An answer without a body leaves nothing of what came before.
  if (curlSuccess() && cd.resumes && !cd.begun) Resume::begin(cd);
  if (curlSuccess() && cd.failure.empty()) {
    auto const [problem, text] = objection(cd);
    cd.failure = text;
    cd.problem = problem;
  }
  // The file's last bytes may still wait to be written, and may not fit.
  if (cd.output != nullptr && cd.failure.empty() && std::fflush(cd.output) != 0) {
    noteUnwritable(cd, errno);
  }
  if (!cd.failure.empty()) {
    SM_TRACE(1, " - " << cd.failure);
    curlSuccessIs(false);
    curlErrorStrIs(cd.failure);
    downloadOutcomeIs(cd.failure);
    downloadProblem_ = cd.problem;
  }
  fileIsHashPlingIs(cd.firstByte == '#' && cd.secondByte == '!');
  bytesReadIs(cd.byteCount);
  SM_TRACE(5, " bytes read: " << bytesRead());
  if (auto const pause = cd.isHttp ? cd.http.pause(*cd.curl) : std::nullopt; pause && !curlSuccess())
    pacing_->serverAsksFor(*pause);
  doCurlShutdown();
  if (curlSuccess() && beginBootFileCheck()) return;
  curlTransferDoneIs(true);
}

Trouble ZeroTouchSm::whatTransferWaitsFor() const {
  return curlCBData_ ? toMend(downloadWaits(factsOf(*curlCBData_, option67Uri()))) : Trouble{};
}

// Where the URL hardly means what was meant, that is the problem of its failed download too.
Trouble ZeroTouchSm::toMend(Trouble const& end) const {
  auto const answer = chosenAnswer();
  return answer && answer->problem() != Problem::none ? Trouble{answer->problem(), end.text} : end;
}

// Safe at any time. The watch goes before libcurl closes the socket: its number may be somebody else's next.
void ZeroTouchSm::doCurlShutdown() {
  if (curlSockFd()) {
    curlSockFd()->descriptorIs(-1);
    curlSockFdReady_ = {};
    curlSockFd_ = nullptr;
  }
  if (curlCBData_ != nullptr && resume_ && !curlSuccess()) resume_->keep(*curlCBData_, option67Uri());
  curlCBData_ = nullptr;
  bootFileCheck_ = nullptr;
}

void ZeroTouchSm::handleCurlSockFd() {
  if (!mayMoveOnFrom(stateFetchConfig())) return;
  doCurlPerform();
  if (curlTransferDone()) concludeDownload();
}

void ZeroTouchSm::concludeDownload() {
  if (!curlSuccess()) reportFailedDownload();
  if (!mayActIn(stateFetchConfig())) return;
  if (curlSuccess()) {
    doStateTransition(stateFetchConfig(), stateCopyConfigOrExecScript(), TransitionCause::fileReceived);
  } else {
    doStateTransition(stateFetchConfig(), stateRetryFetchConfig(),
                      {TransitionCause::downloadFailed, {downloadProblem_, downloadOutcome()}});
  }
}

}  // namespace ZeroTouch
