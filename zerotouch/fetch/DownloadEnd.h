// How a download has ended, told for people, and what was wrong.
#pragma once

#include <curl/curl.h>

#include <string_view>

#include "platform/kel/Types.h"
#include "zerotouch/sm/Problem.h"

namespace ZeroTouch {

// What is known of a transfer besides libcurl's result.
struct TransferFacts {
  Kel::String host;         // of the URL
  long responseCode = 0;    // of HTTP or FTP; 0 when there was none
  long systemError = 0;     // why no connection was made, as in errno; 0 when it is not known
  bool resolved = false;    // the host's address is known
  bool connected = false;   // to the server
  std::uint64_t bytes = 0;  // of the body that have come
};

// The host in a URL: without user, password and port.
Kel::String hostOf(std::string_view url);

// "HTTP 404 Not Found"
Kel::String httpStatus(long code);

// `text` is libcurl's own for the result. A good answer is told too ("HTTP 200 OK"; "" where there is no
// code); that it leads elsewhere is a problem then, since its body is what was downloaded.
Trouble downloadEnd(CURLcode result, TransferFacts const& facts, Kel::String const& text);

// What a transfer that has not ended is waiting for.
Trouble downloadWaits(TransferFacts const& facts);

}  // namespace ZeroTouch
