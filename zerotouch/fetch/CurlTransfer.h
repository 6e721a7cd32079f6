// libcurl, loaded with the first download, and the one transfer: what libcurl and its callbacks work on, from
// the start of a download to its end.
#pragma once

#include <curl/curl.h>

#include <array>
#include <cstdint>
#include <cstdio>

#include "platform/kel/FileDescriptor.h"
#include "platform/kel/Reactor.h"
#include "platform/kel/Types.h"
#include "zerotouch/fetch/HttpAnswer.h"
#include "zerotouch/sm/Problem.h"

namespace ZeroTouch {

// The calls that are used. With the thirty libraries that it needs, libcurl takes as much memory as all the
// rest of the host: one that only stands by, with provisioning disabled, does without.
struct Curl {
  decltype(&::curl_easy_init) easyInit = nullptr;
  decltype(&::curl_multi_init) multiInit = nullptr;
  decltype(&::curl_easy_setopt) easySetopt = nullptr;
  decltype(&::curl_easy_getinfo) easyGetinfo = nullptr;
  decltype(&::curl_multi_add_handle) multiAddHandle = nullptr;
  decltype(&::curl_multi_perform) multiPerform = nullptr;
  decltype(&::curl_multi_fdset) multiFdset = nullptr;
  decltype(&::curl_multi_info_read) multiInfoRead = nullptr;
  decltype(&::curl_easy_strerror) easyStrerror = nullptr;
  decltype(&::curl_slist_append) slistAppend = nullptr;
  decltype(&::curl_slist_free_all) slistFreeAll = nullptr;
  decltype(&::curl_multi_cleanup) multiCleanup = nullptr;
  decltype(&::curl_easy_cleanup) easyCleanup = nullptr;
  decltype(&::curl_getdate) getdate = nullptr;

  // Null, after a warning, when the library cannot be loaded; tried again the next time.
  static Curl const* load();
  // For tests: these calls instead of the library's, until null is given. The caller keeps them alive.
  static void replacementIs(Curl const* replacement);
};

inline constexpr char const* configDownloadPath = "/tmp/zt-download";

// What a server has said about the file that it sends; "" and 0 for what it has not.
struct Promise {
  Kel::String validator;  // changes with the file: a strong ETag, or FTP's time of the last change
  std::uint64_t bytes = 0;
};

// Made by doTryFetchUri, freed by doCurlShutdown; the user pointer of both callbacks. Owns libcurl's handles,
// which are null when libcurl could not make them, and the file.
struct CurlTransfer {
  CurlTransfer() = default;  // without a transfer: the callbacks work on it all the same
  explicit CurlTransfer(Curl const& library)
      : curl(&library), easy(library.easyInit()), multi(library.multiInit()) {}
  ~CurlTransfer();
  CurlTransfer(CurlTransfer const&) = delete;

  // Whether libcurl could make its handles.
  bool isMade() const { return easy != nullptr && multi != nullptr; }
  // Adds a line to the request. Without memory for it, the request goes out without any line.
  void addHeader(Kel::String const& line);
  // What the answer says of the file.
  Promise announced() const;
  // Whether the body is one of a script.
  bool beginsScript() const { return firstByte == '#' && secondByte == '!'; }
  CurlTransfer& operator=(CurlTransfer const&) = delete;

  Curl const* curl = nullptr;
  CURL* easy = nullptr;
  CURLM* multi = nullptr;
  curl_slist* headers = nullptr;
  bool headersLost = false;  // for want of memory
  char const* outFileName = configDownloadPath;
  std::FILE* output = nullptr;  // opened by the first bytes of the body
  std::int32_t socketFd = -1;   // the socket that libcurl named first
  bool isFtp = false;
  Kel::Ptr<Kel::FileDescriptor> dataSocket;  // of FTP, watched besides; null until there was one
  Kel::Reactor dataSocketReady;
  std::uint32_t byteCount = 0;
  std::uint64_t contentLength = 0;  // of the file, as announced; 0 when it was not
  // Of the body; a zero byte is kept as '*', 0 means that it has not come yet.
  std::uint8_t firstByte = 0;
  std::uint8_t secondByte = 0;
  std::uint32_t headerBytes = 0;  // of the server's header lines and replies
  bool ftpFileFollows = false;    // an FTP server has said that it sends the file
  bool bootImageUrlPresent = false;
  std::array<char, 1024> bootImageUrl{};  // with the end of its line, unless a blank comes before that
  std::uint32_t maxBytes = UINT32_MAX;    // a longer body fails
  std::array<char, CURL_ERROR_SIZE> errorDetail{};  // what libcurl says of it; filled on request
  bool isHttp = false;
  HttpAnswer http;
  Kel::String ftpChanged;      // when an FTP server has changed the file last, as it says
  std::uint64_t ftpBytes = 0;  // how long that file is, as it says
  bool resumable = false;      // what is received may be gone on with later
  bool resumes = false;        // an earlier transfer's bytes were there at the start
  bool begun = false;          // the body has
  Promise promised;            // of the file that the bytes belong to
  bool followsRedirects = false;
  bool stalled = false;
  Kel::Seconds movedTime = 0;       // when bytes of the body came last; at first, of the start
  Kel::String failure;              // why the body could not be kept; "" if it could
  Problem problem = Problem::none;  // and what is wrong then
};

// How long an FTP server may take for a reply: while the transfer runs, which the loop need not wait for, and
// once the file has come, when libcurl waits within a call.
inline constexpr long ftpResponseTimeoutSeconds = 60;
inline constexpr long ftpFarewellTimeoutSeconds = 1;

// What a server may say besides the body, in bytes. libcurl keeps all header lines in memory, and has no
// limit of its own for those that follow the body.
inline constexpr std::uint32_t maxHeaderBytes = 1024 * 1024;

// Makes the file of the body in place of whatever stands there. The file's folder is everybody's, so nothing
// that lies there is written to. Null, and the reason in `failure`, when that cannot be removed (a folder) or
// the file cannot be made.
std::FILE* openDownload(char const* path, Kel::String& failure);

// Keeps why the file at outFileName cannot be written, by the number of the error.
void noteUnwritable(CurlTransfer& transfer, int error);

// libcurl's callbacks. The first keeps the body and returns how much of it was kept: less than it was given,
// or -1 when the file cannot be opened, ends the transfer. The second looks for the boot image's URL, the
// body's length and the reply of an FTP server that announces the file, and sees to it that HTTPS leads to
// HTTPS only; it returns 0, which ends the transfer, when the server says more than maxHeaderBytes. The third
// closes a socket of FTP; the one that brought the file goes before libcurl waits for the server's last
// reply.
std::size_t curlWriteCB(void* buf, std::size_t size, std::size_t n, void* cd);
std::size_t curlHeaderCB(void* buf, std::size_t size, std::size_t n, void* cd);
int curlCloseSocketCB(void* cd, curl_socket_t socket);

}  // namespace ZeroTouch
