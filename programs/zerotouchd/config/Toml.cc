#include "programs/zerotouchd/config/Toml.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>

#include "platform/kel/Format.h"
#include "platform/kel/WholeFile.h"

namespace {

// The library walks nested tables recursively, and each dot of a key nests one more. A file that is larger or
// has more dots than any switch needs is refused before it is parsed.
constexpr std::uintmax_t maxFileBytes = 256 << 10;
constexpr std::size_t maxDots = 4096;
constexpr std::size_t maxReason = 1000;  // bytes of a message, which may quote what the file says

// Every message about the file is made here, since it may quote control characters of the file.
[[noreturn]] void refuse(Kel::String const& message) { throw BadInput(Kel::printable(message, maxReason)); }

[[noreturn]] void fail(Kel::String const& path, std::size_t line, std::string_view reason) {
  refuse(path + ":" + std::to_string(line) + ": " + Kel::String(reason));
}

// What the file holds; nothing when there is none, which `mustExist` makes an error.
std::optional<Kel::String> contentsOf(Kel::String const& path, bool mustExist) {
  std::error_code error;
  auto const status = std::filesystem::status(path, error);
  if (exists(status) && !is_regular_file(status)) refuse(path + ": no regular file");
  if (is_regular_file(status) && std::filesystem::file_size(path, error) > maxFileBytes)
    refuse(path + ": larger than " + std::to_string(maxFileBytes) + " bytes");
  Kel::String failure;
  auto result = Kel::readFile(path, &failure);
  if (!failure.empty()) refuse(failure);
  if (!result && mustExist) refuse(path + ": no such file");
  return result;
}

toml::table parsed(Kel::String const& contents, Kel::String const& path) {
  std::size_t line = 1;
  std::size_t dots = 0;
  for (char const c : contents) {
    if (c == '\n') ++line;
    if (c == '.' && ++dots > maxDots) fail(path, line, "more than " + std::to_string(maxDots) + " dots");
  }
  try {
    return toml::parse(contents, path);
  } catch (toml::parse_error const& error) {
    fail(path, error.source().begin.line, error.description());
  }
}

// A control character would reach terminals, logs and command lines with the value. U+0080 to U+009F are some
// too; in UTF-8 they begin with 0xc2.
bool hasControlCharacter(std::string_view text) {
  unsigned char before = 0;
  return std::ranges::any_of(text, [&before](unsigned char c) {
    bool const isControl = c < ' ' || c == 0x7f || (before == 0xc2 && c < 0xa0);
    before = c;
    return isControl;
  });
}

std::string names(auto const& map) {
  std::string result;
  for (auto const& [name, value] : map) result.append(result.empty() ? "" : ", ").append(name);
  return result;
}

}  // namespace

[[noreturn]] void fail(toml::source_region const& where, std::string const& reason) {
  fail(*where.path, where.begin.line, reason);
}

void readSection(toml::table const& table, std::string const& where, Section const& keys) {
  for (auto const& [key, value] : table) {
    auto const setter = keys.find(key.str());
    if (setter == keys.end()) {
      fail(key.source(),
           "unknown key '" + std::string(key.str()) + "' in " + where + " (known: " + names(keys) + ")");
    }
    setter->second(value);
  }
}

void readToml(Kel::String const& path, bool mustExist, Sections const& sections) {
  auto const contents = contentsOf(path, mustExist);
  if (!contents) return;
  auto const file = parsed(*contents, path);
  for (auto const& [name, node] : file) {
    auto const section = sections.find(name.str());
    if (section == sections.end()) {
      fail(name.source(),
           "unknown section [" + std::string(name.str()) + "] (known: " + names(sections) + ")");
    }
    auto const* const table = node.as_table();
    if (table == nullptr) fail(node.source(), "[" + section->first + "] is to be a table");
    readSection(*table, "[" + section->first + "]", section->second);
  }
}

Setter text(std::function<void(Kel::String const&)> take) {
  return [take = std::move(take)](toml::node const& node) {
    auto const value = node.value_exact<std::string>();
    if (!value || value->empty()) fail(node.source(), "expected a string that is not empty");
    if (hasControlCharacter(*value)) fail(node.source(), "a control character in a string");
    take(*value);
  };
}

Setter text(Kel::String& target) {
  return text([&target](Kel::String const& value) { target = value; });
}

Setter program(Kel::String& target) {
  return [&target](toml::node const& node) {
    text(target)(node);
    if (!target.starts_with('/') || !isProgram(target))
      fail(node.source(), "'" + target + "' is no absolute path of a program");
  };
}

Setter flag(std::function<void(bool)> take) {
  return [take = std::move(take)](toml::node const& node) {
    auto const value = node.value_exact<bool>();
    if (!value) fail(node.source(), "expected true or false");
    take(*value);
  };
}

Setter listOf(std::function<void(toml::node const&)> add) {
  return [add = std::move(add)](toml::node const& node) {
    auto const* const list = node.as_array();
    if (list == nullptr) fail(node.source(), "expected a list");
    for (auto const& entry : *list) add(entry);
  };
}

Setter number(std::function<void(double)> take, double least) {
  return [take = std::move(take), least](toml::node const& node) {
    auto const value = node.value<double>();
    if (!node.is_number() || !value || !(*value >= least && *value < std::numeric_limits<double>::infinity()))
      fail(node.source(), "expected a number from " + std::to_string(static_cast<long long>(least)) + " on");
    take(*value);
  };
}

Setter bytes(std::uint32_t& target) {
  return [&target](toml::node const& node) {
    constexpr std::int64_t most = std::numeric_limits<std::uint32_t>::max();
    auto const value = node.value_exact<std::int64_t>();
    if (!value || *value < 1 || *value > most)
      fail(node.source(), "expected bytes (a whole number from 1 to " + std::to_string(most) + ")");
    target = static_cast<std::uint32_t>(*value);
  };
}

bool isProgram(Kel::String const& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}
