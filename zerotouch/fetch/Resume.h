// A download that has broken off, kept so that the next one can go on with it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>

#include "platform/kel/Types.h"
#include "zerotouch/fetch/CurlTransfer.h"

namespace ZeroTouch {

// What a transfer may go on with only when the file is still the same: for HTTP a strong ETag says so, for
// FTP the length and the time of the last change.
class Resume {
 public:
  // Takes from a transfer that has failed, and is about to be dropped, what it has received, if that can be
  // gone on with.
  void keep(CurlTransfer& transfer, Kel::String const& url);
  // Gives it to a transfer of the same URL that is about to start, with the options and headers that ask for
  // the rest; else forgets it.
  void give(CurlTransfer& transfer, Kel::String const& url);
  void forget() { output_ = nullptr; }

  // To be called by the transfer's callbacks with the first bytes of the body. Decides from the answer's
  // headers whether they go on with what the transfer was given, or begin the file anew, and makes the file
  // ready for them. When they fit neither, leaves the reason in transfer.failure.
  static void begin(CurlTransfer& transfer);

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  std::unique_ptr<std::FILE, Close> output_;  // open since it was made, so that nobody can swap it
  Kel::String url_;
  Promise promise_;
  std::uint32_t byteCount_ = 0;
  std::uint8_t firstByte_ = 0, secondByte_ = 0;
};

}  // namespace ZeroTouch
