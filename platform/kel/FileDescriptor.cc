#include "platform/kel/FileDescriptor.h"

#include <fcntl.h>
#include <sys/epoll.h>

#include "platform/kel/Loop.h"

namespace Kel {

FileDescriptor::~FileDescriptor() { unwatch(); }

void FileDescriptor::descriptorIs(int descriptor) {
  if (descriptor == descriptor_) return;
  unwatch();
  descriptor_ = descriptor;
  if (nonBlocking_) nonBlockingIs(true);
  watch();
}

void FileDescriptor::nonBlockingIs(bool on) {
  nonBlocking_ = on;
  if (descriptor_ < 0) return;
  int const flags = fcntl(descriptor_, F_GETFL);
  fcntl(descriptor_, F_SETFL, on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK);
}

void FileDescriptor::notifyOnReadableIs(bool on) {
  notifyOnReadable_ = on;
  watch();
}

void FileDescriptor::notifyOnWritableIs(bool on) {
  notifyOnWritable_ = on;
  watch();
}

void FileDescriptor::watch() {
  std::uint32_t const events = (notifyOnReadable_ ? EPOLLIN : 0U) | (notifyOnWritable_ ? EPOLLOUT : 0U);
  // Registered anew each time: a number can have been closed and opened again since, which the kernel
  // forgets.
  unwatch();
  if (descriptor_ < 0 || events == 0) return;
  if (sd_event_add_io(Loop::instance().event(), &source_, descriptor_, events, onReady, this) < 0) return;
  if (late_) sd_event_source_set_priority(source_, SD_EVENT_PRIORITY_IDLE);
  Loop::instance().sourceAdded();
}

void FileDescriptor::unwatch() {
  if (source_ == nullptr) return;
  sd_event_source_disable_unref(source_);
  source_ = nullptr;
  Loop::instance().sourceRemoved();
}

int FileDescriptor::onReady(sd_event_source* source, int, std::uint32_t events, void* self) {
  Ptr<FileDescriptor> const hold(static_cast<FileDescriptor*>(self));
  bool const broken = (events & (EPOLLERR | EPOLLHUP)) != 0;
  if (hold->notifyOnReadable_ && (broken || (events & EPOLLIN) != 0)) {
    hold->readableCount_.set(*hold, 1, "readableCount", hold->readableCount() + 1,
                             &NotifieeConst::onReadableCount);
  }
  // The first handler may have changed the watch; what was ready says nothing about another descriptor.
  if (hold->source_ != source) return 0;
  if (hold->notifyOnWritable_ && (broken || (events & EPOLLOUT) != 0)) {
    hold->writableCount_.set(*hold, 1, "writableCount", hold->writableCount() + 1,
                             &NotifieeConst::onWritableCount);
  }
  return 0;
}

}  // namespace Kel
