// A blocking client of the state tree's socket (Rpc.h has the methods).
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/kel/EntityType.h"
#include "platform/kel/Types.h"

namespace Statebase {

// The host cannot be reached, does not answer in time, or has closed the connection.
class ConnectionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The host has refused a request; what() is its message.
class CallError : public std::runtime_error {
 public:
  // `error` is the error object of the answer.
  explicit CallError(Kel::Value error);
  Kel::Value const& error() const { return error_; }
  // 0 when the host gave none.
  std::int64_t code() const;

 private:
  Kel::Value error_;
};

class Client {
 public:
  struct Notification {
    std::string method;
    Kel::Value params;
  };

  // Connects. `timeout` bounds each wait for the host. Throws ConnectionError, and so do the calls below.
  explicit Client(std::string const& socketPath, Kel::Seconds timeout = 10);
  ~Client();
  Client(Client const&) = delete;
  Client& operator=(Client const&) = delete;

  // Sends a request and waits for its result. Throws CallError too.
  Kel::Value call(std::string const& method, Kel::ValueMap params);
  // The values at these paths, at most maxPaths (Rpc.h), read at one moment: null for what does not exist.
  std::map<std::string, Kel::Value> get(std::vector<std::string> const& paths);
  // The same, and from now on a notification "changed" comes for each change below one of them. A path that
  // cannot name anything is a CallError.
  std::map<std::string, Kel::Value> watch(std::vector<std::string> const& paths);
  // Sends a notification, which is never answered.
  void notify(std::string const& method, Kel::ValueMap params);
  // The next notification that the host sent; nothing when `timeout` passes without one (Kel::never: no
  // limit).
  std::optional<Notification> readNotification(Kel::Seconds timeout);
  // The socket, for a loop to wait on; it stays the client's.
  int descriptor() const { return descriptor_; }

 private:
  std::map<std::string, Kel::Value> callForPaths(char const* method, std::vector<std::string> const& paths);
  [[noreturn]] void fail(std::string const& reason) const;
  // False when the host has closed its end.
  bool sendLine(Kel::ValueMap message);
  // The next message, or null when it was a notification, which is kept; nothing when the time is up.
  std::optional<Kel::Value> readMessage();
  void receiveTimeoutIs(Kel::Seconds timeout);

  std::string socketPath_;
  Kel::Seconds timeout_;
  int descriptor_ = -1;
  std::uint64_t lastId_ = 0;
  std::string input_;
  std::deque<Notification> notifications_;  // those that came while an answer was awaited
};

}  // namespace Statebase
