#include "programs/zerotouch-dhclient-script/Dhcpcd.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

namespace Hook {

namespace {

// dhcpcd's reasons; any other is one that nothing follows from. That dhcpcd stops is none either: whoever
// ends it knows, and the ISC client says nothing then.
struct Reason {
  std::string_view given;
  std::string_view result;
};
constexpr std::array reasons = {
    Reason{"BOUND", "BOUND"},      Reason{"RENEW", "RENEW"},     Reason{"REBIND", "REBIND"},
    Reason{"REBOOT", "REBOOT"},    Reason{"EXPIRE", "EXPIRE"},   Reason{"NAK", "EXPIRE"},
    Reason{"FAIL", "FAIL"},        Reason{"RELEASE", "RELEASE"}, Reason{"BOUND6", "BOUND6"},
    Reason{"RENEW6", "RENEW6"},    Reason{"REBIND6", "REBIND6"}, Reason{"EXPIRE6", "EXPIRE6"},
    Reason{"INFORM6", "RENEW6"},  // an answer without an address
    Reason{"RELEASE6", "RELEASE6"}};

std::string_view reasonFor(std::string_view given) {
  auto const found = std::ranges::find(reasons, given, &Reason::given);
  return found == reasons.end() ? "PREINIT" : found->result;
}

// A text as the ISC client writes it.
std::string escaped(std::string_view bytes) {
  std::string result;
  for (char const c : bytes) {
    auto const byte = static_cast<unsigned char>(c);
    if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) {
      result += c;
    } else {
      result += '\\';
      for (int const digit : {byte >> 6, byte >> 3 & 7, byte & 7}) result += static_cast<char>('0' + digit);
    }
  }
  return result;
}

std::string text(std::string const& bytes) { return escaped(bytes); }

// Addresses of that many bytes each; what is left over at the end counts for nothing.
template <int family, std::size_t size>
std::string addresses(std::string const& bytes) {
  std::string result;
  for (std::size_t i = 0; i + size <= bytes.size(); i += size) {
    std::array<char, INET6_ADDRSTRLEN> name{};
    inet_ntop(family, &bytes[i], name.data(), name.size());
    result.append(result.empty() ? "" : " ").append(name.data());
  }
  return result;
}

std::string number16(std::string const& bytes) {
  if (bytes.size() < 2) return {};
  return std::to_string(static_cast<unsigned char>(bytes[0]) << 8 | static_cast<unsigned char>(bytes[1]));
}

std::string decimals(std::string const& bytes) {
  std::string result;
  for (char const c : bytes)
    result.append(result.empty() ? "" : " ").append(std::to_string(static_cast<unsigned char>(c)));
  return result;
}

// Names as DNS writes them (RFC 1035, 3.1), without compression (RFC 8415, 10), each with a dot behind it.
// Nothing when they do not end with the option. A byte that is no part of a name is escaped.
std::string domains(std::string const& bytes) {
  std::string result;
  for (std::size_t i = 0; i < bytes.size();) {
    std::size_t const length = static_cast<unsigned char>(bytes[i++]);
    if (length == 0) {
      result += ' ';
    } else if (i + length > bytes.size()) {
      return {};
    } else {
      for (char const c : bytes.substr(i, length))
        result += c == '-' || c == '_' ? std::string(1, c) : escaped({&c, 1});
      result += '.';
      i += length;
    }
  }
  return result.ends_with(' ') ? result : "";
}

struct Option {
  std::string_view given;   // what the variable is called, behind "new_"
  std::string_view result;  // the same of the ISC client
  std::string (*form)(std::string const& bytes);
};
constexpr auto addresses4 = addresses<AF_INET, 4>;
constexpr auto addresses6 = addresses<AF_INET6, 16>;
constexpr std::array options = {Option{"o1", "subnet_mask", addresses4},
                                Option{"o3", "routers", addresses4},
                                Option{"o6", "domain_name_servers", addresses4},
                                Option{"o7", "log_servers", addresses4},
                                Option{"o12", "host_name", text},
                                Option{"o15", "domain_name", text},
                                Option{"o26", "interface_mtu", number16},
                                Option{"o33", "static_routes", addresses4},
                                Option{"o66", "tftp_server_name", text},
                                Option{"o67", "bootfile_name", text},
                                Option{"o121", "rfc3442_classless_static_routes", decimals},
                                Option{"dhcp6_o23", "dhcp6_name_servers", addresses6},
                                Option{"dhcp6_o24", "dhcp6_domain_search", domains},
                                Option{"dhcp6_o59", "dhcp6_bootfile_url", text}};

// The bytes of a list of decimal numbers; nothing when one is none.
std::string bytes(std::string_view list) {
  std::string result;
  for (std::string_view const word : words(list)) {
    auto const byte = number(word, 0, 255);
    if (!byte) return {};
    result += static_cast<char>(*byte);
  }
  return result;
}

// "00030001" as "00:03:00:01".
std::string withColons(std::string_view digits) {
  std::string result;
  for (std::size_t i = 0; i < digits.size(); i += 2)
    result.append(result.empty() ? "" : ":").append(digits.substr(i, 2));
  return result;
}

}  // namespace

bool isOfDhcpcd(Environment const& environment) {
  return variable(environment, "ZEROTOUCH_CLIENT") == "dhcpcd";
}

Environment fromDhcpcd(Environment const& environment) {
  Environment result;
  auto const add = [&result](std::string_view name, std::string value) {
    if (!value.empty()) result.emplace("new_" + std::string(name), std::move(value));
  };
  for (auto const& [name, value] : environment) {
    if (!name.starts_with("new_") && !name.starts_with("old_")) result.emplace(name, value);
  }
  result["reason"] = reasonFor(variable(environment, "reason"));
  for (auto const& option : options)
    add(option.result, option.form(bytes(plainOption(environment, option.given))));
  add("ip_address", std::string(plainOption(environment, "ip_address")));
  add("dhcp_server_identifier", std::string(plainOption(environment, "dhcp_server_identifier")));
  add("filename", escaped(plainOption(environment, "filename")));
  // How long the lease lasts is not asked for; the record of it is read by its release only.
  if (!plainOption(environment, "ip_address").empty()) add("expiry", "4294967295");
  add("dhcp6_client_id", withColons(plainOption(environment, "dhcp6_client_id")));
  add("dhcp6_server_id", withColons(plainOption(environment, "dhcp6_server_id")));
  add("iaid", withColons(plainOption(environment, "dhcp6_ia_na1_iaid")));
  std::string const address(plainOption(environment, "dhcp6_ia_na1_ia_addr1"));
  add("ip6_address", address);
  if (!address.empty()) add("ip6_prefixlen", "128");
  return result;
}

}  // namespace Hook
