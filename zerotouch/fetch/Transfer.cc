// The transfer on the loop: started, driven by its socket and by ConfigFetchTimer's ticks, ended.
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <utility>

#include "platform/kel/Assert.h"
#include "platform/kel/FileDescriptor.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/fetch/BootFile.h"
#include "zerotouch/fetch/BootFileCheck.h"
#include "zerotouch/fetch/CurlTransfer.h"
#include "zerotouch/fetch/Download.h"
#include "zerotouch/fetch/Resume.h"
#include "zerotouch/sm/Pacing.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"

namespace ZeroTouch {

void ZeroTouchSm::TransferEnd::operator()(CurlTransfer* transfer) const { delete transfer; }

void ZeroTouchSm::doTryFetchUri() {
  KEL_ASSERT(!option67Uri().empty(), "uri");
  SM_TRACE(5, " - DHCP (option 67) bootfile-name is: " << shownUri());
  ZTP_CONFIG_DOWNLOAD.log(shownUri());
  forgetTransfer();
  KEL_ASSERT(!curlCBData_, "!curlCBData_");
  Curl const* const curl = Curl::load();
  if (curl == nullptr) return;
  curlCBData_.reset(new CurlTransfer(*curl));
  if (!resume_) resume_ = std::make_shared<Resume>();
  Kel::String const failure =
      prepareTransfer(*curlCBData_, {.url = option67Uri(),
                                     .scheme = chosenAnswer()->scheme(),
                                     .maxBytes = config()->maxDownloadSize(),
                                     .proxies = config()->proxyFromEnvironment(),
                                     .addHeaders = [this](auto&) { doBuildCurlHttpHeaders(); },
                                     .resume = resume_.get()});
  if (!failure.empty()) {
    if (!curlCBData_->isMade()) SM_TRACE(1, " - Failed to init libCURL");
    downloadImpossible.log(failure);
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
  if (endIfStalled(*curlCBData_)) doCurlClose();
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
  auto const result = transferResult(*cd, option67Uri());
  curlSuccessIs(result.received);
  curlErrorStrIs(result.error);
  if (curlSuccess()) noteVerifiedServer();
  if (!curlSuccess()) SM_TRACE(1, " - CURL error: " << curlErrorStr());
  downloadProblem_ = curlSuccess() ? result.end.problem : toMend(result.end).problem;
  downloadOutcomeIs(result.end.text);
}

void ZeroTouchSm::doCurlClose() {
  doCheckCurlErrors();
  auto& cd = *curlCBData_;
  judgeBody(cd, curlSuccess());
  if (!cd.failure.empty()) {
    SM_TRACE(1, " - " << cd.failure);
    curlSuccessIs(false);
    curlErrorStrIs(cd.failure);
    downloadOutcomeIs(cd.failure);
    downloadProblem_ = cd.problem;
  }
  fileIsHashPlingIs(cd.beginsScript());
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

Trouble ZeroTouchSm::toMend(Trouble const& end) const {
  auto const answer = chosenAnswer();
  return ZeroTouch::toMend(answer ? answer->problem() : Problem::none, end);
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
