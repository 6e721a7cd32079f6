// DHCPv4 releases that the shim sends by itself, and the leases that they hand back.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <random>
#include <sstream>

#include "programs/zerotouch-dhclient/Files.h"
#include "programs/zerotouch-dhclient/Shim.h"

namespace {

struct Lease {
  in_addr address{};
  in_addr server{};
};

// By device; the last of a device counts.
std::map<std::string, Lease> leasesIn(std::string const& text) {
  std::map<std::string, Lease> result;
  std::istringstream lines(text);
  std::string device;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("lease")) device.clear();
    if (auto const value = valueOf(line, "interface "); !value.empty()) result[device = value] = {};
    if (device.empty()) continue;
    if (auto const value = valueOf(line, "fixed-address "); !value.empty())
      inet_pton(AF_INET, value.c_str(), &result[device].address);
    if (auto const value = valueOf(line, "option dhcp-server-identifier "); !value.empty())
      inet_pton(AF_INET, value.c_str(), &result[device].server);
  }
  return result;
}

bool hasAddress(std::string const& device, in_addr address) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return false;
  bool found = false;
  for (ifaddrs const* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET || device != entry->ifa_name)
      continue;
    sockaddr_in own{};
    std::memcpy(&own, entry->ifa_addr, sizeof own);
    found = found || own.sin_addr.s_addr == address.s_addr;
  }
  freeifaddrs(list);
  return found;
}

using Mac = std::array<std::uint8_t, 6>;

std::optional<Mac> macFrom(std::string const& text) {
  Mac mac{};
  int const count = std::sscanf(text.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &mac[0], &mac[1],
                                &mac[2], &mac[3], &mac[4], &mac[5]);
  return count == 6 ? std::optional(mac) : std::nullopt;
}

// RFC 2131, figure 1 and table 5.
std::string releaseMessage(Lease const& lease, Mac const& mac, std::optional<Mac> const& client) {
  constexpr std::size_t leastBytes = 300, headerBytes = 236, ciaddrAt = 12, chaddrAt = 28;
  std::string message(headerBytes, '\0');
  message[0] = 1;  // a request, by Ethernet, whose addresses have
  message[1] = 1;
  message[2] = static_cast<char>(mac.size());
  std::uint32_t const transaction = std::random_device()();
  std::memcpy(&message[4], &transaction, sizeof transaction);
  std::memcpy(&message[ciaddrAt], &lease.address, sizeof lease.address);
  std::memcpy(&message[chaddrAt], mac.data(), mac.size());
  message.append("\x63\x82\x53\x63\x35\x01\x07\x36\x04");  // options: 53 is 7, a release; 54 the server
  message.append(reinterpret_cast<char const*>(&lease.server), sizeof lease.server);
  if (client) message.append("\x3d\x06").append(client->begin(), client->end());
  message += '\xff';
  message.resize(std::max(message.size(), leastBytes));
  return message;
}

// A transparent socket sends from an address that the port does not have. Without a route by the device, the
// kernel takes the server to be on its link. Returns the socket, for the caller to close.
int sendRelease(std::string const& device, Lease const& lease, std::string const& identifier) {
  constexpr std::uint16_t serverPort = 67, clientPort = 68;
  int const out = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  auto const mac = macFrom(readContents("/sys/class/net/" + device + "/address"));
  int const on = 1;
  setsockopt(out, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in from{
      .sin_family = AF_INET, .sin_port = htons(clientPort), .sin_addr = lease.address, .sin_zero = {}};
  sockaddr_in to{
      .sin_family = AF_INET, .sin_port = htons(serverPort), .sin_addr = lease.server, .sin_zero = {}};
  std::string const message = mac ? releaseMessage(lease, *mac, macFrom(identifier)) : "";
  bool const sent = out >= 0 && mac &&
                    setsockopt(out, SOL_SOCKET, SO_BINDTODEVICE, device.c_str(),
                               static_cast<socklen_t>(device.size())) == 0 &&
                    setsockopt(out, IPPROTO_IP, IP_TRANSPARENT, &on, sizeof on) == 0 &&
                    bind(out, reinterpret_cast<sockaddr const*>(&from), sizeof from) == 0 &&
                    sendto(out, message.data(), message.size(), 0, reinterpret_cast<sockaddr const*>(&to),
                           sizeof to) == ssize_t(message.size());
  if (!sent) complain(("release of " + device).c_str());
  return out;
}

// Waits until the messages of the sockets have left, for 1 s at most. Until then the kernel may be asking for
// the link-layer address of a server, and forgets the message if the port loses its address meanwhile.
void waitUntilSent(std::vector<int> const& sockets) {
  constexpr int steps = 100, pause = 10;  // milliseconds
  auto const isWaiting = [](int out) {
    int bytes = 0;
    return ioctl(out, TIOCOUTQ, &bytes) == 0 && bytes > 0;
  };
  for (int i = 0; i < steps && std::ranges::any_of(sockets, isWaiting); ++i) poll(nullptr, 0, pause);
}

bool isWhole(Lease const& lease) { return lease.address.s_addr != 0 && lease.server.s_addr != 0; }

void handBack(std::string const& device, Lease const& lease, std::string const& identifier) {
  if (isWhole(lease) && !hasAddress(device, lease.address)) close(sendRelease(device, lease, identifier));
}

}  // namespace

void releaseWithoutAddress(std::string const& leaseFile, std::string const& configFile) {
  std::string const identifier = clientAddress(configFile);
  for (auto const& [device, lease] : leasesIn(readContents(leaseFile))) handBack(device, lease, identifier);
}

void releaseWithoutAddress(std::string const& leaseFile, std::string const& configFile,
                           std::string const& device, std::string const& server) {
  auto const leases = leasesIn(readContents(leaseFile));
  auto const found = leases.find(device);
  if (found != leases.end() && inet_ntoa(found->second.server) == server)
    handBack(device, found->second, clientAddress(configFile));
}

void releaseAll(std::string const& leaseFile, std::string const& configFile) {
  std::string const identifier = clientAddress(configFile);
  std::vector<int> sockets;
  for (auto const& [device, lease] : leasesIn(readContents(leaseFile))) {
    if (isWhole(lease)) sockets.push_back(sendRelease(device, lease, identifier));
  }
  waitUntilSent(sockets);
  for (int const out : sockets) close(out);
}

std::vector<std::string> devicesWithLease(std::string const& leaseFile) {
  std::vector<std::string> result;
  for (auto const& [device, lease] : leasesIn(readContents(leaseFile))) result.push_back(device);
  return result;
}

std::vector<std::string> otherDevices(std::string const& leaseFile, std::vector<std::string> const& devices) {
  auto result = devicesWithLease(leaseFile);
  std::erase_if(result,
                [&](auto const& device) { return std::ranges::find(devices, device) != devices.end(); });
  return result;
}
