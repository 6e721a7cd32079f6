// An agent that has chosen an interface, and finds nothing of an earlier download.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "tests/unit/support/AgentTest.h"
#include "zerotouch/fetch/CurlTransfer.h"

class FetchTest : public AgentTest {
 protected:
  FetchTest() {
    for (char const* const left :
         {"/tmp/zt-download", "/run/ztp-config-script.stdout", "/run/ztp-config-script.stderr"})
      std::filesystem::remove_all(left);
  }

  // Stops in stateSetupSystemIdentity, the answer naming `bootFileName`.
  Sm& withAnswer(std::string const& bootFileName, std::string const& serverName = "") {
    Sm& result = atRest();
    inventoryIs(EntityMib::InitStatus::initialized);
    auto const chosen = Kel::makePtr<ZeroTouch::IntfStatus>(Wire::IntfId("Ethernet1"), nullptr);
    chosen->kernelIntfNameIs("et1");
    platform.dhcpStatus->intfDhcpStatusIs("et1")->serverNameIs(serverName);
    platform.dhcpStatus->intfDhcpStatus("et1")->bootFileNameIs(bootFileName);
    result.choosenIntfIs(chosen);
    enter(State::stateSetupSystemIdentity);
    return result;
  }
  // As if a run had come that far; nothing of the state's entry is done.
  void enter(State state) {
    sm().currentStateIs(state);
    sm().ZeroTouchSmModel::nextStateIs(state);
  }
  static std::string file(std::string const& path) { return TemporaryFolder::contentOf(path); }
  static void writeFile(std::string const& path, std::string const& content) {
    std::ofstream(path, std::ios::binary) << content;
  }
};

// Answers each connection with the same bytes once the request's header is there, and closes it.
class OneAnswerServer {
 public:
  explicit OneAnswerServer(std::string answer) : answer_(std::move(answer)) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{
        .sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, generic, length) != 0 || listen(listener_, 8) != 0) std::abort();
    getsockname(listener_, generic, &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  OneAnswerServer(OneAnswerServer const&) = delete;
  OneAnswerServer& operator=(OneAnswerServer const&) = delete;
  ~OneAnswerServer() { stop(); }
  void stop() {
    if (!thread_.joinable()) return;
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
  }

  std::string url() const { return "http://localhost:" + std::to_string(port_) + "/cfg"; }
  // Of the last connection; to be read after stop().
  std::string request;

 private:
  void serve() {
    for (int fd = -1; (fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; close(fd)) {
      request.clear();
      for (char byte = 0; !request.ends_with("\r\n\r\n") && read(fd, &byte, 1) == 1;) request += byte;
      for (std::string_view rest = answer_; !rest.empty();) {
        ssize_t const sent = send(fd, rest.data(), rest.size(), MSG_NOSIGNAL);
        if (sent <= 0) break;
        rest.remove_prefix(static_cast<std::size_t>(sent));
      }
    }
  }

  std::string answer_;
  int listener_ = -1;
  int port_ = 0;
  std::thread thread_;
};
