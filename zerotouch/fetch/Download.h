// One download by libcurl: how it is set up, and what its end means. Who lets libcurl run in between (the
// agent on its loop, or a program that waits) is no matter here.
#pragma once

#include <functional>

#include "platform/model/entitymib.h"
#include "zerotouch/fetch/CurlTransfer.h"
#include "zerotouch/fetch/DownloadEnd.h"

namespace ZeroTouch {

class Resume;

// What is to be fetched. [download] and [authenticity] of platform.toml say the rest.
struct DownloadOrder {
  Kel::String url;
  Kel::String scheme;  // of the URL, as bootFile() gives it
  std::uint64_t maxBytes = 0;
  bool proxies = false;                           // whether http_proxy and its like count
  std::function<void(CurlTransfer&)> addHeaders;  // called for HTTP and HTTPS
  Resume* resume = nullptr;                       // what an earlier transfer has left, if anything
};

// Adds the headers by which an HTTP server knows the switch.
void addRequestHeaders(CurlTransfer& transfer, Wire::EthAddr const& systemMacAddr,
                       EntityMib::Fru const& chassis);

// Gives the transfer its options and headers, so that libcurl can perform it. Returns why that is impossible,
// or
// "".
Kel::String prepareTransfer(CurlTransfer& transfer, DownloadOrder const& order);

// How a transfer has ended that libcurl no longer performs.
struct TransferResult {
  bool received = false;  // libcurl has taken it for complete
  Kel::String error;      // libcurl's words; empty when it was received
  Trouble end;            // as downloadEnd() tells it
};
TransferResult transferResult(CurlTransfer const& transfer, Kel::String const& url);

// Leaves in transfer.failure why what has come is no boot file, or could not be kept; call it at the end.
void judgeBody(CurlTransfer& transfer, bool received);

// Whether nothing has moved for longer than platform.toml allows; transfer.failure says so then.
bool endIfStalled(CurlTransfer& transfer);

// What is known of a transfer.
TransferFacts factsOf(CurlTransfer const& transfer, Kel::String const& url);

}  // namespace ZeroTouch
