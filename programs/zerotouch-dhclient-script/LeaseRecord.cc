#include "programs/zerotouch-dhclient-script/LeaseRecord.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

#include "programs/zerotouch-dhclient-script/Checks.h"

namespace Hook {

namespace {

constexpr std::array answers = {"BOUND", "REBOOT", "RENEW", "REBIND"};

bool isAnswer(std::string_view reason) {
  for (std::string_view const answer : answers) {
    if (reason == answer) return true;
  }
  return false;
}

}  // namespace

std::string leaseRecord(Environment const& environment) {
  std::string_view const device = variable(environment, "interface");
  if (!isAnswer(variable(environment, "reason")) || !wrongWithDevice(device).empty()) return {};
  auto const address = Wire::IpAddr::fromString(plainOption(environment, "ip-address"));
  auto const server = Wire::IpAddr::fromString(plainOption(environment, "dhcp-server-identifier"));
  auto const expiry =
      number(plainOption(environment, "expiry"), 1, std::numeric_limits<std::uint32_t>::max());
  if (!address || !server || !expiry || device.find('"') != std::string_view::npos) return {};
  std::string const end = "epoch " + std::to_string(*expiry) + ";\n";
  return "lease {\n  interface \"" + std::string(device) + "\";\n  fixed-address " + address->stringValue() +
         ";\n  option dhcp-server-identifier " + server->stringValue() + ";\n  renew " + end + "  rebind " +
         end + "  expire " + end + "}\n";
}

std::string keepLease(Environment const& environment) {
  std::string const path(variable(environment, "ZEROTOUCH_LEASES"));
  std::string const record = leaseRecord(environment);
  if (path.empty() || record.empty()) return {};
  int const file = open(path.c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  bool const written = file >= 0 && write(file, record.data(), record.size()) == ssize_t(record.size());
  std::string const error = written ? "" : "lease file " + path + ": " + std::strerror(errno);
  if (file >= 0) close(file);
  return error;
}

}  // namespace Hook
