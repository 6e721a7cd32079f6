// The boot file: fetched and looked at as a switch would, with the code that does it there.
#include <sys/select.h>
#include <unistd.h>

#include <filesystem>

#include "platform/kel/Clock.h"
#include "platform/kel/Format.h"
#include "platform/model/values/Grammar.h"
#include "programs/zerotouch/Verbs.h"
#include "programs/zerotouch/rehearse/Rehearsal.h"
#include "zerotouch/agent/Policy.h"
#include "zerotouch/fetch/Authenticity.h"
#include "zerotouch/fetch/Contents.h"
#include "zerotouch/fetch/Download.h"
#include "zerotouch/sm/Cause.h"
#include "zerotouch/sm/Pacing.h"
#include "zerotouch/sm/ProvisioningTimers.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace Rehearsal {

namespace {

using ZeroTouch::CurlTransfer;
using ZeroTouch::Problem;
using ZeroTouch::Trouble;

// A folder of our own, which goes away with its files.
class Folder {
 public:
  Folder() : path_((std::filesystem::temp_directory_path() / "zerotouch-rehearse-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) throw ZeroTouchCommand::Refused("cannot make a folder in /tmp");
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(Folder const&) = delete;
  Folder& operator=(Folder const&) = delete;

  std::string file(char const* name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Waits until a socket of the transfer is ready, at most 0.2 s.
void wait(CurlTransfer& transfer) {
  fd_set readable, writable, exceptional;
  FD_ZERO(&readable);
  FD_ZERO(&writable);
  FD_ZERO(&exceptional);
  int highest = -1;
  transfer.curl->multiFdset(transfer.multi, &readable, &writable, &exceptional, &highest);
  timeval patience{.tv_sec = 0, .tv_usec = highest < 0 ? 10'000 : 200'000};
  select(highest + 1, &readable, &writable, &exceptional, &patience);
}

// Lets libcurl run until it is done. False when the time for a download is over, or nothing moves any more.
bool perform(CurlTransfer& transfer, Tell const& tell) {
  auto const limit = ZeroTouch::Pacing().forDownload(ZeroTouch::ConfigFetchTimer::settings.timeout).time;
  Kel::Seconds const start = Kel::now();
  Kel::Seconds told = start;
  for (int running = 1;;) {
    if (transfer.curl->multiPerform(transfer.multi, &running) != CURLM_OK || running == 0) return true;
    Kel::Seconds const now = Kel::now();
    if (ZeroTouch::endIfStalled(transfer) || now > start + limit) return false;
    constexpr Kel::Seconds patience = 3;
    if (now > told + patience) {
      tell(Kel::format("%u bytes have come within %.0f s; a switch waits up to %.0f s", transfer.byteCount,
                       now - start, limit));
      told = now;
    }
    wait(transfer);
  }
}

Trouble transferred(CurlTransfer& transfer, ZeroTouch::BootFile const& file, Download& download,
                    Tell const& tell) {
  bool const ended = perform(transfer, tell);
  auto const result = ended ? ZeroTouch::transferResult(transfer, file.url) : ZeroTouch::TransferResult{};
  ZeroTouch::judgeBody(transfer, result.received);
  download.bytes = transfer.byteCount;
  download.received = result.received && transfer.failure.empty();
  if (!transfer.failure.empty()) return {transfer.problem, transfer.failure};
  auto const end = ended ? result.end : ZeroTouch::downloadWaits(ZeroTouch::factsOf(transfer, file.url));
  return download.received ? end : ZeroTouch::toMend(file.problem, end);
}

// Replaces the file by what was signed, if it has to be signed. Returns why it is refused, or nothing.
Trouble verified(std::string const& path, std::string const& content, Identity const& identity,
                 Download& download) {
  auto const rules = ZeroTouch::policy()->authenticity();
  if (rules->signers().empty()) return {};
  Kel::String failure;
  auto const* const library = ZeroTouch::trustLibrary(failure);
  if (library == nullptr) return {Problem::signatureRefused, "the boot file cannot be verified: " + failure};
  std::FILE* const output = ZeroTouch::openDownload(content.c_str(), failure);
  if (output == nullptr) return {Problem::noRoomForDownload, failure};
  // Which files were taken before, a rehearsal does not know.
  auto const expectations = ZeroTouch::expectationsOf(*rules, identity.chassis->serialNum(), "");
  auto const verification = library->verify(path, fileno(output), expectations);
  while (verification->work()) continue;
  std::fclose(output);
  if (!verification->objection().empty()) return {Problem::signatureRefused, verification->objection()};
  download.signer = verification->signature().signer;
  download.bytes = verification->size();
  std::filesystem::rename(content, path);
  return {};
}

// Why the file would not do.
Trouble examined(std::string const& path, Trouble const& answer, Download& download) {
  if (download.bytes == 0) {
    ZeroTouch::Cause const cause(ZeroTouch::TransitionCause::fileEmpty,
                                 answer.problem == Problem::none ? Trouble{} : answer);
    return {cause.problem, cause.reason()};
  }
  download.isScript = ZeroTouch::isScript(path.c_str());
  if (!download.isScript) {
    auto const doubt = ZeroTouch::doubtsAbout(path.c_str(), answer);
    download.installed = doubt.problem != Problem::none;
    return doubt;
  }
  constexpr std::size_t longestLine = 256;
  auto const start = ZeroTouch::readStart(path, longestLine);
  if (start)
    download.firstLine = Kel::printable(start->text.substr(0, start->text.find('\n')), Kel::longestShown);
  return ZeroTouch::interpreterTrouble(path.c_str());
}

}  // namespace

Download fetch(ZeroTouch::BootFile const& file, Identity const& identity, HostConfig const& config,
               Tell const& tell) {
  Download download;
  download.url = Grammar::withoutPasswords(file.url);
  auto const* const curl = ZeroTouch::Curl::load();
  if (curl == nullptr) throw ZeroTouchCommand::Refused("libcurl cannot be loaded: install libcurl4");
  Folder const folder;
  std::string const path = folder.file("boot"), content = folder.file("content");
  Kel::Seconds const start = Kel::now();
  tell("fetching " + download.url);
  Trouble end;
  {
    CurlTransfer transfer(*curl);
    transfer.outFileName = path.c_str();
    auto const failure = ZeroTouch::prepareTransfer(
        transfer, {.url = file.url,
                   .scheme = file.scheme,
                   .maxBytes = config.maxDownloadSize,
                   .proxies = config.proxyFromEnvironment,
                   .addHeaders = [&identity](CurlTransfer& to) {
                     ZeroTouch::addRequestHeaders(to, identity.systemMacAddr, *identity.chassis);
                   }});
    end = failure.empty() ? transferred(transfer, file, download, tell)
                          : Trouble{Problem::downloadImpossible, failure};
  }
  download.seconds = Kel::now() - start;
  download.outcome = Kel::printable(Grammar::withoutPasswords(end.text));
  download.problem = end.problem;
  if (!download.received) return download;
  if (file.scheme == "https") download.serverVerified = ZeroTouch::policy()->authenticity()->httpsCa();
  Trouble refusal;
  if (download.bytes > 0) refusal = verified(path, content, identity, download);
  if (refusal.problem == Problem::none) refusal = examined(path, end, download);
  download.problem = refusal.problem;
  download.refused = refusal.text;
  return download;
}

}  // namespace Rehearsal
