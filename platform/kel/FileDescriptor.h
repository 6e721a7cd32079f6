// A descriptor watched by the loop.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>

#include "platform/kel/Entity.h"

namespace Kel {

// Watches a descriptor without owning it: whoever opened it closes it, after descriptorIs(-1). The counts go
// up once per pass of the loop in which the descriptor is ready (level-triggered); errors and hang-ups count
// as readiness of whatever direction is watched. One that the kernel cannot watch (closed, a regular file) is
// never ready.
class FileDescriptor : public Entity {
 public:
  class NotifieeConst : public NotifieeBase {
   public:
    explicit NotifieeConst(Ptr<FileDescriptor const> notifier) : NotifieeBase(notifier, 1) {}
    virtual void onReadableCount() {}
    virtual void onWritableCount() {}
  };

  FileDescriptor() = default;
  ~FileDescriptor() override;

  int descriptor() const { return descriptor_; }
  void descriptorIs(int descriptor);

  bool nonBlocking() const { return nonBlocking_; }
  // Sets or clears O_NONBLOCK on the descriptor.
  void nonBlockingIs(bool on);

  bool notifyOnReadable() const { return notifyOnReadable_; }
  void notifyOnReadableIs(bool on);
  bool notifyOnWritable() const { return notifyOnWritable_; }
  void notifyOnWritableIs(bool on);

  bool late() const { return late_; }
  // The descriptor is looked at when nothing else on the loop is ready, and every few passes in any case
  // (Loop::passesWithoutLate). Takes effect with the next of the calls above.
  void lateIs(bool on) { late_ = on; }

  std::uint64_t readableCount() const { return readableCount_.get(); }
  std::uint64_t writableCount() const { return writableCount_.get(); }

 private:
  static int onReady(sd_event_source*, int, std::uint32_t events, void* self);
  void watch();
  void unwatch();

  int descriptor_ = -1;
  sd_event_source* source_ = nullptr;
  bool nonBlocking_ = false;
  bool notifyOnReadable_ = false;
  bool notifyOnWritable_ = false;
  bool late_ = false;
  Attr<std::uint64_t> readableCount_;
  Attr<std::uint64_t> writableCount_;
};

}  // namespace Kel
