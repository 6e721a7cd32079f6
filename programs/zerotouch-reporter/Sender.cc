#include "programs/zerotouch-reporter/Sender.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <utility>

#include "platform/kel/Format.h"
#include "platform/kel/Random.h"

namespace {

constexpr std::size_t mostEvents = 64;        // of a batch; MQTT knows none
constexpr std::size_t mostBytes = 128 << 10;  // of a batch with more than one event
constexpr Kel::Seconds tick = 0.05;           // at which a transfer is looked at
constexpr Kel::Seconds shortestPause = 1;     // after a failure; it doubles with each
constexpr Kel::Seconds longestPause = 300;    // unless the collector wants more
constexpr Kel::Seconds withoutNetwork = 10;   // the longest pause while nobody is bothered by another attempt
constexpr Kel::Seconds longestWanted = 3600;  // of what it may want
constexpr long connectSeconds = 10, transferSeconds = 30;
constexpr long tooLargeStatus = 413;

std::size_t ignore(char*, std::size_t size, std::size_t count, void*) { return size * count; }

// Nothing that was meant for the collector has left the switch.
bool hadNoNetwork(CURL* easy, CURLcode result) {
  long error = 0;
  curl_easy_getinfo(easy, CURLINFO_OS_ERRNO, &error);
  return result == CURLE_COULDNT_RESOLVE_HOST ||
         (result == CURLE_COULDNT_CONNECT &&
          (error == ENETUNREACH || error == EHOSTUNREACH || error == ENETDOWN || error == EADDRNOTAVAIL));
}

// From 0.5 to 1, so that switches that failed together do not come back together.
double jitter() { return 0.5 + Kel::random() / 2; }

}  // namespace

Sender::Sender(CollectorConfig config, Spool& spool, std::function<void()> changed)
    : config_(std::move(config)),
      spool_(spool),
      changed_(std::move(changed)),
      multi_(curl_multi_init()),
      batches_(!config_.url.starts_with("mqtt://")),
      mostEvents_(mostEvents) {}

Sender::~Sender() {
  if (easy_ != nullptr) {
    curl_multi_remove_handle(multi_, easy_);
    curl_easy_cleanup(easy_);
  }
  curl_slist_free_all(headers_);
  curl_multi_cleanup(multi_);
}

void Sender::send() {
  // What has happened on the switch may have brought the network.
  if (!pause_.isSet() || hasNoNetwork_) sendNow();
}

void Sender::sendNow() {
  if (!busy() && !spool_.waiting().empty()) begin();
}

void Sender::begin() {
  pause_.cancel();
  body_.clear();
  eventsInBody_ = 0;
  for (auto const& entry : spool_.waiting()) {
    bool const full =
        eventsInBody_ == (batches_ ? mostEvents_ : 1) || body_.size() + entry.event.size() > mostBytes;
    if (eventsInBody_ > 0 && full) break;
    body_ += (eventsInBody_ > 0 ? "," : "") + entry.event;
    lastInBody_ = entry.number;
    ++eventsInBody_;
  }
  if (batches_) body_ = "[" + body_ + "]";
  prepare();
  drive();
}

void Sender::prepare() {
  easy_ = curl_easy_init();
  curl_slist_free_all(std::exchange(headers_, nullptr));
  headers_ = curl_slist_append(nullptr, "Content-Type: application/cloudevents-batch+json");
  auto const option = [this](CURLoption name, auto value) { curl_easy_setopt(easy_, name, value); };
  option(CURLOPT_URL, config_.url.c_str());
  option(CURLOPT_PROTOCOLS_STR, "http,https,mqtt");
  option(CURLOPT_USERAGENT, "zerotouch-reporter/" ZEROTOUCH_VERSION);
  option(CURLOPT_HTTPHEADER, headers_);
  option(CURLOPT_POSTFIELDSIZE, static_cast<long>(body_.size()));
  option(CURLOPT_POSTFIELDS, body_.c_str());
  option(CURLOPT_WRITEFUNCTION, &ignore);
  error_.front() = '\0';
  option(CURLOPT_ERRORBUFFER, error_.data());
  option(CURLOPT_NOSIGNAL, 1L);
  option(CURLOPT_CONNECTTIMEOUT, connectSeconds);
  option(CURLOPT_TIMEOUT, transferSeconds);
  if (!config_.proxyFromEnvironment) option(CURLOPT_PROXY, "");
  if (!config_.ca.empty() && config_.ca != "system") option(CURLOPT_CAINFO, config_.ca.c_str());
  if (!config_.certificate.empty()) option(CURLOPT_SSLCERT, config_.certificate.c_str());
  if (!config_.key.empty()) option(CURLOPT_SSLKEY, config_.key.c_str());
  curl_multi_add_handle(multi_, easy_);
}

void Sender::drive() {
  int running = 0;
  curl_multi_perform(multi_, &running);
  int left = 0;
  CURLMsg* const message = curl_multi_info_read(multi_, &left);
  if (message != nullptr) return end(message->data.result);
  tick_.in(tick);
}

void Sender::end(CURLcode result) {
  long status = 0;
  curl_off_t retryAfter = 0;
  curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_getinfo(easy_, CURLINFO_RETRY_AFTER, &retryAfter);
  if (std::exchange(hasNoNetwork_, hadNoNetwork(easy_, result)) && !hasNoNetwork_) failures_ = 0;
  curl_multi_remove_handle(multi_, easy_);
  curl_easy_cleanup(std::exchange(easy_, nullptr));
  tick_.cancel();
  bool const accepted = status == 0 || (status >= 200 && status < 300);  // MQTT has no status
  if (result != CURLE_OK) {
    failed(error_.front() != '\0' ? error_.data() : curl_easy_strerror(result), 0);
  } else if (accepted) {
    succeeded();
  } else if (status == tooLargeStatus) {
    tooLarge();
  } else {
    failed(Kel::format("the collector answered with status %d", status), static_cast<double>(retryAfter));
  }
  changed_();
}

void Sender::succeeded() {
  failures_ = 0;
  failure_.clear();
  mostEvents_ = std::min(mostEvents_ * 2, mostEvents);
  spool_.done(lastInBody_, true);
  if (!spool_.waiting().empty()) pause_.in(0);
}

void Sender::failed(Kel::String const& reason, Kel::Seconds wanted) {
  failure_ = reason;
  Kel::Seconds const growing = shortestPause * std::exp2(std::min(failures_++, 20U));
  Kel::Seconds const most = hasNoNetwork_ ? withoutNetwork : longestPause;
  pause_.in(std::max(std::min(growing, most) * jitter(), std::min(wanted, longestWanted)));
}

// A collector that takes no event of this size would hold up all that follow.
void Sender::tooLarge() {
  failure_ = Kel::format("the collector refuses %d events at once as too large", eventsInBody_);
  if (eventsInBody_ > 1) {
    mostEvents_ = eventsInBody_ / 2;
  } else {
    spool_.done(lastInBody_, false);
  }
  pause_.in(shortestPause * jitter());
}
