#include "programs/zerotouch-dhclient-script/Dhcpcd.h"

#include <algorithm>
#include <array>

#include "programs/zerotouch-dhclient-script/Forms.h"

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

struct Option {
  std::string_view given;   // what the variable is called, behind "new_"
  std::string_view result;  // the same of the ISC client
  std::string (*form)(std::string const& bytes);
};
constexpr std::array options = {Option{"o1", "subnet_mask", Form::addresses4},
                                Option{"o3", "routers", Form::addresses4},
                                Option{"o6", "domain_name_servers", Form::addresses4},
                                Option{"o7", "log_servers", Form::addresses4},
                                Option{"o12", "host_name", Form::text},
                                Option{"o15", "domain_name", Form::text},
                                Option{"o26", "interface_mtu", Form::number16},
                                Option{"o33", "static_routes", Form::addresses4},
                                Option{"o66", "tftp_server_name", Form::text},
                                Option{"o67", "bootfile_name", Form::text},
                                Option{"o121", "rfc3442_classless_static_routes", Form::decimals},
                                Option{"dhcp6_o23", "dhcp6_name_servers", Form::addresses6},
                                Option{"dhcp6_o24", "dhcp6_domain_search", Form::domains},
                                Option{"dhcp6_o59", "dhcp6_bootfile_url", Form::text}};

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
  add("filename", Form::text(std::string(plainOption(environment, "filename"))));
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
