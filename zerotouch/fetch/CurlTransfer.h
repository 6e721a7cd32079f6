// The one transfer: what libcurl and its callbacks work on, from the start of a download to its end.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>

#include "platform/kel/Types.h"
#include "zerotouch/fetch/Curl.h"

namespace ZeroTouch {

inline constexpr char const* configDownloadPath = "/tmp/zt-download";

// Made by doTryFetchUri, freed by doCurlShutdown; the user pointer of both callbacks. Owns libcurl's handles,
// which are null when libcurl could not make them, and the file.
struct CurlTransfer {
  CurlTransfer() = default;  // without a transfer: the callbacks work on it all the same
  explicit CurlTransfer(Curl const& library)
      : curl(&library), easy(library.easyInit()), multi(library.multiInit()) {}
  ~CurlTransfer();
  CurlTransfer(CurlTransfer const&) = delete;
  CurlTransfer& operator=(CurlTransfer const&) = delete;

  Curl const* curl = nullptr;
  CURL* easy = nullptr;
  CURLM* multi = nullptr;
  curl_slist* headers = nullptr;
  char const* outFileName = configDownloadPath;
  std::FILE* output = nullptr;  // opened by the first bytes of the body
  std::int32_t socketFd = -1;   // the socket that libcurl named first
  std::uint32_t byteCount = 0;
  std::uint64_t contentLength = 0;  // of the body, as announced; 0 when it was not
  // Of the body; a zero byte is kept as '*', 0 means that it has not come yet.
  std::uint8_t firstByte = 0;
  std::uint8_t secondByte = 0;
  bool bootImageUrlPresent = false;
  std::array<char, 1024> bootImageUrl{};  // with the end of its line, unless a blank comes before that
  std::uint32_t maxBytes = UINT32_MAX;    // a longer body fails
  Kel::String failure;                    // why the body could not be kept; "" if it could
};

// Opens the file of the body, empty: it is made, or it is the agent's own regular file under no other name.
// The file's folder is everybody's, so nothing else that lies there is written to. Null, and the reason in
// `failure`.
std::FILE* openDownload(char const* path, Kel::String& failure);

// libcurl's callbacks. The first keeps the body and returns how much of it was kept: less than it was given,
// or -1 when the file cannot be opened, ends the transfer. The second looks for the boot image's URL and
// the body's length, and never ends it.
std::size_t curlWriteCB(void* buf, std::size_t size, std::size_t n, void* cd);
std::size_t curlHeaderCB(void* buf, std::size_t size, std::size_t n, void* cd);

}  // namespace ZeroTouch
