#include "programs/zerotouch-dhclient/dhcpcd/Configuration.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace {

// What dhcpcd is to leave alone in any case, and with what it is not to wait.
constexpr char const* reportsOnly =
    "noconfigure\n"     // no address, route or name
    "noup\n"            // no port is set up
    "nodev\n"           // nobody is asked whether a port is ready
    "nolink\n"          // a cable that is pulled ends no lease; the agent watches links
    "noarp\n"           // nobody is asked whether the address is in use, as the ISC client does not ask
    "noipv4ll\n"        // no address is made up
    "noipv6rs\n"        // router advertisements are the agent's
    "nodelay\n"         // the first question leaves at once
    "reboot 0\n"        // no question for the address of an earlier lease
    "timeout 0\n"       // it goes on until it is ended
    "fqdn disable\n"    // no name is sent
    "vendorclassid\n";  // nor dhcpcd's version

// Each byte as two digits behind `head`.
std::string hex(std::string_view bytes, char const* head) {
  constexpr char const* digits = "0123456789abcdef";
  std::string result;
  for (char const c : bytes) {
    auto const byte = static_cast<unsigned char>(c);
    result.append(head).append({digits[byte >> 4], digits[byte & 15]});
  }
  return result;
}

std::string sent(Wishes const& wishes, char const* option) {
  auto const found = wishes.sent.find(option);
  return found == wishes.sent.end() || found->second.empty() ? "" : hex(found->second, ":").substr(1);
}

std::string line(std::string const& keyword, std::string const& value) {
  return value.empty() ? "" : keyword + " " + value + "\n";
}

// "request" in a definition asks for the option, in the order of the definitions.
std::string definitions(Wishes const& wishes, std::string const& keyword) {
  std::string result;
  for (unsigned const code : wishes.options) {
    std::string const number = std::to_string(code);
    result.append(keyword)
        .append(" ")
        .append(number)
        .append(" request array byte o")
        .append(number)
        .append("\n");
  }
  return result;
}

// dhcpcd asks for some options, and sends some, unless it is told not to: the greatest size of a message,
// whether it can be told to renew, and whether it may make up an address.
std::string unasked(Wishes const& wishes) {
  std::string result = "nooption 57,116,145\n";
  for (unsigned const code : {1U, 3U, 28U, 33U, 51U, 58U, 59U}) {
    if (std::ranges::find(wishes.options, code) == wishes.options.end())
      result += "nooption " + std::to_string(code) + "\n";
  }
  return result;
}

std::string blacklist(std::vector<std::string> const& servers) {
  std::string result;
  for (std::string const& server : servers) result += line("blacklist", server);
  return result;
}

std::string configuration4(Wishes const& wishes) {
  std::string result = "noipv6\n" + unasked(wishes) + definitions(wishes, "define") +
                       line("clientid", sent(wishes, "dhcp-client-identifier")) +
                       line("vendorclassid", sent(wishes, "vendor-class-identifier")) +
                       blacklist(wishes.rejected);
  for (auto const& [device, servers] : wishes.rejectedOn)
    result += line("interface", device) + blacklist(servers);
  return result;
}

std::uint32_t number(std::string_view bytes) {
  std::uint32_t result = 0;
  for (char const c : bytes) result = result << 8 | static_cast<unsigned char>(c);
  return result;
}

// The data of each of the vendor options (RFC 8415, 21.17).
std::string vendorClass(Wishes const& wishes) {
  constexpr std::size_t enterpriseBytes = 4, codeBytes = 2, lengthBytes = 2;
  auto const found = wishes.sent.find("dhcp6.vendor-opts");
  if (found == wishes.sent.end() || found->second.size() < enterpriseBytes) return {};
  std::string_view rest = found->second;
  std::string const enterprise = std::to_string(number(rest.substr(0, enterpriseBytes)));
  rest.remove_prefix(enterpriseBytes);
  std::string result;
  while (rest.size() > codeBytes + lengthBytes) {
    std::string_view const data =
        rest.substr(codeBytes + lengthBytes, number(rest.substr(codeBytes, lengthBytes)));
    // Of this statement dhcpcd takes no bytes with colons between them.
    result += "vendclass " + enterprise + " \"" + hex(data, "\\x") + "\"\n";
    rest.remove_prefix(codeBytes + lengthBytes + data.size());
  }
  return result;
}

// The identifier of the switch is a DUID-LL (RFC 8415, 11.4) of the address that identifies it over DHCPv4
// too.
std::string configuration6(Wishes const& wishes, bool isStateless) {
  std::string const address = sent(wishes, "dhcp-client-identifier");
  return "noipv4\n" + line("duid", address.empty() ? "ll" : "00:03:00:01:" + address) +
         (isStateless ? "inform6\n" : "ia_na\n") + definitions(wishes, "define6") + vendorClass(wishes);
}

}  // namespace

std::string configurationOf(Wishes const& wishes, Arguments const& asked) {
  return reportsOnly + line("script", asked.script) +
         (asked.isV6 ? configuration6(wishes, asked.isStateless) : configuration4(wishes));
}
