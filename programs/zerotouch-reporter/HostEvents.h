// The events of the host, read from its socket, with what was going on when each was raised.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "platform/kel/Clock.h"
#include "platform/kel/FileDescriptor.h"
#include "platform/kel/Reactor.h"
#include "platform/statebase/Client.h"
#include "programs/zerotouch-reporter/Spool.h"

class HostEvents {
 public:
  struct Event {
    HostPosition position;
    Kel::String name;
    Kel::Seconds time = 0;
    Kel::ValueMap data;
  };
  using Take = std::function<void(Kel::String const& serial, Event const& event)>;

  // Calls `take` for each event after `last`, in their order. While there is no host, it is looked for again
  // every few seconds.
  HostEvents(Kel::String socketPath, HostPosition last, Take take);
  HostEvents(HostEvents const&) = delete;
  HostEvents& operator=(HostEvents const&) = delete;

  bool connected() const { return client_ != nullptr; }

 private:
  void connect();
  void disconnect();
  void read();
  void changed(std::string const& path, Kel::Value const& value);
  void takeEvents();
  Kel::ValueMap dataOf(Kel::Value const& event) const;

  Kel::String socketPath_;
  HostPosition last_;
  Take take_;
  Kel::Seconds pause_;  // before the host is looked for again
  std::unique_ptr<Statebase::Client> client_;
  Kel::Ptr<Kel::FileDescriptor> watched_;
  Kel::Reactor readable_;
  Kel::Alarm again_{[this] { connect(); }};
  Kel::Alarm soon_{[this] { takeEvents(); }};
  Kel::String serial_;
  // As the host has them, by their numbers.
  using Entries = std::map<std::uint64_t, Kel::Value>;
  Entries events_, states_, attempts_;
};
