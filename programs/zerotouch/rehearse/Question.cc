#include "programs/zerotouch/rehearse/Question.h"

#include <charconv>
#include <optional>
#include <sstream>

#include "platform/kel/Format.h"
#include "platform/kel/WholeFile.h"
#include "programs/zerotouch-dhclient/Identifier.h"
#include "zerotouch/dhcp/ClientConfig.h"

namespace Rehearsal {

namespace {

// The statements, without their semicolons and without comments. Text between quotation marks stays as it is.
std::vector<std::string> statements(std::string const& text) {
  std::vector<std::string> result(1);
  bool quoted = false, comment = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char const c = text[i];
    if (comment) {
      comment = c != '\n';
    } else if (quoted && c == '\\' && i + 1 < text.size()) {
      (result.back() += c) += text[++i];
    } else if (c == ';' && !quoted) {
      result.emplace_back();
    } else if (c == '#' && !quoted) {
      comment = true;
    } else {
      quoted = quoted != (c == '"');
      result.back() += c;
    }
  }
  return result;
}

[[noreturn]] void refuse(std::string const& statement, std::string const& reason) {
  throw BadConfiguration("'" + Kel::printable(statement, Kel::longestShown) + "': " + reason);
}

// What stands between quotation marks (dhclient.conf(5)).
Bytes quotedText(std::string const& statement, std::string const& value) {
  Bytes result;
  if (value.size() < 2 || !value.ends_with('"')) refuse(statement, "a text without its end");
  for (std::size_t i = 1; i + 1 < value.size(); ++i) {
    if (value[i] != '\\') {
      result.push_back(static_cast<std::uint8_t>(value[i]));
      continue;
    }
    unsigned byte = 0;
    auto const [end, error] =
        std::from_chars(&value[i + 1], value.data() + std::min(i + 4, value.size()), byte, 8);
    bool const octal = error == std::errc() && end == &value[i + 1] + 3 && byte < 256;
    result.push_back(octal ? static_cast<std::uint8_t>(byte) : static_cast<std::uint8_t>(value[i + 1]));
    i += octal ? 3 : 1;
  }
  return result;
}

Bytes hexadecimal(std::string const& statement, std::string const& value) {
  Bytes result;
  std::istringstream parts(value);
  for (std::string part; std::getline(parts, part, ':');) {
    unsigned byte = 256;
    auto const [end, error] = std::from_chars(part.data(), part.data() + part.size(), byte, 16);
    if (error != std::errc() || end != part.data() + part.size() || byte > 255)
      refuse(statement, "no octets in hexadecimal");
    result.push_back(static_cast<std::uint8_t>(byte));
  }
  return result;
}

class Reader {
 public:
  explicit Reader(bool six) : six_(six) {}

  void read(std::string const& statement) {
    std::istringstream words(statement);
    std::string word, name, value;
    words >> word;
    if (word == "option") {
      unsigned code = 0;
      if (words >> name >> value >> code && value == "code") declared_[name] = code;
    } else if (word == "request") {
      std::getline(words, value, '\0');
      request(statement, value);
    } else if (word == "send") {
      words >> name >> std::ws;
      std::getline(words, value, '\0');
      send(statement, name, value);
    }
  }

  Question take() { return std::move(question_); }

 private:
  void request(std::string const& statement, std::string list) {
    question_.wanted.clear();
    for (char& c : list) c = c == ',' ? ' ' : c;
    std::istringstream names(list);
    for (std::string name; names >> name;) {
      auto const code = codeOf(name);
      if (!code) refuse(statement, "the option " + name + " is unknown");
      question_.wanted.push_back(*code);
    }
  }

  // The client passes over an option of the other protocol.
  void send(std::string const& statement, std::string const& name, std::string const& value) {
    if (name.starts_with("dhcp6.") != six_) return;
    auto const code = codeOf(name);
    if (!code) refuse(statement, "the option " + name + " is unknown");
    question_.sent[*code] =
        value.starts_with('"') ? quotedText(statement, value) : hexadecimal(statement, value);
  }

  std::optional<unsigned> codeOf(std::string const& name) const {
    auto const own = declared_.find(name);
    if (own != declared_.end()) return own->second;
    auto const* const kind = optionNamed(six_, name);
    return kind != nullptr ? std::optional(kind->code) : std::nullopt;
  }

  bool six_;
  Question question_;
  std::map<std::string, unsigned> declared_;
};

}  // namespace

Question questionOf(std::string const& configuration, bool six) {
  Reader reader(six);
  for (auto const& statement : statements(configuration)) reader.read(statement);
  Question result = reader.take();
  std::string const line = six ? identifierIn(configuration) : "";
  if (line.size() > identifierKeyword.size()) {
    std::string const value =
        line.substr(identifierKeyword.size(), line.find(';') - identifierKeyword.size());
    result.identifier = hexadecimal(line, value);
  }
  return result;
}

Question questionOf(Wire::EthAddr const& systemMacAddr, EntityMib::Fru const& chassis,
                    std::string const& path, bool six) {
  auto const text = Kel::readFile(path);
  if (!text)
    throw BadConfiguration(path + ", the template of the DHCP client's configuration, cannot be read");
  try {
    return questionOf(*text + ZeroTouch::identifierStatements(systemMacAddr, chassis, six ? "v6" : "v4"),
                      six);
  } catch (BadConfiguration const& error) {
    throw BadConfiguration(path + ": " + error.what());
  }
}

}  // namespace Rehearsal
