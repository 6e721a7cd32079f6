#include "programs/zerotouchd/HostConfig.h"

#include <grp.h>
#include <unistd.h>

#include <toml++/toml.h>
#include <array>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <sstream>

#include "programs/zerotouchd/BadInput.h"

namespace {

using Setter = std::function<void(toml::node const&)>;
using Section = std::map<std::string, Setter, std::less<>>;

[[noreturn]] void fail(toml::source_region const& where, std::string const& reason) {
  throw BadInput(*where.path + ":" + std::to_string(where.begin.line) + ": " + reason);
}

Setter text(Kel::String& target) {
  return [&target](toml::node const& node) {
    auto const value = node.value_exact<std::string>();
    if (!value || value->empty()) fail(node.source(), "expected a string that is not empty");
    target = *value;
  };
}

Setter group(std::optional<gid_t>& target) {
  return [&target](toml::node const& node) {
    auto const name = node.value_exact<std::string>();
    auto const* const entry = name ? getgrnam(name->c_str()) : nullptr;
    if (entry == nullptr)
      fail(node.source(), "there is no group " + (name ? "'" + *name + "'" : "of that kind"));
    target = entry->gr_gid;
  };
}

// A number from 0 on, or (where `unlimited` is allowed) that word.
template <typename T>
Setter seconds(T& target, bool unlimited) {
  return [&target, unlimited](toml::node const& node) {
    if (unlimited && node.value_exact<std::string>() == "unlimited") {
      target = std::numeric_limits<T>::infinity();
      return;
    }
    auto const value = std::is_floating_point_v<T> ? node.value<double>() : node.value_exact<std::int64_t>();
    auto const max = static_cast<double>(std::numeric_limits<T>::max());
    if (!value || !(*value >= 0 && *value <= max)) {
      fail(node.source(),
           std::string("expected seconds (a number from 0 on)") + (unlimited ? " or \"unlimited\"" : ""));
    }
    target = static_cast<T>(*value);
  };
}

std::string names(auto const& map) {
  std::string result;
  for (auto const& [name, value] : map) result += (result.empty() ? "" : ", ") + name;
  return result;
}

void read(toml::table const& file, std::map<std::string, Section, std::less<>> const& sections) {
  for (auto const& [name, node] : file) {
    auto const section = sections.find(name.str());
    if (section == sections.end()) {
      fail(name.source(),
           "unknown section [" + std::string(name.str()) + "] (known: " + names(sections) + ")");
    }
    auto const* const table = node.as_table();
    if (table == nullptr) fail(node.source(), "[" + section->first + "] is to be a table");
    for (auto const& [key, value] : *table) {
      auto const setter = section->second.find(key.str());
      if (setter == section->second.end()) {
        fail(key.source(), "unknown key '" + std::string(key.str()) + "' in [" + section->first +
                               "] (known: " + names(section->second) + ")");
      }
      setter->second(value);
    }
  }
}

Kel::String ownHostName() {
  std::array<char, 256> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

}  // namespace

HostConfig readHostConfig(Kel::String const& path, bool mustExist) {
  HostConfig config;
  config.systemName = ownHostName();
  if (mustExist && !std::filesystem::exists(path)) throw BadInput(path + ": no such file");
  if (std::filesystem::exists(path)) {
    try {
      read(toml::parse_file(path),
           {{"system", {{"name", text(config.systemName)}, {"cell_type", text(config.cellType)}}},
            {"host", {{"run_directory", text(config.runDirectory)}, {"library", text(config.library)}}},
            {"socket", {{"path", text(config.socketPath)}, {"group", group(config.socketGroup)}}},
            {"provisioning",
             {{"script_exec_timeout", seconds(config.scriptExecTimeout, false)},
              {"max_run_time", seconds(config.maxRunTime, true)}}}});
    } catch (toml::parse_error const& error) {
      throw BadInput(path + ":" + std::to_string(error.source().begin.line) + ": " +
                     std::string(error.description()));
    }
  }
  if (config.socketPath.empty()) config.socketPath = config.runDirectory + "/statebase.sock";
  return config;
}
