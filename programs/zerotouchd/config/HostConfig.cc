#include "programs/zerotouchd/config/HostConfig.h"

#include <grp.h>

#include <charconv>

#include "platform/kel/Program.h"
#include "platform/statebase/Tree.h"
#include "programs/zerotouchd/config/Authenticity.h"
#include "programs/zerotouchd/config/PolicySections.h"

namespace {

Setter groupName(std::optional<gid_t>& target) {
  return [&target](toml::node const& node) {
    auto const name = node.value_exact<std::string>();
    auto const* const entry = name ? getgrnam(name->c_str()) : nullptr;
    if (entry == nullptr)
      fail(node.source(), "there is no group " + (name ? "'" + *name + "'" : "of that kind"));
    target = entry->gr_gid;
  };
}

Setter fileMode(std::uint32_t& target) {
  return [&target](toml::node const& node) {
    constexpr int octal = 8;
    auto const digits = node.value_exact<std::string>().value_or("");
    char const* const end = digits.data() + digits.size();
    auto const [rest, error] = std::from_chars(digits.data(), end, target, octal);
    if (error != std::errc() || rest != end || target > 0777)
      fail(node.source(), "expected a mode in octal digits, as \"0600\"");
  };
}

Setter macAddress(std::optional<Wire::EthAddr>& target) {
  return [&target](toml::node const& node) {
    target = Wire::EthAddr::fromString(node.value_exact<std::string>().value_or(""));
    if (!target) fail(node.source(), "expected a MAC address, as \"02:00:00:00:00:01\"");
  };
}

// Reads a program and its arguments, which replace the built-in ones.
Setter commandLine(Linux::CommandLine& target) {
  return [&target](toml::node const& node) {
    target.clear();
    listOf([&target](toml::node const& word) { text(target.emplace_back())(word); })(node);
    if (target.empty()) fail(node.source(), "expected a program and its arguments, as [\"/sbin/reboot\"]");
    if (target.front().find('=') != Kel::String::npos) {
      fail(node.source(), "a program cannot have '=' in its name");
    }
    bool const relative = target.front().find('/') != Kel::String::npos && !target.front().starts_with('/');
    if (relative || !Kel::isCommand(target.front()))
      fail(node.source(), "'" + target.front() + "' is no program that can be executed");
  };
}

Setter libraryName(Kel::String& target) {
  return [&target](toml::node const& node) {
    text(target)(node);
    if (target.find('/') != Kel::String::npos) absolutePath(target)(node);
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

}  // namespace

bool PolicyConfig::operator==(PolicyConfig const& other) const {
  auto const values = [](Kel::Ptr<ZeroTouch::Policy> const& policy) {
    Statebase::Tree tree;
    tree.mount("/policy", policy, Statebase::Access::readOnly);
    return tree.get("/policy");
  };
  return values(entity) == values(other.entity);
}

HostConfig readHostConfig(Kel::String const& path, bool mustExist, TomlFiles* files) {
  HostConfig config;
  config.library = INSTALLED_LIBRARY;
  Sections sections = {
      {"system", {{"name", text(config.systemName)}, {"cell_type", text(config.cellType)}}},
      {"host",
       {{"run_directory", absolutePath(config.runDirectory)},
        {"library", libraryName(config.library)},
        {"adapter",
         oneOf<bool>({{"linux", true}, {"none", false}}, [&](bool v) { config.linuxAdapter = v; })},
        {"history", flag([&](bool v) { config.keepsHistory = v; })},
        {"reload_command", commandLine(config.system.reloadCommand)}}},
      {"logging", {{"reload_command", commandLine(config.system.logReloadCommand)}}},
      {"ports", {{"devices", deviceNames(config.ports.devices)}, {"names", nameRules(config.ports.names)}}},
      {"inventory",
       {{"model_name", text(config.inventory.modelName)},
        {"serial_num", text(config.inventory.serialNum)},
        {"hardware_rev", text(config.inventory.hardwareRev)},
        {"system_mac", macAddress(config.inventory.systemMacAddr)},
        {"eeprom", absolutePath(config.inventory.eeprom)}}},
      {"dhcp", {{"client", program(config.dhcpClient)}}},
      {"download",
       {{"proxy", oneOf<bool>({{"environment", true}, {"none", false}},
                              [&](bool v) { config.proxyFromEnvironment = v; })}}},
      {"reporter", reporterSection(config.reporter)},
      {"install", {{"mode", fileMode(config.installMode)}}},
      {"socket", {{"path", absolutePath(config.socketPath)}, {"group", groupName(config.socketGroup)}}},
      {"provisioning",
       {{"script_exec_timeout", seconds(config.scriptExecTimeout, false)},
        {"max_run_time", seconds(config.maxRunTime, true)},
        {"max_download_size", bytes(config.maxDownloadSize)}}}};
  for (auto& [name, keys] : policySections(*config.policy.entity)) sections[name].merge(keys);
  auto read = readToml(path, mustExist, sections);
  if (files != nullptr) *files = std::move(read);
  checkAuthenticity(*config.policy.entity->authenticity(), path);
  if (config.socketPath.empty()) config.socketPath = config.runDirectory + "/statebase.sock";
  if (config.reporter.spool.empty()) config.reporter.spool = config.runDirectory + "-reporter";
  return config;
}
