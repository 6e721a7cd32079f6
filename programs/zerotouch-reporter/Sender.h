// Posts what the spool holds, in order: CloudEvents in the batched mode of their HTTP binding, one batch at a
// time, or each as one MQTT message, as their MQTT binding has it.
#pragma once

#include <curl/curl.h>

#include <array>
#include <functional>
#include <memory>

#include "platform/kel/Clock.h"
#include "programs/zerotouch-reporter/Spool.h"

struct CollectorConfig {
  Kel::String url;  // http, https or mqtt
  bool proxyFromEnvironment = false;
  Kel::String ca;  // a PEM file of authorities, or "system"; of HTTPS
  Kel::String certificate, key;
};

class Sender {
 public:
  // `changed` is called when a batch was delivered or has failed.
  Sender(CollectorConfig config, Spool& spool, std::function<void()> changed);
  ~Sender();
  Sender(Sender const&) = delete;
  Sender& operator=(Sender const&) = delete;

  // Sends what waits, unless it is being sent or a pause has to pass first.
  void send();
  // Without waiting for the end of a pause.
  void sendNow();
  // Why the last batch could not be delivered; "" when it was.
  Kel::String const& failure() const { return failure_; }
  // When it is tried again; Kel::never when nothing waits for that.
  Kel::Seconds nextTry() const { return pause_.time(); }
  bool busy() const { return easy_ != nullptr; }

 private:
  void begin();
  void prepare();
  void drive();
  void end(CURLcode result);
  void succeeded();
  void failed(Kel::String const& reason, Kel::Seconds wanted);
  void tooLarge();

  CollectorConfig config_;
  Spool& spool_;
  std::function<void()> changed_;
  CURLM* multi_;
  bool batches_;
  CURL* easy_ = nullptr;
  curl_slist* headers_ = nullptr;
  Kel::String body_;
  std::array<char, CURL_ERROR_SIZE> error_{};  // what libcurl says of a failure
  std::uint64_t lastInBody_ = 0;
  std::size_t eventsInBody_ = 0;
  std::size_t mostEvents_;
  unsigned failures_ = 0;  // in a row
  Kel::String failure_;
  bool hasNoNetwork_ = false;  // the last batch could not leave the switch
  Kel::Alarm tick_{[this] { drive(); }};
  Kel::Alarm pause_{[this] { sendNow(); }};
};
