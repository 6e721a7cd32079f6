#include "programs/zerotouch-dhclient/dhcpcd/Wishes.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace {

// The names that the ISC client has for options, in both families.
std::map<std::string, unsigned> const knownCodes = {{"subnet-mask", 1},
                                                    {"routers", 3},
                                                    {"domain-name-servers", 6},
                                                    {"log-servers", 7},
                                                    {"host-name", 12},
                                                    {"domain-name", 15},
                                                    {"interface-mtu", 26},
                                                    {"broadcast-address", 28},
                                                    {"static-routes", 33},
                                                    {"ntp-servers", 42},
                                                    {"tftp-server-name", 66},
                                                    {"bootfile-name", 67},
                                                    {"domain-search", 119},
                                                    {"dhcp6.name-servers", 23},
                                                    {"dhcp6.domain-search", 24},
                                                    {"dhcp6.sntp-servers", 31},
                                                    {"dhcp6.info-refresh-time", 32}};

// The bytes that are written as hexadecimal numbers with colons between them.
std::string bytes(std::string const& text) {
  std::string result;
  char const* rest = text.c_str();
  for (;;) {
    char* end = nullptr;
    result += static_cast<char>(std::strtoul(rest, &end, 16));
    if (*end != ':') return result;
    rest = end + 1;
  }
}

struct Word {
  std::string text;
  bool isQuoted = false;
};
using Statement = std::vector<Word>;

// Cuts a configuration into statements. The head of a block in braces is a statement, and so is its end,
// which has no words.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  // False at the end.
  bool next(Statement& statement) {
    statement.clear();
    while (skipBlanks()) {
      char const c = rest_.front();
      if (c == ';' || c == '{' || c == '}') {
        rest_.remove_prefix(1);
        return true;
      }
      if (c == ',' || c == '=') {
        rest_.remove_prefix(1);
      } else {
        statement.push_back(c == '"' ? quoted() : plain());
      }
    }
    return false;
  }

 private:
  // False at the end. Comments are blanks.
  bool skipBlanks() {
    while (!rest_.empty()) {
      if (rest_.front() == '#') {
        rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size()));
      } else if (std::isspace(static_cast<unsigned char>(rest_.front())) != 0) {
        rest_.remove_prefix(1);
      } else {
        return true;
      }
    }
    return false;
  }

  Word plain() {
    std::size_t const size = std::min(rest_.find_first_of(" \t\n,;={}\"#"), rest_.size());
    Word result{std::string(rest_.substr(0, size))};
    rest_.remove_prefix(size);
    return result;
  }

  // A backslash stands before a byte of three octal digits, or before a character that is meant as it is.
  Word quoted() {
    Word result{.text = "", .isQuoted = true};
    rest_.remove_prefix(1);
    while (!rest_.empty() && rest_.front() != '"') {
      std::size_t size = 1;
      char c = rest_.front();
      if (c == '\\' && rest_.size() > 1) {
        c = rest_[1];
        size = 2;
        if (c >= '0' && c <= '3' && rest_.size() > 3) {
          c = static_cast<char>(std::strtoul(std::string(rest_.substr(1, 3)).c_str(), nullptr, 8));
          size = 4;
        }
      }
      result.text += c;
      rest_.remove_prefix(size);
    }
    rest_.remove_prefix(std::min<std::size_t>(1, rest_.size()));
    return result;
  }

  std::string_view rest_;
};

}  // namespace

Wishes wishesIn(std::string_view config) {
  Wishes result;
  auto codes = knownCodes;
  std::vector<std::string> requested;
  std::string device;
  Reader reader(config);
  for (Statement words; reader.next(words);) {
    std::string const keyword = words.empty() ? "" : words[0].text;
    if (words.empty()) {
      device.clear();
    } else if (keyword == "request") {
      requested.clear();
      for (std::size_t i = 1; i < words.size(); ++i) requested.push_back(words[i].text);
    } else if (words.size() < 2) {
      continue;
    } else if (keyword == "interface") {
      device = words[1].text;
    } else if (keyword == "reject") {
      (device.empty() ? result.rejected : result.rejectedOn[device]).push_back(words[1].text);
    } else if (keyword == "timeout") {
      result.timeout = static_cast<unsigned>(std::strtoul(words[1].text.c_str(), nullptr, 10));
    } else if (keyword == "send" && words.size() > 2) {
      result.sent[words[1].text] = words[2].isQuoted ? words[2].text : bytes(words[2].text);
    } else if (keyword == "option" && words.size() > 3 && words[2].text == "code") {
      codes[words[1].text] = static_cast<unsigned>(std::strtoul(words[3].text.c_str(), nullptr, 10));
    }
  }
  for (std::string const& name : requested) {
    auto const code = codes.find(name);
    if (code == codes.end()) {
      result.unknown.push_back(name);
    } else {
      result.options.push_back(code->second);
    }
  }
  return result;
}
