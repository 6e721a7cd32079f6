// A libcurl that transfers nothing: one server, which behaves as it is told, for one transfer at a time.
#pragma once

#include <string>

#include "zerotouch/fetch/CurlTransfer.h"

class FakeCurl {
 public:
  FakeCurl();
  ~FakeCurl();
  FakeCurl(FakeCurl const&) = delete;
  FakeCurl& operator=(FakeCurl const&) = delete;

  // What becomes of transfers, also of the one that runs.
  std::string failing;  // this call fails: "easyInit", "multiInit", "addHandle" or "perform"
  bool hangs = false;
  bool trickles = false;  // while it hangs, each call of perform still brings one byte
  int passes = 1;         // calls of perform before the one that ends a new transfer; 0 ends it at once
  CURLcode result = CURLE_OK;
  std::string body = "hostname sw1\n";
  // The answer to an HTTP request, as far as it is not a body: 200, or any other status; with 503, a pause
  // that is asked for. Requests for the rest of a file are granted, when its ETag is that of the body, or
  // ignored.
  unsigned status = 200;
  bool grantsRanges = true;
  unsigned granted = 0;    // such requests so far
  bool hasSocket = false;  // otherwise the agent's timer alone drives it

  // Makes the socket ready, until libcurl looks at it.
  void socketReady() const;
  // What the last transfer was told; the protocols that it may speak, and its proxy ("-" for that of the
  // environment).
  std::string protocols, proxy;
  // The body of the last transfer, as a whole.
  std::string sent;
  // Handles and lists that were made and not freed.
  int alive() const { return alive_; }

 private:
  static FakeCurl* current;

  static bool fails(char const* call);
  static CURLcode setopt(CURL*, CURLoption option, ...);
  CURLMcode perform(int* running);
  bool write(std::size_t upTo);
  void answer();

  ZeroTouch::Curl table_;
  int alive_ = 0;
  int socket_ = -1;
  int passesLeft_ = 0;
  std::size_t written_ = 0;
  bool answered_ = false;
  std::string range_, condition_;  // headers of the request; "" without them
  curl_write_callback headerFunction_ = nullptr;
  curl_write_callback writeFunction_ = nullptr;
  void* writeData_ = nullptr;
  bool reported_ = false;
  CURLMsg message_{};
};
