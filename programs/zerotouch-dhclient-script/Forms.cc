#include "programs/zerotouch-dhclient-script/Forms.h"

#include <arpa/inet.h>

#include <array>
#include <string_view>

namespace Hook::Form {

namespace {

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

}  // namespace

std::string text(std::string const& bytes) { return escaped(bytes); }

std::string addresses4(std::string const& bytes) { return addresses<AF_INET, 4>(bytes); }
std::string addresses6(std::string const& bytes) { return addresses<AF_INET6, 16>(bytes); }

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

}  // namespace Hook::Form
