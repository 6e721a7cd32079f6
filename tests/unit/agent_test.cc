// The agent's shell: settings file, path rooting, root entity, event catalogue.
#include "tests/unit/support/AgentTest.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/agent/Root.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

class Agent : public AgentTest {};

TEST_F(Agent, flash_paths_are_rooted) {
  environment.set("FILESYSTEM_ROOT", "/tmp/root");
  EXPECT_EQ(ZeroTouch::filePathFromFSRoot("/flash/x"), "/tmp/root/flash/x");
  environment.set("FILESYSTEM_ROOT", "");
  EXPECT_EQ(ZeroTouch::filePathFromFSRoot("/flash/x"), "/mnt/flash/x");
  environment.unset("FILESYSTEM_ROOT");
  EXPECT_EQ(ZeroTouch::filePathFromFSRoot("/flash/x"), "/mnt/flash/x");
}

TEST_F(Agent, settings_are_read_as_they_stand) {
  using ZeroTouch::Settings;
  struct Case {
    std::string content;
    Settings expected;
  };
  for (Case const& c : {Case{"", {}}, Case{"SAVE_FILE=/a=b\n", {{"SAVE_FILE", "/a=b"}}},
                        Case{"DISABLE=x\nDISABLE=NextReload", {{"DISABLE", "NextReload"}}},
                        Case{"\nno equals sign\n KEY= 1 \n#x=1\nEMPTY=\n=v\n",
                             {{" KEY", " 1 "}, {"#x", "1"}, {"EMPTY", ""}, {"", "v"}}},
                        Case{std::string("\0\xff=\x01\n\x80", 6), {{std::string("\0\xff", 2), "\x01"}}}}) {
    flash.write("/flash/zerotouch-config", c.content);
    Sm& sm = atRest();
    Settings entries;
    for (auto const& [key, value] : sm.configEntry()) entries[key] = value;
    EXPECT_EQ(entries, c.expected);
    sm.doWriteConfigFile();
    EXPECT_EQ(settingsFile(), c.content);  // nothing was changed, so nothing is written

    sm.doRemoveConfigEntry("absent");
    sm.doAddConfigEntry("ADDED", "1");
    sm.doRemoveConfigEntry("ADDED");
    environment.set("FILESYSTEM_ROOT", flash.path("/nowhere"));
    sm.doWriteConfigFile();
    EXPECT_EQ(settingsFile(), c.content);  // what cannot be written is left as it was
    environment.set("FILESYSTEM_ROOT", flash.path());
    sm.doWriteConfigFile();
    EXPECT_EQ(ZeroTouch::readSettings(flash.path("/flash/zerotouch-config")), c.expected);
    agent = nullptr;
  }
}

TEST_F(Agent, the_root_holds_one_agent) {
  ZeroTouch::Root tree("zerotouch");
  auto const create = [&]() -> Kel::Ptr<ZeroTouch::AgentCreator> const& {
    ZeroTouch::MountedEntities const& p = platform;
    return tree.agentIs(p.config, p.status, p.dhcpStatus, p.epicd, p.episd, p.vicd, p.visd, p.aisd, p.aisld,
                        p.kernelNetInfoStatus, p.elisd, p.eisd, p.entityMibStatus, p.ipConfig, p.l3ConfigDir,
                        p.ipStatus, p.ip6Config, p.ip6Status, p.routingConfig, p.netConfig, p.netStatus,
                        p.reloadConfig, p.fileReplicationStatus, p.sysLoggingConfig, p.raPacketStatus);
  };
  auto const first = create();
  EXPECT_EQ(create(), first);
  EXPECT_TRUE(first->initialized());
  EXPECT_EQ(first->ztPamMan()->pamDesiredIntfDir(), first->ztSm()->pamDesiredIntfDir());
  tree.agentDel();
  EXPECT_FALSE(tree.agent());
}

TEST_F(Agent, every_event_can_be_raised_with_its_arguments_and_explains_itself) {
  std::size_t known = 0;
  for (Kel::LogHandle const* handle : Kel::logHandles()) {
    std::string const name = handle->name();
    if (!name.starts_with("ZTP_")) continue;
    ++known;
    std::string const format = handle->format();
    auto const placeholders = std::count(format.begin(), format.end(), '%');
    auto* const raise = const_cast<Kel::LogHandle*>(handle);
    if (placeholders == 0) raise->log();
    if (placeholders == 1) raise->log(1.5);
    if (placeholders == 2) raise->log("first", 90.0);
    ASSERT_FALSE(events.empty());
    EXPECT_TRUE(events.back().starts_with(name + ": ")) << events.back();
    EXPECT_EQ(events.back().find('%'), std::string::npos);
    EXPECT_STRNE(handle->explanation(), "");
    EXPECT_STRNE(handle->recommendedAction(), "");
  }
  EXPECT_EQ(known, 25);
  ZeroTouch::ZTP_CONFIG_DOWNLOAD_TIMEOUT.log("http://h/c", 0.5);
  EXPECT_EQ(
      events.back(),
      "ZTP_CONFIG_DOWNLOAD_TIMEOUT: Timed out trying to download the startup-config or a config script from "
      "http://h/c after 0.5 seconds");
}
