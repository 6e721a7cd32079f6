#include "programs/zerotouchd/config/Toml.h"

#include <algorithm>
#include <filesystem>
#include <list>
#include <optional>

#include "platform/kel/Format.h"
#include "platform/kel/Program.h"
#include "platform/kel/WholeFile.h"

namespace {

// The library walks nested tables recursively, and each dot of a key nests one more. A file that is larger or
// has more dots than any switch needs is refused before it is parsed.
constexpr std::uintmax_t maxFileBytes = 256 << 10;
constexpr std::size_t maxDots = 4096;
constexpr std::size_t maxReason = 1000;  // bytes of a message, which may quote what the file says

// Every message about a file is made here, since it may quote control characters of the file.
Kel::String message(Kel::String const& path, std::size_t line, std::string_view reason) {
  return Kel::printable(path + ":" + std::to_string(line) + ": " + Kel::String(reason), maxReason);
}

[[noreturn]] void refuse(Kel::String const& reason) { throw BadInput(Kel::printable(reason, maxReason)); }

// A value that is refused. Its key is known to who has called the setter.
struct BadValue {
  toml::source_region where;
  std::string reason;
};

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
    if (c == '.' && ++dots > maxDots)
      throw BadInput(message(path, line, "more than " + std::to_string(maxDots) + " dots"));
  }
  try {
    return toml::parse(contents, path);
  } catch (toml::parse_error const& error) {
    throw BadInput(message(path, error.source().begin.line, error.description()));
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

void checkKey(toml::key const& key, std::string const& where, Section const& keys) {
  if (keys.contains(key.str())) return;
  fail(key.source(),
       "unknown key '" + std::string(key.str()) + "' in " + where + " (known: " + names(keys) + ")");
}

// The file and its drop-ins, in the order in which they count.
std::vector<Kel::String> filesOf(Kel::String const& path) {
  std::vector<Kel::String> dropIns;
  std::error_code error;
  std::filesystem::directory_iterator entry(path + ".d", error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    Kel::String const name = entry->path().filename().string();
    if (name.ends_with(".toml") && !name.starts_with('.')) dropIns.push_back(entry->path().string());
  }
  if (error && error != std::errc::no_such_file_or_directory) refuse(path + ".d: " + error.message());
  std::ranges::sort(dropIns);
  dropIns.insert(dropIns.begin(), path);
  return dropIns;
}

// Merges files key by key, and only then hands the values over, each once. What is wrong is collected, so
// that an operator learns of all of it at once.
class Reading {
 public:
  explicit Reading(Sections const& sections) : sections_(sections) {}

  void add(Kel::String const& path, bool mustExist) {
    collect([&] {
      auto const contents = contentsOf(path, mustExist);
      if (!contents) return;
      result_.files.push_back(path);
      for (auto const& [name, node] : tables_.emplace_back(parsed(*contents, path))) addSection(name, node);
    });
  }

  TomlFiles finish() {
    for (auto const& entry : values_) {
      std::string const &section = entry.first.first, &key = entry.first.second;
      toml::node const& value = *entry.second;
      std::string name = "[";
      name.append(section).append("] ").append(key);
      collect([&] { sections_.at(section).at(key)(value); }, name + ": ");
      result_.places[name] = *value.source().path + ":" + std::to_string(value.source().begin.line);
    }
    if (!errors_.empty()) throw BadInput(errors_);
    return std::move(result_);
  }

 private:
  template <typename Step>
  void collect(Step const& step, std::string const& about = "") {
    try {
      step();
    } catch (BadValue const& bad) {
      add(message(*bad.where.path, bad.where.begin.line, about + bad.reason));
    } catch (BadInput const& error) {
      add(error.what());
    }
  }

  void add(std::string const& error) { errors_ += (errors_.empty() ? "" : "\n") + error; }

  void addSection(toml::key const& name, toml::node const& node) {
    collect([&] {
      auto const section = sections_.find(name.str());
      if (section == sections_.end()) {
        fail(name.source(),
             "unknown section [" + std::string(name.str()) + "] (known: " + names(sections_) + ")");
      }
      auto const* const table = node.as_table();
      if (table == nullptr) fail(node.source(), "[" + section->first + "] is to be a table");
      for (auto const& entry : *table) {
        toml::key const& key = entry.first;
        collect([&] { checkKey(key, "[" + section->first + "]", section->second); });
        if (section->second.contains(key.str()))
          values_[{section->first, std::string(key.str())}] = &entry.second;
      }
    });
  }

  Sections const& sections_;
  std::list<toml::table> tables_;
  std::map<std::pair<std::string, std::string>, toml::node const*> values_;  // by section and key
  std::string errors_;
  TomlFiles result_;
};

}  // namespace

[[noreturn]] void fail(toml::source_region const& where, std::string const& reason) {
  throw BadValue{where, reason};
}

void readSection(toml::table const& table, std::string const& where, Section const& keys) {
  for (auto const& [key, value] : table) {
    checkKey(key, where, keys);
    keys.find(key.str())->second(value);
  }
}

TomlFiles readToml(Kel::String const& path, bool mustExist, Sections const& sections) {
  Reading reading(sections);
  for (auto const& file : filesOf(path)) reading.add(file, mustExist || file != path);
  return reading.finish();
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

Setter absolutePath(Kel::String& target) {
  return [&target](toml::node const& node) {
    text(target)(node);
    if (!target.starts_with('/')) fail(node.source(), "'" + target + "' is no absolute path");
  };
}

Setter program(Kel::String& target) {
  return [&target](toml::node const& node) {
    text(target)(node);
    if (!target.starts_with('/') || !Kel::isProgram(target))
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
