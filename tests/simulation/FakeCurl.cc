#include "tests/simulation/FakeCurl.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <functional>
#include <utility>

#include "tests/unit/support/Faults.h"

// CURLoption is an enumeration, as libcurl's own signature wants it.
#pragma GCC diagnostic ignored "-Wvarargs"

namespace {

// Handles are never looked into, so any address will do.
CURL* const easyHandle = reinterpret_cast<CURL*>(0x1000);
CURLM* const multiHandle = reinterpret_cast<CURLM*>(0x2000);

// Tells nothing. A lambda with "..." is no pointer to a function for GCC.
CURLcode getinfo(CURL*, CURLINFO, ...) { return CURLE_OK; }

}  // namespace

FakeCurl* FakeCurl::current = nullptr;

FakeCurl::FakeCurl() : socket_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  current = this;
  table_.easyInit = []() -> CURL* {
    if (fails("easyInit")) return nullptr;
    ++current->alive_;
    current->protocols = "all";
    current->proxy = "-";
    current->range_ = current->condition_ = "";
    return easyHandle;
  };
  table_.multiInit = []() -> CURLM* {
    if (fails("multiInit")) return nullptr;
    ++current->alive_;
    return multiHandle;
  };
  table_.easySetopt = setopt;
  table_.easyGetinfo = getinfo;
  table_.multiAddHandle = [](CURLM*, CURL*) {
    current->passesLeft_ = current->passes;
    current->written_ = 0;
    current->answered_ = false;
    current->reported_ = true;
    return fails("addHandle") ? CURLM_INTERNAL_ERROR : CURLM_OK;
  };
  table_.multiPerform = [](CURLM*, int* running) { return current->perform(running); };
  table_.multiFdset = [](CURLM*, fd_set* readable, fd_set*, fd_set*, int* highest) {
    *highest = current->hasSocket ? current->socket_ : -1;
    if (current->hasSocket) FD_SET(current->socket_, readable);
    return CURLM_OK;
  };
  table_.multiInfoRead = [](CURLM*, int* left) -> CURLMsg* {
    *left = 0;
    return std::exchange(current->reported_, true) ? nullptr : &current->message_;
  };
  table_.easyStrerror = [](CURLcode) { return "simulated failure"; };
  table_.slistAppend = [](curl_slist* list, char const* line) -> curl_slist* {
    if (Faults::fails("append")) return nullptr;
    std::string const header = line;
    if (header.starts_with("Range: bytes=")) current->range_ = header.substr(13);
    if (header.starts_with("If-Range: ")) current->condition_ = header.substr(10);
    if (list == nullptr) ++current->alive_;
    return list != nullptr ? list : reinterpret_cast<curl_slist*>(0x3000);
  };
  table_.slistFreeAll = [](curl_slist* list) { current->alive_ -= list != nullptr ? 1 : 0; };
  table_.multiCleanup = [](CURLM*) {
    --current->alive_;
    return CURLM_OK;
  };
  table_.getdate = [](char const*, time_t const*) -> time_t { return -1; };
  table_.easyCleanup = [](CURL*) { --current->alive_; };
  ZeroTouch::Curl::replacementIs(&table_);
}

FakeCurl::~FakeCurl() {
  ZeroTouch::Curl::replacementIs(nullptr);
  close(socket_);
}

bool FakeCurl::fails(char const* call) { return current->failing == call || Faults::fails(call); }

CURLcode FakeCurl::setopt(CURL*, CURLoption option, ...) {
  va_list arguments;
  va_start(arguments, option);
  if (option == CURLOPT_WRITEFUNCTION) current->writeFunction_ = va_arg(arguments, curl_write_callback);
  if (option == CURLOPT_WRITEDATA) current->writeData_ = va_arg(arguments, void*);
  if (option == CURLOPT_HEADERFUNCTION) current->headerFunction_ = va_arg(arguments, curl_write_callback);
  if (option == CURLOPT_PROTOCOLS_STR) current->protocols = va_arg(arguments, char const*);
  if (option == CURLOPT_PROXY) current->proxy = va_arg(arguments, char const*);
  va_end(arguments);
  return CURLE_OK;
}

void FakeCurl::socketReady() const { eventfd_write(socket_, 1); }

bool FakeCurl::write(std::size_t upTo) {
  std::size_t const size = std::max(upTo, written_) - written_;
  if (size == 0) return true;
  std::size_t const from = std::exchange(written_, written_ + size);
  return writeFunction_(sent.data() + from, 1, size, writeData_) == size;
}

// Begins the answer: decides on the body, and sends the headers of HTTP.
void FakeCurl::answer() {
  if (answered_) return;
  answered_ = true;
  sent = body;
  if (!protocols.starts_with("http")) return;
  auto const line = [this](std::string text) {
    text += "\r\n";
    headerFunction_(text.data(), 1, text.size(), writeData_);
  };
  std::string const etag = '"' + std::to_string(std::hash<std::string>()(sent)) + '"';
  bool const rest = grantsRanges && !range_.empty() && (condition_ == etag) && status == 200;
  written_ = rest ? std::min<std::size_t>(std::stoul(range_), sent.size()) : 0;
  if (rest) ++granted;
  line("HTTP/1.1 " + std::to_string(rest ? 206 : status));
  line("ETag: " + etag);
  line("Content-Length: " + std::to_string(sent.size() - written_));
  if (status == 503) line("Retry-After: 200");
  if (rest)
    line("Content-Range: bytes " + std::to_string(written_) + "-" + std::to_string(sent.size() - 1) + "/" +
         std::to_string(sent.size()));
}

CURLMcode FakeCurl::perform(int* running) {
  eventfd_t ignored = 0;
  eventfd_read(socket_, &ignored);
  *running = 1;
  if (hangs) return CURLM_OK;
  if (fails("perform")) return CURLM_INTERNAL_ERROR;
  bool const last = passesLeft_-- <= 0;
  CURLcode const ends = status < 400 ? result : CURLE_HTTP_RETURNED_ERROR;
  if (ends == CURLE_HTTP_RETURNED_ERROR) answer();
  bool const writes = ends == CURLE_OK || (ends == result && !last);
  if (writes) answer();
  bool const kept = writes ? write(last ? sent.size() : sent.size() / 2) : true;
  if (!last && kept) return CURLM_OK;
  *running = 0;
  message_.msg = CURLMSG_DONE;
  message_.easy_handle = easyHandle;
  message_.data.result = kept ? ends : CURLE_WRITE_ERROR;
  reported_ = false;
  return CURLM_OK;
}
