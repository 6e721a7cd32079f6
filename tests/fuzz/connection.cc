// Clients of the state tree's socket, which send in pieces, fall silent and leave. A line says what happens:
// "0{...}" client 0 sends the rest and a newline, "0{..\" without the newline, "*" the same twice,
// "r0" client 0 reads, "e0" sends nothing any more, "h0" hangs up.
#include <sys/socket.h>

#include <array>

#include "platform/kel/testing/SimulatedTime.h"
#include "platform/statebase/Connection.h"
#include "tests/fuzz/StateTree.h"

namespace {

struct Client {
  explicit Client(Statebase::Tree& tree) {
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends);
    end = ends[0];
    connection = Kel::makePtr<Statebase::Connection>(tree, ends[1], Statebase::Role::root,
                                                     [this](auto*) { connection = nullptr; });
  }
  ~Client() { close(end); }
  Client(Client const&) = delete;
  Client& operator=(Client const&) = delete;

  // Whether all of it has gone out.
  bool send(std::string_view text) const {
    return ::send(end, text.data(), text.size(), MSG_NOSIGNAL) == ssize_t(text.size());
  }
  void read() {
    std::array<char, 65536> piece;
    for (ssize_t count = 0; (count = recv(end, piece.data(), piece.size(), 0)) > 0;)
      received.append(piece.data(), static_cast<std::size_t>(count));
  }
  // What comes is JSON, and the last answer is that to the last request, unless a line was too long.
  void check() const {
    std::string id;
    for (std::string_view rest = received; !rest.empty();) {
      std::string_view const line = take(rest);
      auto const message = parsed(line);
      KEL_ASSERT(message, "JSON");
      if (Statebase::member(*message, "method") != nullptr) continue;  // something has changed
      id = Statebase::dumpJson(*Statebase::member(*message, "id"));
      if (id == "null" && line.find("line longer than") != line.npos) return;
    }
    KEL_ASSERT(!asked || id == "\"last\"", "all answers");
  }
  bool served() const { return connection != nullptr; }

  int end = -1;
  bool asked = false;                          // its last request has gone out
  Kel::Ptr<Statebase::Connection> connection;  // until it has ended
  std::string received;
};

}  // namespace

void fuzz(std::string_view input) {
  static Kel::testing::SimulatedTime time;
  StateTree state;
  std::array clients{Client(state.tree), Client(state.tree), Client(state.tree)};
  auto const client = [&](char digit) -> Client& { return clients[static_cast<unsigned char>(digit) % 3]; };
  std::string last;
  Client* sender = &clients[0];
  for (int stars = 0; !input.empty();) {
    std::string_view const line = take(input);
    std::string_view const verb = line.substr(0, 1);
    if (line == "*" && ++stars < 16) {
      // Many requests take their time.
      if (last.size() < (last.ends_with('\n') ? 512 : 65'536)) last += last;
      sender->send(last);
    } else if (verb == "r" && line.size() == 2) {
      client(line[1]).read();
    } else if (verb == "e" && line.size() == 2) {
      shutdown(client(line[1]).end, SHUT_WR);
    } else if (verb == "h" && line.size() == 2) {
      close(std::exchange(client(line[1]).end, -1));
    } else if (!line.empty()) {
      sender = &client(line[0]);
      last = line.ends_with('\\') ? line.substr(1, line.size() - 2) : std::string(line.substr(1)) + "\n";
      sender->send(last);
    }
    time.settle();
  }
  for (auto& each : clients) {
    each.asked = each.send("\n{\"jsonrpc\":\"2.0\",\"id\":\"last\",\"method\":\"time\"}\n") && each.served();
    shutdown(each.end, SHUT_WR);
  }
  for (int pass = 0; std::ranges::any_of(clients, &Client::served); ++pass) {
    KEL_ASSERT(pass < 10'000, "every client comes to its end");
    time.settle();
    for (auto& each : clients) each.read();
  }
  for (auto& each : clients) {
    each.read();
    each.check();
  }
}
