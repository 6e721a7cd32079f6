// One client of the state tree's socket.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/kel/Clock.h"
#include "platform/kel/FileDescriptor.h"
#include "platform/kel/Reactor.h"
#include "platform/statebase/Rpc.h"
#include "platform/statebase/Watch.h"

namespace Statebase {

// Reads lines, answers them in their order, and reports what the client watches. In one pass of the loop it
// takes one piece of its input, and answers little more than outputPerPass of it. While much output waits for
// the client, nothing more is read and done for it, changes that it watches keep coalescing, and it is cut
// off when it takes nothing for `stallLimit` seconds. A client that has closed its sending half gets its
// answers, and is then closed.
class Connection : public Kel::RefCounted, private RpcSession {
 public:
  static constexpr std::size_t maxLine = 64 * 1024;  // bytes, without the newline
  static constexpr std::size_t muchOutput = 256 * 1024;
  // What one pass of the loop may add; the answer that goes beyond it is the last. Each line counts as this
  // much at least: many that say nothing are work too.
  static constexpr std::size_t outputPerPass = 4 * 1024;
  static constexpr std::size_t leastPerLine = 512;
  // A single answer can pass muchOutput, but not this.
  static constexpr std::size_t maxOutput = 16 * 1024 * 1024;
  static constexpr std::size_t maxWatches = maxPaths;
  static constexpr Kel::Seconds stallLimit = 10;

  using OnClosed = std::function<void(Connection*)>;
  // Owns `descriptor`, which does not block. `onClosed` is called once, and may drop the connection, which
  // nobody does before that.
  Connection(Tree& tree, int descriptor, Role role, OnClosed onClosed);

  void close();

  // Since when it has neither received nor sent anything; nothing while it watches a path or has something
  // left to do or to send.
  std::optional<Kel::Seconds> idleSince() const;

 private:
  Role role() const override { return role_; }
  void watch(std::vector<std::string> const& paths) override;
  bool unwatch(std::string const& path) override;

  void onReadable();
  void onWritable();
  void onChanges();

  // Receives one piece; false when there was none because of an error.
  bool receive();
  void answerLines();
  void cutOff(std::string const& reason);
  void sendChanges();
  void sendOutput();
  // Closes when all is done, else says what to wait for.
  void goOn();

  bool hasRoom() const { return output_.size() < muchOutput; }
  bool mayGoOn() const { return hasRoom() && added_ < outputPerPass; }
  void add(std::string const& output);
  bool hasLine() const { return input_.find('\n') != std::string::npos; }
  bool hasChanges() const;

  Tree& tree_;
  int descriptor_;
  Role role_;
  OnClosed onClosed_;
  Kel::Ptr<Kel::FileDescriptor> watched_ = Kel::makePtr<Kel::FileDescriptor>();
  Kel::Reactor readable_{watched_, &Kel::FileDescriptor::NotifieeConst::onReadableCount, this,
                         &Connection::onReadable};
  Kel::Reactor writable_{watched_, &Kel::FileDescriptor::NotifieeConst::onWritableCount, this,
                         &Connection::onWritable};
  Kel::Alarm changes_{[this] { onChanges(); }};
  Kel::Alarm stall_{[this] { close(); }};
  std::vector<std::unique_ptr<Watch>> watches_;
  std::string input_;
  std::string output_;
  Kel::Seconds lastActive_ = Kel::now();
  std::size_t added_ = 0;    // to the output, in this pass; see outputPerPass
  bool inputEnded_ = false;  // by the client, or because of what it sent
};

}  // namespace Statebase
