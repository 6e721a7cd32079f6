// A network namespace per test, an adapter in it, and the adapter's entities as text. Needs root; skipped
// without.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>

#include "platform/kel/Log.h"
#include "platform/kel/Loop.h"
#include "platform/linux/Adapter.h"
#include "tests/unit/support/TemporaryFolder.h"

namespace Linux {

inline Entities newEntities() {
  Entities entities;
  auto const make = [](auto&... handles) {
    ((handles = Kel::makePtr<std::remove_reference_t<decltype(*handles)>>()), ...);
  };
  make(entities.ethPhyIntfStatusDir, entities.ethLagIntfStatusDir, entities.vlanIntfStatusDir,
       entities.ethIntfStatusDir, entities.allIntfStatusDir, entities.allIntfStatusLocalDir,
       entities.kernelNetInfoStatus, entities.ipStatus, entities.ip6Status, entities.ethPhyIntfConfigDir,
       entities.vlanIntfConfigDir, entities.l3IntfConfigDir, entities.ipConfig, entities.ip6Config,
       entities.raPacketStatus, entities.entityMibStatus, entities.netStatus, entities.routingConfig,
       entities.netConfig, entities.logConfig, entities.reloadConfig);
  return entities;
}

// Ports are ethN, and shown as EthernetN.
inline AdapterConfig testConfig(std::string const& runDirectory) {
  AdapterConfig config;
  config.ports.devices = {"eth*"};
  config.ports.names = {{"eth([0-9]+)", "Ethernet\\1"}};
  config.runDirectory = runDirectory;
  config.system = {.resolvConf = runDirectory + "/etc/resolv.conf",
                   .logDropIn = runDirectory + "/etc/rsyslog.conf",
                   .logReloadCommand = {"true"},
                   .reloadCommand = {"true"}};
  return config;
}

// What provisioning wants of each port.
inline void setUp(Entities const& entities, Wire::IntfId const& intfId) {
  auto const ip6 = entities.ip6Config->intfIs(intfId);
  ip6->l3ConfigIs(entities.l3IntfConfigDir->intfConfigIs(intfId));
  ip6->enableIs(true);
  ip6->addrSourceIs(Ip6::AddrSource::routerAdvertisement);
  ip6->acceptRaDefRtrIs(true);
}

// The warnings raised while it lives.
class Warned {
 public:
  Warned() = default;
  Warned(Warned const&) = delete;
  ~Warned() { Kel::logSinkDel(sink_); }
  std::string const& text() const { return text_; }

 private:
  std::string text_;
  int sink_ = Kel::logSinkIs(
      [this](Kel::LogEvent const& event) { text_ += event.name + ": " + event.message + "\n"; });
};

// What a shell command prints.
inline std::string output(std::string const& command) {
  std::string out;
  FILE* const pipe = popen(command.c_str(), "r");
  for (int c = 0; (c = fgetc(pipe)) != EOF;) out += static_cast<char>(c);
  pclose(pipe);
  return out;
}

class NetworkTest : public ::testing::Test {
 protected:
  void SetUp() final {
    if (geteuid() != 0) GTEST_SKIP() << "needs root, to make a network namespace";
    ASSERT_EQ(unshare(CLONE_NEWNET), 0) << "cannot make a network namespace";
    ip("link set lo up");
    prepare();
  }
  virtual void prepare() {}

  // ip(8) with each of the arguments, which has to succeed.
  template <typename... Arguments>
  static void ip(Arguments const&... each) {
    for (std::string const& arguments : {std::string(each)...}) {
      EXPECT_EQ(std::system(("ip " + arguments).c_str()), 0) << "ip " << arguments;
    }
  }

  // A cable: ethN, a port, and farN, which is none. Both down.
  static void cable(std::string const& number) {
    ip("link add eth" + number + " type veth peer name far" + number);
  }

  void start(int netlinkBuffer = 1 << 20) {
    AdapterConfig config = testConfig(run.path("/run"));
    config.netlinkBuffer = netlinkBuffer;
    adapter = std::make_unique<Adapter>(entities, config);
  }

  // How long a test waits before it gives up, in seconds: far longer than anything takes on a loaded machine.
  static constexpr Kel::Seconds patience = 60;

  // Runs the loop until `text` gives what is expected, and asserts it.
  static void expectSoon(std::function<std::string()> const& text, std::string const& expected) {
    Kel::Loop::instance().runUntil([&] { return text() == expected; }, patience);
    EXPECT_EQ(text(), expected);
  }

  // One line per port: what each status entity says of it.
  std::string ports() const {
    std::ostringstream out;
    for (auto const& [intfId, status] : entities.allIntfStatusDir->intfStatus()) {
      out << intfId.stringValue() << " " << status->deviceName() << " " << stringValue(status->operStatus())
          << " " << stringValue(status->forwardingModel());
      if (auto const phy = entities.ethPhyIntfStatusDir->intfStatus(intfId)) {
        out << " link " << stringValue(phy->linkStatus()) << (phy->active() ? " active" : "");
        if (phy != status) out << " SPLIT";
      }
      out << directories(intfId) << "\n";
    }
    return out.str();
  }

  // Addresses in use, one line per port that has any.
  std::string addresses() const {
    std::string out;
    for (auto const& [intfId, status] : entities.ipStatus->ipIntfStatus()) {
      std::string line;
      if (status->activeAddrWithMask() != Wire::IpAddrWithMask{})
        line += " " + status->activeAddrWithMask().stringValue();
      auto const ip6 = entities.ip6Status->intf(intfId);
      for (auto const& [address, present] : ip6->addr()) line += " " + address.stringValue();
      if (!line.empty()) out += intfId.stringValue() + line + "\n";
    }
    return out;
  }

  // What the kernel says of a device: flag, MTU, the three IPv6 switches, configured addresses.
  static std::string kernel(std::string const& device) {
    return output("d=" + device + R"(
        ip -br link show $d | grep -q '[<,]UP[,>]' && echo -n 'up ' || echo -n 'down '
        ip link show $d | sed -n 's/.*\(mtu [0-9]*\).*/\1/p' | tr '\n' ' '
        cd /proc/sys/net/ipv6/conf/$d 2>/dev/null &&
          echo -n disable_ipv6 $(cat disable_ipv6) accept_ra $(cat accept_ra) defrtr $(cat accept_ra_defrtr)
        ip -o addr show $d scope global | awk '{printf " %s", $4}')");
  }

  TemporaryFolder run;
  Entities entities = newEntities();
  std::unique_ptr<Adapter> adapter;
  Wire::IntfId const port1{"Ethernet1"};
  Wire::IntfId const port2{"Ethernet2"};

 private:
  // The other places where a port has to be (an absent one is named), and whether they agree.
  std::string directories(Wire::IntfId const& intfId) const {
    Port const& port = adapter->ports()->port(intfId);
    auto const device = entities.kernelNetInfoStatus->device(port.deviceName);
    std::string out;
    if (!port || adapter->ports()->intfId(port.ifIndex) != intfId) out += " NO-PORT";
    if (!device || device->ifIndex() != static_cast<std::uint32_t>(port.ifIndex)) out += " NO-DEVICE";
    if (!entities.allIntfStatusLocalDir->intfStatus(intfId)) out += " NOT-LOCAL";
    if (!entities.ethIntfStatusDir->intfStatus(intfId)) out += " NOT-ETHERNET";
    if (!entities.ethPhyIntfConfigDir->intfConfig(intfId)) out += " NO-CONFIG";
    if (!entities.ipStatus->ipIntfStatus(intfId) || !entities.ip6Status->intf(intfId)) out += " NO-IP";
    return out;
  }
};

}  // namespace Linux
