// The state tree's socket under simulated time: clients of every kind, and what they see.
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "platform/statebase/Server.h"
#include "tests/unit/StatebaseFixture.h"

namespace Statebase::testing {

namespace {

using Kel::Value;

// A client that takes only what is there.
class Peer {
 public:
  explicit Peer(std::string const& path)
      : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    connected_ = connect(descriptor_, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
  }
  ~Peer() { close(descriptor_); }
  Peer(Peer const&) = delete;
  Peer& operator=(Peer const&) = delete;

  bool connected() const { return connected_; }
  // How much of it the kernel took.
  std::size_t write(std::string const& text) {
    ssize_t const count = send(descriptor_, text.data(), text.size(), MSG_NOSIGNAL);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  }
  // All that has arrived; then atEnd() says whether the host has closed the connection.
  std::string read() {
    std::string text;
    char piece[65536];
    ssize_t count = 0;
    while ((count = recv(descriptor_, piece, sizeof piece, 0)) > 0) text.append(piece, piece + count);
    atEnd_ = count == 0 || errno != EAGAIN;
    return text;
  }
  bool atEnd() const { return atEnd_; }

 private:
  int descriptor_;
  bool connected_ = false, atEnd_ = false;
};

std::string call(char const* method, std::string const& params, int id = 1) {
  return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" + method + R"(","params":)" +
         params + "}\n";
}
std::string on(char const* method, std::string const& path, int id = 1) {
  return call(method, R"({"path":")" + path + "\"}", id);
}
std::string get(std::string const& path, int id = 1) { return on("get", path, id); }
std::string result(std::string const& value, int id = 1) {
  return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"result":)" + value + "}\n";
}
std::string changed(std::string const& path, std::string const& value) {
  return R"({"jsonrpc":"2.0","method":"changed","params":{"path":")" + path + R"(","value":)" + value +
         "}}\n";
}

class StateSocket : public ::testing::Test, protected TestTree {
 protected:
  StateSocket() { start(); }

  void start() {
    server = std::make_unique<Server>(
        tree, Server::Options{.path = path, .group = {}, .callerOf = [this](int) { return caller; }});
  }
  std::string heard(Peer& peer) {
    time.settle();
    return peer.read();
  }
  // Sends and gives what comes back without time passing.
  std::string exchange(Peer& peer, std::string const& text) {
    EXPECT_EQ(peer.write(text), text.size());
    return heard(peer);
  }
  std::string refusalToServe(std::string const& socketPath) try {
    Server const second(tree, {.path = socketPath, .group = {}, .callerOf = {}});
    return "";
  } catch (SocketError const& error) {
    return error.what();
  }

  Kel::testing::SimulatedTime time;
  TemporaryDirectory directory;
  std::string path = directory / "statebase.sock";
  Caller caller{0, Role::root};
  std::unique_ptr<Server> server;
};

std::string const enabledPath = "/zerotouch/config/enabled";

}  // namespace

TEST_F(StateSocket, AClientThatDoesNotReadIsHeldUpAndThenCutOffWhileOthersAreServed) {
  Peer deaf(path);
  Peer slow(path);
  Peer other(path);
  std::string requests;
  for (int i = 0; i < 100; ++i) requests += get("/", i);
  // As much as it takes until the host reads no more.
  std::size_t accepted = 0;
  for (std::size_t count = 1; count > 0; accepted += count) {
    count = deaf.write(requests);
    time.settle();
  }
  EXPECT_LT(accepted, 1024U * 1024);
  EXPECT_EQ(server->clients(), 3U);
  slow.write(requests);
  std::string answers;
  std::string const first = result(dump(), 0);
  for (int seconds = 0; seconds < 300 && !deaf.atEnd(); seconds += 9) {
    time.advance(9);
    answers += slow.read();
    EXPECT_EQ(exchange(other, get(enabledPath)), result("false"));
    if (seconds > 10) deaf.read();
  }
  for (int i = 0; i < 10; ++i) {
    time.settle();
    answers += slow.read();
  }
  EXPECT_TRUE(deaf.atEnd());
  EXPECT_FALSE(slow.atEnd());
  EXPECT_EQ(static_cast<int>(std::ranges::count(answers, '\n')), 100);
  EXPECT_TRUE(answers.starts_with(first));
  EXPECT_EQ(server->clients(), 2U);
}

TEST_F(StateSocket, AWatchReportsTheLastValueOncePerPassAndFollowsRemovalAndReturn) {
  std::string const et1 = "/zerotouch/dhcpStatus/intfDhcpStatus/et1", mtu = et1 + "/mtu";
  std::string const mac = "/interface/status/all/intfStatus/Ethernet1~11/macAddr";
  Peer ofMtu(path), ofDirectory(path), ofPort(path);
  EXPECT_EQ(exchange(ofMtu, on("watch", mtu)), result("null"));
  EXPECT_EQ(exchange(ofDirectory, on("watch", "/zerotouch/dhcpStatus")),
            result(R"({"intfDhcpStatus":{},"intfDhcp6Status":{}})"));
  EXPECT_EQ(exchange(ofPort, on("watch", mac)), result(R"("00:00:00:00:00:00")"));

  auto entry = dhcpStatus->intfDhcpStatusIs("et1");
  entry->mtuIs(1400);
  std::string const whole = dumpJson(tree.get(et1));
  EXPECT_EQ(heard(ofMtu), changed(mtu, "1400"));
  EXPECT_EQ(heard(ofDirectory), changed(et1, whole));

  for (std::uint32_t value = 1401; value < 1500; ++value) entry->mtuIs(value);
  entry->gatewayIs(2, *Wire::IpGenAddr::fromString("10.0.0.1"));
  EXPECT_EQ(heard(ofMtu), changed(mtu, "1499"));
  EXPECT_EQ(heard(ofDirectory), changed(mtu, "1499") + changed(et1 + "/gateway/2", R"("10.0.0.1")"));

  // The entry goes away, is written to by somebody who still has it, and another one comes.
  dhcpStatus->intfDhcpStatusDel("et1");
  EXPECT_EQ(heard(ofMtu), changed(mtu, "null"));
  EXPECT_EQ(heard(ofDirectory), changed(et1, "null"));
  entry->mtuIs(68);
  entry = nullptr;
  time.settle();
  dhcpStatus->intfDhcpStatusIs("et1")->mtuIs(9000);
  EXPECT_EQ(heard(ofMtu), changed(mtu, "9000"));

  EXPECT_EQ(exchange(ofMtu, on("unwatch", mtu)), result("true"));
  dhcpStatus->intfDhcpStatus("et1")->mtuIs(1);
  EXPECT_EQ(heard(ofMtu), "");

  // What an entity that comes later holds.
  std::string const model = "/entityMib/status/root/modelName";
  Peer ofModel(path);
  EXPECT_EQ(exchange(ofModel, on("watch", model)), result("null"));
  for (std::string const name : {"M1", "M2"}) {
    entityMib->rootIs()->modelNameIs(name);
    EXPECT_EQ(heard(ofModel), changed(model, '"' + name + '"'));
  }

  // An attribute that the collection's declared type does not have.
  auto const port = ports->intfStatus(*Wire::IntfId::fromString("Ethernet1/1"));
  allPorts->intfStatusDelAll();
  EXPECT_EQ(heard(ofPort), changed(mac, "null"));
  allPorts->intfStatusIs(port);
  EXPECT_EQ(heard(ofPort), changed(mac, R"("00:00:00:00:00:00")"));
  port->macAddrIs(*Wire::EthAddr::fromString("02:00:00:00:00:01"));
  EXPECT_EQ(heard(ofPort), changed(mac, R"("02:00:00:00:00:01")"));
}

TEST_F(StateSocket, ChangesCoalesceWhileAWatcherDoesNotRead) {
  Peer peer(path);
  exchange(peer, on("watch", "/zerotouch/dhcpStatus"));
  auto const entry = dhcpStatus->intfDhcpStatusIs("et1");
  heard(peer);
  for (std::uint32_t i = 0; i < 5000; ++i) {
    entry->bootFileNameIs(std::string(1000, 'x') + std::to_string(i));
    time.settle();
  }
  std::string text, watches;
  for (int i = 0; i < 20; ++i) text += heard(peer);
  EXPECT_LT(text.size(), 2U * 1024 * 1024);
  EXPECT_TRUE(text.ends_with("x4999\"}}\n"));
  EXPECT_FALSE(peer.atEnd());
  for (int i = 0; i < 70; ++i) {
    watches += on("watch", "/zerotouch/dhcpStatus/intfDhcpStatus/" + std::to_string(i), i);
  }
  std::string const answers = exchange(peer, watches);
  EXPECT_NE(answers.find(result("null", 62)), std::string::npos);
  EXPECT_NE(answers.find("more than 64 watches"), std::string::npos);
}

TEST_F(StateSocket, AListOfPathsIsWatchedWholeOrNotAtAll) {
  std::string const address = "/entityMib/status/systemMacAddr", zero = R"("00:00:00:00:00:00")";
  std::string const both = R"({"paths":[")" + enabledPath + R"(",")" + address + R"("]})";
  std::string const values = "{\"" + enabledPath + "\":false,\"" + address + "\":" + zero + "}";
  Peer peer(path);
  std::string const refused =
      exchange(peer, call("watch", R"({"paths":[")" + enabledPath + R"(","/zerotouch/config/x"]})"));
  EXPECT_NE(refused.find("has no attribute 'x'"), std::string::npos) << refused;
  config->enabledIs(true);
  EXPECT_EQ(heard(peer), "");
  config->enabledIs(false);
  EXPECT_EQ(exchange(peer, call("watch", both)), result(values));
  EXPECT_EQ(exchange(peer, call("watch", both)), result(values));  // watches each once still
  config->enabledIs(true);
  entityMib->systemMacAddrIs(*Wire::EthAddr::fromString("02:00:00:00:00:01"));
  EXPECT_EQ(heard(peer), changed(enabledPath, "true") + changed(address, R"("02:00:00:00:00:01")"));
  EXPECT_EQ(exchange(peer, call("unwatch", both)),
            result("{\"" + enabledPath + "\":true,\"" + address + "\":true}"));
  config->enabledIs(false);
  EXPECT_EQ(heard(peer), "");
}

TEST_F(StateSocket, WhoHasNoRoleIsClosedAndNobodyTakesThePlacesOfOthers) {
  caller = {9, Role::none};
  Peer stranger(path);
  EXPECT_EQ(exchange(stranger, get(enabledPath)), "");
  EXPECT_TRUE(stranger.atEnd());

  std::vector<std::unique_ptr<Peer>> peers;
  // What the newest of so many connections of a user is answered.
  auto const connect = [&](uid_t user, std::size_t count) {
    caller = {user, user == 0 ? Role::root : Role::group};
    for (std::size_t i = 0; i < count; ++i) {
      peers.push_back(std::make_unique<Peer>(path));
      time.settle();
    }
    peers.back()->write(get(enabledPath));
    return heard(*peers.back());
  };
  auto const refusal = [](std::string const& reason) {
    return R"({"jsonrpc":"2.0","id":null,"error":{"code":-32004,"message":")" + reason +
           R"(","data":{"path":"","reason":")" + reason + "\"}}}\n";
  };
  std::string const full = "all 64 connections of user 1 are taken";
  EXPECT_EQ(connect(2, Server::maxOfUser), result("false"));
  time.advance(0.5);
  EXPECT_EQ(connect(1, Server::maxOfUser), result("false"));
  Peer& watching = *peers[Server::maxOfUser];
  Peer& heardOf = *peers[Server::maxOfUser + 1];
  EXPECT_EQ(connect(1, 10), refusal(full));
  EXPECT_TRUE(peers.back()->atEnd());
  EXPECT_EQ(server->clients(), 2 * Server::maxOfUser);
  EXPECT_EQ(connect(3, Server::maxOfUser), result("false"));
  EXPECT_EQ(connect(4, 1), refusal("all 192 connections of users but root are taken"));
  EXPECT_EQ(connect(0, Server::keptForRoot), result("false"));
  EXPECT_EQ(connect(0, 1), refusal("all 256 connections are taken"));

  // A client that has been idle gives up its place, unless it watches something or is heard of now and then.
  EXPECT_EQ(exchange(watching, on("watch", enabledPath)), result("false"));
  time.advance(1);
  EXPECT_EQ(connect(0, 1), result("false"));  // for root a second is enough; it takes one of user 2
  time.advance(58);
  EXPECT_EQ(exchange(heardOf, get(enabledPath)), result("false"));
  EXPECT_EQ(connect(1, 1), refusal(full));
  time.advance(1);
  for (std::size_t i = 0; i < Server::maxOfUser - 2; ++i) EXPECT_EQ(connect(1, 1), result("false"));
  EXPECT_EQ(connect(1, 2), refusal(full));
  EXPECT_EQ(exchange(heardOf, get(enabledPath)), result("false"));
  config->enabledIs(true);
  EXPECT_EQ(heard(watching), changed(enabledPath, "true"));
  EXPECT_EQ(server->clients(), Server::maxClients);
}

TEST_F(StateSocket, OneHostServesASocket) {
  EXPECT_EQ(refusalToServe(path), path + ": held by process " + std::to_string(getpid()));
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFSOCK | 0660U);
  Peer peer(path);
  EXPECT_EQ(exchange(peer, get(enabledPath)), result("false"));
  std::string const aside = directory / "aside";
  std::filesystem::create_hard_link(path, aside);
  server = nullptr;
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(peer.read(), "");
  EXPECT_TRUE(peer.atEnd());

  // What a killed host leaves.
  std::filesystem::rename(aside, path);
  start();
  Peer again(path);
  EXPECT_EQ(exchange(again, get(enabledPath)), result("false"));

  directory.write("/file", "precious");
  std::string const file = directory / "file", longPath = directory / std::string(100, 'x');
  EXPECT_EQ(refusalToServe(file), file + ": exists and is no socket");
  EXPECT_EQ(directory.read("/file"), "precious");
  EXPECT_EQ(refusalToServe(longPath), longPath + ": longer than a socket's path can be");
  EXPECT_EQ(refusalToServe(directory / "a/b/sock"), (directory / "a/b") + ": No such file or directory");
  EXPECT_EQ(refusalToServe(directory / "made/sock"), "");
}

TEST_F(StateSocket, TheKernelSaysWhoAClientIs) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
  constexpr gid_t group = 54321;
  std::filesystem::permissions(directory.path(), std::filesystem::perms(0711));  // others may reach its files
  using Case = std::tuple<uid_t, gid_t, gid_t, Role>;
  for (auto const& [uid, gid, supplementary, expected] :
       {Case{0, 0, 0, Role::root}, Case{65534, group, 65534, Role::group},
        Case{65534, 65534, group, Role::group}, Case{65534, 65534, 65534, Role::none}}) {
    Caller seen{1, Role::host};
    std::string const other = directory / "roles.sock";
    Server const roles(tree, {.path = other, .group = group, .callerOf = [&](int descriptor) {
                                return seen = callerOf(descriptor, group);
                              }});
    // So that the check itself is reached by those whom the mode keeps out.
    chmod(other.c_str(), 0666);
    pid_t const child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      bool const changed = setgroups(1, &supplementary) == 0 && setgid(gid) == 0 && setuid(uid) == 0;
      _exit(changed && Peer(other).connected() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    time.settle();
    EXPECT_EQ(seen.user, uid);
    EXPECT_EQ(seen.role, expected) << uid << " " << gid << " " << supplementary;
  }
}

}  // namespace Statebase::testing
