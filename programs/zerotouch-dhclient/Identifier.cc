#include "programs/zerotouch-dhclient/Identifier.h"

#include <cctype>

#include "programs/zerotouch-dhclient/Files.h"

std::string addressIn(std::string const& config) {
  constexpr std::string_view keyword = "send dhcp-client-identifier ";
  constexpr std::string_view pattern = "xx:xx:xx:xx:xx:xx;\n";
  std::string const line = lineWith(keyword, config);
  if (line.size() != keyword.size() + pattern.size()) return {};
  std::string const address = line.substr(keyword.size());
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    bool const fits = pattern[i] == 'x' ? std::isxdigit(static_cast<unsigned char>(address[i])) != 0
                                        : address[i] == pattern[i];
    if (!fits) return {};
  }
  return address.substr(0, address.find(';'));
}

std::string identifierIn(std::string const& config) {
  std::string const address = addressIn(config);
  // Type 3, a link-layer address; hardware type 1, Ethernet.
  return address.empty() ? "" : std::string(identifierKeyword) + "0:3:0:1:" + address + ";\n";
}
