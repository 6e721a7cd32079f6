// What the headers of an HTTP server's answer say about a download.
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/kel/Types.h"

namespace ZeroTouch {

struct Curl;

inline constexpr unsigned partialContent = 206;

// The last answer: where redirects are followed, each status line begins another one.
struct HttpAnswer {
  unsigned status = 0;  // 0 before the first one
  std::uint64_t length = 0;
  bool tellsEnd = false;  // by a length, by chunks, or by a version that frames what it carries
  Kel::String location;
  Kel::String etag;              // with its quotation marks; only a strong one (RFC 9110, 8.8.1)
  std::uint64_t rangeFirst = 0;  // of Content-Range: the place of the body's first byte
  std::uint64_t total = 0;       // of Content-Range: the length of the whole file
  Kel::String retryAfter, date;  // as they came

  // Takes a line of the headers, with or without its end. What is malformed counts as absent.
  void note(std::string_view line);
  // 0 when it is not told.
  std::uint64_t fileLength() const { return status == partialContent ? total : length; }
  bool isRedirect() const { return status >= 300 && status < 400 && status != 304; }
  // How long the server wants to be left alone, in seconds from now on; only an answer that says "too many
  // requests" (429) or "unavailable" (503) may. A date is compared with the server's own where it says that,
  // since the clock of a new switch may be wrong.
  std::optional<Kel::Seconds> pause(Curl const& curl) const;
};

}  // namespace ZeroTouch
