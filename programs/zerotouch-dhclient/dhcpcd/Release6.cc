#include "programs/zerotouch-dhclient/dhcpcd/Release6.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <random>
#include <sstream>

#include "programs/zerotouch-dhclient/Files.h"

namespace {

struct Lease {
  std::string client;  // the identifiers' bytes
  std::string server;
  std::string association;
  std::string address;
};

// The bytes of "00:03:00:01".
std::string bytes(std::string const& hex) {
  std::string result;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 3)
    result += static_cast<char>(std::strtoul(hex.substr(i, 2).c_str(), nullptr, 16));
  return result;
}

std::string addressBytes(std::string const& text) {
  in6_addr address{};
  if (inet_pton(AF_INET6, text.c_str(), &address) != 1) return {};
  return {reinterpret_cast<char const*>(&address), sizeof address};
}

// By device; the last of a device counts.
std::map<std::string, Lease> leasesIn(std::string const& text) {
  std::map<std::string, Lease> result;
  std::istringstream lines(text);
  Lease* lease = nullptr;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("lease6")) lease = nullptr;
    if (auto const device = valueOf(line, "interface "); !device.empty()) lease = &(result[device] = {});
    if (lease == nullptr) continue;
    if (auto const value = valueOf(line, "client-id "); !value.empty()) lease->client = bytes(value);
    if (auto const value = valueOf(line, "server-id "); !value.empty()) lease->server = bytes(value);
    if (auto const value = valueOf(line, "ia-na "); !value.empty()) lease->association = bytes(value);
    if (auto const value = valueOf(line, "iaaddr "); !value.empty()) lease->address = addressBytes(value);
  }
  return result;
}

std::string number16(std::size_t value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value & 0xff)};
}

std::string option(std::uint16_t code, std::string const& data) {
  return number16(code) + number16(data.size()) + data;
}

// RFC 8415, 8 and 21. A release has no times: those of the association and of the address are 0.
std::string releaseMessage(Lease const& lease) {
  constexpr char release = 8;
  constexpr std::uint16_t clientId = 1, serverId = 2, associationOption = 3, addressOption = 5,
                          elapsedTime = 8;
  std::string const times(8, '\0');
  std::uint32_t const transaction = std::random_device()();
  std::string const number(reinterpret_cast<char const*>(&transaction), 3);
  return release + number + option(clientId, lease.client) + option(serverId, lease.server) +
         option(elapsedTime, number16(0)) +
         option(associationOption, lease.association + times + option(addressOption, lease.address + times));
}

// To all servers on the link (RFC 8415, 7.1).
void sendRelease(std::string const& device, Lease const& lease) {
  constexpr std::uint16_t serverPort = 547, clientPort = 546;
  int const out = socket(AF_INET6, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  int const on = 1;
  setsockopt(out, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in6 from{};
  from.sin6_family = AF_INET6;
  from.sin6_port = htons(clientPort);
  sockaddr_in6 to = from;
  to.sin6_port = htons(serverPort);
  inet_pton(AF_INET6, "ff02::1:2", &to.sin6_addr);
  std::string const message = releaseMessage(lease);
  bool const sent = out >= 0 &&
                    setsockopt(out, SOL_SOCKET, SO_BINDTODEVICE, device.c_str(),
                               static_cast<socklen_t>(device.size())) == 0 &&
                    bind(out, reinterpret_cast<sockaddr const*>(&from), sizeof from) == 0 &&
                    sendto(out, message.data(), message.size(), 0, reinterpret_cast<sockaddr const*>(&to),
                           sizeof to) == ssize_t(message.size());
  if (!sent) complain(("release of " + device).c_str());
  if (out >= 0) close(out);
}

}  // namespace

void releaseAll6(std::string const& leaseFile) {
  constexpr std::size_t associationBytes = 4;
  for (auto const& [device, lease] : leasesIn(readContents(leaseFile))) {
    bool const isWhole = !lease.client.empty() && !lease.server.empty() && !lease.address.empty() &&
                         lease.association.size() == associationBytes;
    if (isWhole) sendRelease(device, lease);
  }
}
