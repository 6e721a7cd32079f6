#include "programs/zerotouchd/Check.h"

#include <fnmatch.h>
#include <grp.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "platform/kel/Format.h"
#include "platform/kel/Program.h"
#include "programs/zerotouchd/Boot.h"
#include "programs/zerotouchd/DhcpClient.h"

namespace {

using Lines = std::vector<std::pair<std::string, std::string>>;

// Two columns.
std::string table(Lines const& lines) {
  std::size_t width = 0;
  for (auto const& [left, right] : lines) width = std::max(width, left.size());
  std::string result;
  for (auto const& [left, right] : lines)
    result.append(left).append(width + 2 - left.size(), ' ').append(right).append("\n");
  return result;
}

std::vector<Kel::String> devicesOf(Kel::String const& sysClassNet) {
  std::vector<Kel::String> names;
  std::error_code error;
  std::filesystem::directory_iterator entry(sysClassNet, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (entry->is_directory(error)) names.push_back(Kel::printable(entry->path().filename().string()));
  }
  std::ranges::sort(names);
  return names;
}

class Forecaster {
 public:
  Forecaster(HostConfig const& config, TomlFiles const& read) : config_(config), read_(read) {}

  Forecast tell() {
    if (config_.linuxAdapter) tellPorts();
    Lines facts;
    facts.emplace_back("DHCP client:", dhcpClient());
    facts.emplace_back("Socket:", config_.socketPath + ", for " + whoMayConnect());
    if (config_.linuxAdapter) facts.emplace_back("Reload:", command(config_.system.reloadCommand, "[host]"));
    if (config_.cellType != "fixed") {
      facts.emplace_back("Standby:", "may exist, and the reload waits for it, since cell_type is '" +
                                         config_.cellType + "' and not 'fixed'");
    }
    facts.emplace_back("Now:", stringValue(provisioningAtBoot(config_.runDirectory, Reading::only)));
    result_.text += table(facts);
    return std::move(result_);
  }

 private:
  // A mistake in the value of a key, such as "[ports] devices".
  void mistake(std::string const& key, std::string const& what) {
    auto const place = read_.places.find(key);
    result_.mistakes.push_back((place != read_.places.end() ? place->second + ": " : "") + key + ": " + what);
  }

  // Which device becomes which port, and which patterns and rules are of no use here.
  void tellPorts() {
    Linux::PortSelection const selection(config_.ports);
    Lines lines{{"Device", "Port"}};
    std::map<Kel::String, Kel::String> devices;  // by port
    std::vector<Kel::String> selected;
    auto const all = devicesOf(config_.ports.sysClassNet);
    for (auto const& device : all) {
      if (!selection.selects(device)) {
        lines.emplace_back(device, "-, not selected");
        continue;
      }
      selected.push_back(device);
      Kel::String const port = selection.intfId(device).stringValue();
      lines.emplace_back(device, port);
      if (port.empty()) {
        mistake("[ports] names", "device " + device + " gets a name that is empty or longer than 64 bytes");
      } else if (auto const [first, isNew] = devices.try_emplace(port, device); !isNew) {
        mistake("[ports] names",
                Kel::format("devices %s and %s are both called %s", first->second, device, port));
      }
    }
    for (auto const& pattern : config_.ports.devices) {
      if (std::ranges::none_of(all,
                               [&](auto const& d) { return fnmatch(pattern.c_str(), d.c_str(), 0) == 0; }))
        mistake("[ports] devices", "'" + pattern + "' fits no device of this system");
    }
    checkNames(selected);
    if (selected.empty() && config_.ports.devices.empty())
      mistake("[ports] devices",
              "not set, and no device of this system has hardware behind it: there are no ports");
    result_.text += table(lines) + "\n";
  }

  void checkNames(std::vector<Kel::String> const& devices) {
    for (auto const& rule : config_.ports.names) {
      // A device that no rule fits keeps its name, so a name that differs shows that this one fits.
      Linux::PortSelection const one({.devices = {}, .names = {{rule.device, "/&"}}, .sysClassNet = {}});
      if (std::ranges::none_of(devices, [&](auto const& d) { return one.intfId(d) != Wire::IntfId(d); }))
        mistake("[ports] names", "'" + rule.device + "' fits no selected device of this system");
    }
  }

  std::string dhcpClient() {
    for (auto const& path : dhcpClients(config_)) {
      if (Kel::isProgram(path)) return path;
    }
    mistake("[dhcp] client", missingDhcpClient(config_));
    return "none";
  }

  std::string command(Linux::CommandLine const& words, std::string const& section) {
    if (!Kel::isCommand(words.front()))
      mistake(section + " reload_command", "'" + words.front() + "' is no program that can be executed");
    return Linux::stringValue(words);
  }

  std::string whoMayConnect() const {
    if (!config_.socketGroup) return "root";
    auto const* const group = getgrgid(*config_.socketGroup);
    return std::string("root and the group ") +
           (group != nullptr ? group->gr_name : std::to_string(*config_.socketGroup));
  }

  HostConfig const& config_;
  TomlFiles const& read_;
  Forecast result_;
};

}  // namespace

Forecast forecast(HostConfig const& config, TomlFiles const& read) { return Forecaster(config, read).tell(); }
