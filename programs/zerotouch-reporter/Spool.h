// What is to be delivered: a file to which each event is appended before anything else happens with it.
//
// A folder holds two files. "events" has a line for each event, oldest first: its number, where it stood with
// the host, and the event as JSON. "position" says up to which number events are delivered; it is replaced as
// a whole. A crash between the two leads to a second delivery of the same events, which have the same ids.
#pragma once

#include <cstdint>
#include <deque>

#include "platform/kel/Types.h"

// The last event of the host that has been taken over: its number in the host's log, and when it was raised.
// A host that starts anew counts from 1 again.
struct HostPosition {
  std::uint64_t number = 0;
  Kel::Seconds time = 0;
};

class Spool {
 public:
  struct Entry {
    std::uint64_t number = 0;
    HostPosition host;
    Kel::String event;  // JSON on one line
  };
  struct Counts {
    std::uint64_t delivered = 0;
    std::uint64_t waiting = 0;
    std::uint64_t dropped = 0;  // the oldest, for want of room
  };

  // Reads what an earlier process has left in `folder`, which is made when it is missing; what it was writing
  // when it was killed is cut off. At most `maxBytes` of events are kept. Throws std::runtime_error when the
  // folder cannot be used.
  Spool(Kel::String folder, std::uint64_t maxBytes);
  ~Spool();
  Spool(Spool const&) = delete;
  Spool& operator=(Spool const&) = delete;

  // Tells this spool from every other, also from one that was in the same place before it was lost.
  Kel::String const& instance() const { return instance_; }
  HostPosition const& hostPosition() const { return host_; }
  // The number that the next event gets.
  std::uint64_t next() const { return next_; }
  // Returns "" or what failed; the event is then not kept.
  Kel::String add(Kel::String const& event, HostPosition host);

  std::deque<Entry> const& waiting() const { return waiting_; }
  // All events up to this number are delivered, or are given up.
  void done(std::uint64_t number, bool delivered);
  Counts counts() const { return {delivered_, waiting_.size(), dropped_}; }

 private:
  void readPosition();
  void readEvents();
  void dropOldest();
  void writePosition() const;
  void rewriteEvents();
  // Times have so many digits that they are the same again when they are read.
  static Kel::String line(Entry const& entry);

  Kel::String folder_;
  std::uint64_t maxBytes_;
  Kel::String instance_;
  int file_ = -1;
  std::uint64_t next_ = 1;
  HostPosition host_;
  std::deque<Entry> waiting_;
  std::uint64_t bytes_ = 0;  // of waiting_
  std::uint64_t delivered_ = 0;
  std::uint64_t dropped_ = 0;
};
