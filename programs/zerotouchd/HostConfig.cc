#include "programs/zerotouchd/HostConfig.h"

#include <grp.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <sstream>

#include "programs/zerotouchd/BadInput.h"
#include "programs/zerotouchd/Toml.h"

namespace {

using Setter = std::function<void(toml::node const&)>;
using Section = std::map<std::string, Setter, std::less<>>;

[[noreturn]] void fail(toml::source_region const& where, std::string const& reason) {
  throw BadInput(*where.path + ":" + std::to_string(where.begin.line) + ": " + reason);
}

std::string names(auto const& map) {
  std::string result;
  for (auto const& [name, value] : map) result.append(result.empty() ? "" : ", ").append(name);
  return result;
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

void readFile(toml::table const& file, std::map<std::string, Section, std::less<>> const& sections) {
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

Setter text(Kel::String& target) {
  return [&target](toml::node const& node) {
    auto const value = node.value_exact<std::string>();
    if (!value || value->empty()) fail(node.source(), "expected a string that is not empty");
    target = *value;
  };
}

Setter program(Kel::String& target) {
  return [&target](toml::node const& node) {
    text(target)(node);
    if (!target.starts_with('/') || access(target.c_str(), X_OK) != 0)
      fail(node.source(), "'" + target + "' is no absolute path of a program");
  };
}

Setter groupName(std::optional<gid_t>& target) {
  return [&target](toml::node const& node) {
    auto const name = node.value_exact<std::string>();
    auto const* const entry = name ? getgrnam(name->c_str()) : nullptr;
    if (entry == nullptr)
      fail(node.source(), "there is no group " + (name ? "'" + *name + "'" : "of that kind"));
    target = entry->gr_gid;
  };
}

Setter adapter(bool& target) {
  return [&target](toml::node const& node) {
    auto const name = node.value_exact<std::string>();
    if (name != "linux" && name != "none") fail(node.source(), "expected \"linux\" or \"none\"");
    target = name == "linux";
  };
}

Setter macAddress(std::optional<Wire::EthAddr>& target) {
  return [&target](toml::node const& node) {
    target = Wire::EthAddr::fromString(node.value_exact<std::string>().value_or(""));
    if (!target) fail(node.source(), "expected a MAC address, as \"02:00:00:00:00:01\"");
  };
}

// A list whose entries `add` takes one by one.
Setter listOf(std::function<void(toml::node const&)> add) {
  return [add = std::move(add)](toml::node const& node) {
    auto const* const list = node.as_array();
    if (list == nullptr) fail(node.source(), "expected a list");
    for (auto const& entry : *list) add(entry);
  };
}

// A program and its arguments, in place of the built-in ones.
Setter commandLine(Linux::CommandLine& target) {
  return [&target](toml::node const& node) {
    target.clear();
    listOf([&target](toml::node const& word) { text(target.emplace_back())(word); })(node);
    if (target.empty()) fail(node.source(), "expected a program and its arguments, as [\"/sbin/reboot\"]");
    if (target.front().find('=') != Kel::String::npos) {
      fail(node.source(), "a program cannot have '=' in its name");
    }
  };
}

Setter deviceNames(std::vector<Kel::String>& target) {
  return listOf([&target](toml::node const& entry) { text(target.emplace_back())(entry); });
}

Setter nameRules(std::vector<Linux::PortSelectionConfig::NameRule>& target) {
  return listOf([&target](toml::node const& entry) {
    auto const* const table = entry.as_table();
    if (table == nullptr) fail(entry.source(), "expected { device = \"...\", shown = \"...\" }");
    auto& rule = target.emplace_back();
    readSection(*table, "a name rule", {{"device", text(rule.device)}, {"shown", text(rule.shown)}});
    try {
      Linux::PortSelection{{.devices = {}, .names = {rule}, .sysClassNet = {}}};
    } catch (std::invalid_argument const& error) {
      fail(entry.source(), error.what());
    }
  });
}

// A number from 0 on, or (where `unlimited` is allowed) that word.
template <typename T>
Setter seconds(T& target, bool unlimited) {
  return [&target, unlimited](toml::node const& node) {
    if (unlimited && node.value_exact<std::string>() == "unlimited") {
      target = std::numeric_limits<T>::infinity();
      return;
    }
    auto const value = node.value<double>();
    bool const fits = std::is_floating_point_v<T> || node.is_integer();
    if (!value || !fits || !(*value >= 0 && *value <= static_cast<double>(std::numeric_limits<T>::max()))) {
      fail(node.source(),
           std::string("expected seconds (a number from 0 on)") + (unlimited ? " or \"unlimited\"" : ""));
    }
    target = static_cast<T>(*value);
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

}  // namespace

HostConfig readHostConfig(Kel::String const& path, bool mustExist) {
  HostConfig config;
  config.library = INSTALLED_LIBRARY;
  if (mustExist && !std::filesystem::exists(path)) throw BadInput(path + ": no such file");
  if (std::filesystem::exists(path)) {
    try {
      readFile(toml::parse_file(path),
               {{"system", {{"name", text(config.systemName)}, {"cell_type", text(config.cellType)}}},
                {"host",
                 {{"run_directory", text(config.runDirectory)},
                  {"library", text(config.library)},
                  {"adapter", adapter(config.linuxAdapter)},
                  {"reload_command", commandLine(config.system.reloadCommand)}}},
                {"logging", {{"reload_command", commandLine(config.system.logReloadCommand)}}},
                {"ports",
                 {{"devices", deviceNames(config.ports.devices)}, {"names", nameRules(config.ports.names)}}},
                {"inventory",
                 {{"model_name", text(config.inventory.modelName)},
                  {"serial_num", text(config.inventory.serialNum)},
                  {"hardware_rev", text(config.inventory.hardwareRev)},
                  {"system_mac", macAddress(config.inventory.systemMacAddr)},
                  {"eeprom", text(config.inventory.eeprom)}}},
                {"dhcp", {{"client", program(config.dhcpClient)}}},
                {"socket", {{"path", text(config.socketPath)}, {"group", groupName(config.socketGroup)}}},
                {"provisioning",
                 {{"script_exec_timeout", seconds(config.scriptExecTimeout, false)},
                  {"max_run_time", seconds(config.maxRunTime, true)},
                  {"max_download_size", bytes(config.maxDownloadSize)}}}});
    } catch (toml::parse_error const& error) {
      throw BadInput(path + ":" + std::to_string(error.source().begin.line) + ": " +
                     std::string(error.description()));
    }
  }
  if (config.socketPath.empty()) config.socketPath = config.runDirectory + "/statebase.sock";
  return config;
}
