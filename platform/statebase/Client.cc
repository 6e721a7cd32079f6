#include "platform/statebase/Client.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>

#include "platform/statebase/Json.h"

namespace Statebase {

namespace {

using Kel::Value;
using Kel::ValueMap;

// The kernel takes a time-out of zero for "wait for ever".
timeval toTimeval(Kel::Seconds timeout) {
  if (timeout == Kel::never) return {};
  double whole = 0;
  double const fraction = std::modf(std::max(timeout, 1e-6), &whole);
  return {.tv_sec = static_cast<time_t>(whole), .tv_usec = static_cast<suseconds_t>(fraction * 1e6)};
}

}  // namespace

CallError::CallError(Value error)
    : std::runtime_error(text(at(error, {"message"}), "refused without a reason")),
      error_(std::move(error)) {}

std::int64_t CallError::code() const {
  Value const* const code = member(error_, "code");
  auto const* number = code != nullptr ? code->as<std::int64_t>() : nullptr;
  return number != nullptr ? *number : 0;
}

Client::Client(std::string const& socketPath, Kel::Seconds timeout)
    : socketPath_(socketPath), timeout_(timeout) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socketPath.size() >= sizeof address.sun_path) fail("longer than a socket's path can be");
  socketPath.copy(address.sun_path, socketPath.size());
  descriptor_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (descriptor_ < 0) fail(std::strerror(errno));
  timeval const limit = toTimeval(timeout);
  setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  receiveTimeoutIs(timeout);
  if (connect(descriptor_, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
    std::string const reason = errno == EAGAIN ? "the host does not answer" : std::strerror(errno);
    close(descriptor_);
    fail(reason);
  }
}

Client::~Client() { close(descriptor_); }

void Client::fail(std::string const& reason) const { throw ConnectionError(socketPath_ + ": " + reason); }

void Client::receiveTimeoutIs(Kel::Seconds timeout) {
  timeval const limit = toTimeval(timeout);
  setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

Value Client::call(std::string const& method, ValueMap params) {
  Value const id = ++lastId_;
  // A failed send is no error yet: a host that has closed its end may have sent the reason before.
  sendLine({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}});
  for (;;) {
    auto const message = readMessage();
    if (!message) fail("the host does not answer");
    Value const* const answered = member(*message, "id");
    Value const* const error = member(*message, "error");
    // An error without an id answers no request: it says why the host is about to end the connection.
    bool const isOurs =
        answered != nullptr && (*answered == id || (error != nullptr && *answered == Value()));
    if (!isOurs) continue;
    if (error != nullptr) throw CallError(*error);
    Value const* const result = member(*message, "result");
    return result != nullptr ? *result : Value();
  }
}

std::map<std::string, Value> Client::get(std::vector<std::string> const& paths) {
  return callForPaths("get", paths);
}

std::map<std::string, Value> Client::watch(std::vector<std::string> const& paths) {
  return callForPaths("watch", paths);
}

std::map<std::string, Value> Client::callForPaths(char const* method, std::vector<std::string> const& paths) {
  Value const result = call(method, {{"paths", Kel::ValueList(paths.begin(), paths.end())}});
  auto const* members = result.as<ValueMap>();
  if (members == nullptr) fail(std::string(method) + ": the host's answer is no object");
  return {members->begin(), members->end()};
}

void Client::notify(std::string const& method, ValueMap params) {
  if (!sendLine({{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}}))
    fail(std::strerror(EPIPE));
}

std::optional<Client::Notification> Client::readNotification(Kel::Seconds timeout) {
  receiveTimeoutIs(timeout);
  while (notifications_.empty() && readMessage()) {
  }
  receiveTimeoutIs(timeout_);
  if (notifications_.empty()) return std::nullopt;
  Notification next = std::move(notifications_.front());
  notifications_.pop_front();
  return next;
}

bool Client::sendLine(ValueMap message) {
  std::string const line = dumpJson(std::move(message)) + "\n";
  for (std::size_t sent = 0; sent < line.size();) {
    ssize_t const count = send(descriptor_, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (count >= 0) {
      sent += static_cast<std::size_t>(count);
    } else if (errno == EPIPE) {
      return false;
    } else if (errno != EINTR) {
      fail(errno == EAGAIN ? "the host does not read" : std::strerror(errno));
    }
  }
  return true;
}

std::optional<Value> Client::readMessage() {
  std::size_t searched = 0;
  std::size_t end = 0;
  while ((end = input_.find('\n', searched)) == std::string::npos) {
    searched = input_.size();
    char piece[16 * 1024];
    ssize_t const count = recv(descriptor_, piece, sizeof piece, 0);
    if (count > 0) {
      input_.append(piece, static_cast<std::size_t>(count));
    } else if (count == 0 || errno == ECONNRESET) {
      fail("the host has closed the connection (are you root, or in its group?)");
    } else if (errno == EAGAIN) {
      return std::nullopt;
    } else if (errno != EINTR) {
      fail(std::strerror(errno));
    }
  }
  std::string const line = input_.substr(0, end);
  input_.erase(0, end + 1);
  try {
    Value message = parseJson(line);
    Value const* const method = member(message, "method");
    if (method == nullptr) return message;
    notifications_.push_back({text(*method), at(message, {"params"})});
    return Value();
  } catch (JsonError const& error) {
    fail(std::string("the host's answer is not JSON: ") + error.what());
  }
}

}  // namespace Statebase
