#include "platform/statebase/Connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "platform/statebase/Json.h"

namespace Statebase {

namespace {
constexpr std::size_t pieceSize = 16 * 1024;
}

Connection::Connection(Tree& tree, int descriptor, Role role, OnClosed onClosed)
    : tree_(tree), descriptor_(descriptor), role_(role), onClosed_(std::move(onClosed)) {
  watched_->descriptorIs(descriptor_);
  watched_->notifyOnReadableIs(true);
}

void Connection::close() {
  if (descriptor_ < 0) return;
  Kel::Ptr<Connection> const hold(this);
  watched_->notifyOnReadableIs(false);
  watched_->notifyOnWritableIs(false);
  watched_->descriptorIs(-1);
  ::close(descriptor_);
  descriptor_ = -1;
  changes_.cancel();
  stall_.cancel();
  watches_.clear();
  onClosed_(this);
}

std::optional<Kel::Seconds> Connection::idleSince() const {
  bool const isIdle = watches_.empty() && output_.empty() && !hasLine();
  return isIdle ? std::optional(lastActive_) : std::nullopt;
}

void Connection::onReadable() {
  Kel::Ptr<Connection> const hold(this);
  if (descriptor_ < 0 || !receive()) return;
  answerLines();
  sendOutput();
  goOn();
}

void Connection::onWritable() {
  Kel::Ptr<Connection> const hold(this);
  if (descriptor_ < 0) return;
  sendOutput();
  answerLines();
  sendChanges();
  goOn();
}

void Connection::onChanges() {
  Kel::Ptr<Connection> const hold(this);
  sendChanges();
  sendOutput();
  goOn();
}

bool Connection::receive() {
  char piece[pieceSize];
  ssize_t const count = recv(descriptor_, piece, sizeof piece, 0);
  if (count > 0) {
    input_.append(piece, static_cast<std::size_t>(count));
    lastActive_ = Kel::now();
    return true;
  }
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return false;
  if (count < 0) {
    close();
    return false;
  }
  // A last line without a newline counts as a line.
  if (!input_.empty()) input_ += '\n';
  inputEnded_ = true;
  return true;
}

void Connection::answerLines() {
  std::size_t done = 0;
  while (mayGoOn()) {
    std::size_t const end = input_.find('\n', done);
    if (std::min(end, input_.size()) - done > maxLine) {
      cutOff("line longer than " + std::to_string(maxLine) + " bytes");
      return;
    }
    if (end == std::string::npos) break;
    std::string_view const line = std::string_view(input_).substr(done, end - done);
    if (line.find_first_not_of(" \t\r") != std::string_view::npos) add(rpcAnswer(tree_, *this, line));
    done = end + 1;
  }
  input_.erase(0, done);
}

void Connection::cutOff(std::string const& reason) {
  output_ += rpcErrorLine(nullptr, RpcError(RpcCode::invalidRequest, reason));
  input_.clear();
  inputEnded_ = true;
}

bool Connection::hasChanges() const {
  return std::ranges::any_of(watches_, [](auto const& watch) { return watch->hasPending(); });
}

void Connection::sendChanges() {
  for (auto const& watch : watches_) {
    while (watch->hasPending() && mayGoOn()) {
      std::string const path = watch->takePending();
      add(rpcChangedLine(path, tree_.getOrNull(path)));
    }
  }
}

void Connection::sendOutput() {
  if (descriptor_ < 0 || output_.empty()) return;
  ssize_t const count = send(descriptor_, output_.data(), output_.size(), MSG_NOSIGNAL);
  if (count > 0) {
    output_.erase(0, static_cast<std::size_t>(count));
    lastActive_ = Kel::now();
    stall_.cancel();
  } else if (errno != EAGAIN && errno != EINTR) {
    close();
  }
}

void Connection::add(std::string const& output) {
  output_ += output;
  added_ += std::max(output.size(), leastPerLine);
}

void Connection::goOn() {
  if (descriptor_ < 0) return;
  added_ = 0;
  bool const hasWork = hasLine() || hasChanges();
  if (output_.size() > maxOutput || (inputEnded_ && output_.empty() && !hasWork)) {
    close();
    return;
  }
  if (output_.empty()) {
    stall_.cancel();
  } else {
    stall_.in(stallLimit);
  }
  // Work that is left goes on when the client can take more, on another pass of the loop, and after the
  // clients that ask for one thing at a time.
  watched_->lateIs(!output_.empty() || hasWork);
  watched_->notifyOnWritableIs(!output_.empty() || hasWork);
  watched_->notifyOnReadableIs(!inputEnded_ && hasRoom() && !hasLine());
}

void Connection::watch(std::vector<std::string> const& paths) {
  auto const onPending = [this] { changes_.in(0); };
  std::vector<std::unique_ptr<Watch>> added;
  for (std::string const& path : paths) {
    if (std::ranges::any_of(watches_, [&](auto const& watch) { return watch->path() == path; })) continue;
    if (watches_.size() + added.size() == maxWatches) {
      throw RpcError(RpcCode::tooMany, "more than " + std::to_string(maxWatches) + " watches", path);
    }
    added.push_back(std::make_unique<Watch>(tree_, path, onPending));
  }
  std::ranges::move(added, std::back_inserter(watches_));
}

bool Connection::unwatch(std::string const& path) {
  return std::erase_if(watches_, [&](auto const& watch) { return watch->path() == path; }) > 0;
}

}  // namespace Statebase
