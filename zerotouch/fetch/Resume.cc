#include "zerotouch/fetch/Resume.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/kel/Format.h"

namespace ZeroTouch {

namespace {

constexpr unsigned rangeNotSatisfiable = 416;

// Whether the file of that name is still the one that is open, and holds what was received.
bool isWhole(char const* path, std::FILE* open, std::uint32_t bytes) {
  struct stat named {};
  struct stat held {};
  return lstat(path, &named) == 0 && fstat(fileno(open), &held) == 0 && named.st_ino == held.st_ino &&
         named.st_dev == held.st_dev && held.st_size == static_cast<off_t>(bytes);
}

void startOver(CurlTransfer& transfer) {
  transfer.byteCount = 0;
  transfer.firstByte = transfer.secondByte = 0;
  if (transfer.output == nullptr) return;
  std::rewind(transfer.output);
  if (ftruncate(fileno(transfer.output), 0) != 0) noteUnwritable(transfer, errno);
}

}  // namespace

void Resume::keep(CurlTransfer& transfer, Kel::String const& url) {
  forget();
  bool const refused = transfer.http.status == rangeNotSatisfiable;
  bool const unchanged = transfer.resumes && !transfer.begun;
  bool const mayHelp = transfer.resumable && (transfer.isHttp ? !refused : !unchanged);
  bool const broken = !transfer.failure.empty() && !transfer.stalled;
  if (!mayHelp || broken || transfer.output == nullptr || transfer.byteCount == 0) return;
  if (transfer.promised.validator.empty() || std::fflush(transfer.output) != 0) return;
  output_.reset(std::exchange(transfer.output, nullptr));
  url_ = url;
  promise_ = transfer.promised;
  byteCount_ = transfer.byteCount;
  firstByte_ = transfer.firstByte;
  secondByte_ = transfer.secondByte;
}

void Resume::give(CurlTransfer& transfer, Kel::String const& url) {
  if (!output_ || url_ != url || !isWhole(transfer.outFileName, output_.get(), byteCount_)) return forget();
  transfer.output = output_.release();
  transfer.resumes = true;
  transfer.promised = promise_;
  transfer.byteCount = byteCount_;
  transfer.firstByte = firstByte_;
  transfer.secondByte = secondByte_;
  if (transfer.isHttp) {
    transfer.addHeader(Kel::format("Range: bytes=%u-", byteCount_));
    transfer.addHeader("If-Range: " + promise_.validator);
  } else {
    transfer.curl->easySetopt(transfer.easy, CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(byteCount_));
  }
}

void Resume::begin(CurlTransfer& transfer) {
  transfer.begun = true;
  auto const& http = transfer.http;
  Promise now = transfer.announced();
  if (transfer.resumes && transfer.isHttp && http.status != partialContent) {
    startOver(transfer);
  } else if (transfer.resumes) {
    // Only the same file may bring the rest: the same length, and where the answer repeats what tells
    // versions apart, the same one.
    bool const goesOn = !transfer.isHttp || http.rangeFirst == transfer.byteCount;
    bool const sameLength = transfer.promised.bytes == 0 || now.bytes == transfer.promised.bytes;
    if (transfer.isHttp && now.validator.empty()) now.validator = transfer.promised.validator;
    bool const sameVersion = now.validator == transfer.promised.validator;
    if (!goesOn || !sameLength || !sameVersion) {
      transfer.failure = "the server does not go on where the download broke off";
      transfer.problem = Problem::downloadOther;
    }
  }
  transfer.promised = now;
}

}  // namespace ZeroTouch
