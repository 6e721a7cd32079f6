// The agent's shell: settings file, path rooting, root entity, event catalogue.
#include <sys/stat.h>

#include <algorithm>

#include "platform/kel/WholeFile.h"
#include "tests/unit/support/AgentTest.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/agent/ZeroTouchAgent.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

class Agent : public AgentTest {};

TEST_F(Agent, flash_paths_are_rooted) {
  environment.set("FILESYSTEM_ROOT", "");
  EXPECT_EQ(ZeroTouch::filePathFromFSRoot("/flash/x"), "/mnt/flash/x");
  environment.unset("FILESYSTEM_ROOT");
  EXPECT_EQ(ZeroTouch::filePathFromFSRoot("/flash/x"), "/mnt/flash/x");
}

TEST_F(Agent, a_file_that_cannot_be_replaced_leaves_none_beside_it) {
  flash.write("/flash/file", "");
  EXPECT_NE(Kel::replaceFile(flash.path("/flash"), "x"), "");
  std::filesystem::directory_iterator const entries(flash.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST_F(Agent, settings_are_read_as_they_stand) {
  using ZeroTouch::Settings;
  for (auto const& [content, expected] : std::initializer_list<std::pair<std::string, Settings>>{
           {"", {}},
           {"DISABLE=x\nDISABLE=NextReload", {{"DISABLE", "NextReload"}}},
           {"\nno equals sign\n KEY= 1=2 \n#x=1\nEMPTY=\n=v\n",
            {{" KEY", " 1=2 "}, {"#x", "1"}, {"EMPTY", ""}, {"", "v"}}},
           {std::string("\0\xff=\x01\n\x80", 6), {{std::string("\0\xff", 2), "\x01"}}}}) {
    flash.write("/flash/zerotouch-config", content);
    Sm& sm = atRest();
    Settings entries;
    for (auto const& [key, value] : sm.configEntry()) entries[key] = value;
    EXPECT_EQ(entries, expected);
    sm.doWriteConfigFile();
    EXPECT_EQ(settingsFile(), content);  // nothing was changed, so nothing is written

    sm.doAddConfigEntry("ADDED", "1");
    sm.doRemoveConfigEntry("ADDED");
    environment.set("FILESYSTEM_ROOT", flash.path("/nowhere"));
    sm.doWriteConfigFile();
    EXPECT_EQ(settingsFile(), content);  // what cannot be written is left as it was
    environment.set("FILESYSTEM_ROOT", flash.path());
    sm.doWriteConfigFile();
    EXPECT_EQ(ZeroTouch::readSettings(flash.path("/flash/zerotouch-config")), expected);
    agent = nullptr;
  }
}

TEST_F(Agent, waits_for_nobody_who_could_write_or_read_where_a_file_should_be) {
  auto const path = flash.path("/flash/zerotouch-config");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(ZeroTouch::readSettings(path), std::nullopt);
  Kel::String program = "/bin/true";
  char* argv[] = {program.data(), nullptr};
  EXPECT_TRUE(ZeroTouch::runCmd(argv, path.c_str(), nullptr));
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
  EXPECT_EQ(first->ztPamMan()->pamDesiredIntfDir(), first->ztSm()->pamDesiredIntfDir());
  tree.agentDel();
  EXPECT_FALSE(tree.agent());
}

// Operators and their tools know these texts; expected/events.txt has them to the byte.
TEST_F(Agent, every_event_of_the_catalogue_has_its_texts_and_no_limit_on_repeats) {
  std::string catalogue;
  for (Kel::LogHandle const* handle : Kel::logHandles()) {
    std::string const name = handle->name();
    if (!name.starts_with("ZTP_")) continue;
    catalogue += name + " " + std::to_string(handle->severity()) + "\n";
    for (std::string const text : {handle->format(), handle->explanation(), handle->recommendedAction()})
      catalogue += '"' + text + "\"\n";
    auto const arguments = std::ranges::count(std::string(handle->format()), '%');
    auto* const raise = const_cast<Kel::LogHandle*>(handle);
    for (int i = 0; i < 3; ++i)
      arguments == 0 ? raise->log() : arguments == 1 ? raise->log(1.5) : raise->log("first", 90.0);
    EXPECT_EQ(takeEvents().size(), 3U) << name;
  }
  EXPECT_EQ(catalogue, TemporaryFolder::contentOf(PROJECT_FOLDER "/tests/unit/expected/events.txt"));
  ZeroTouch::ZTP_CONFIG_DOWNLOAD_TIMEOUT.log("http://h/c", 0.5);
  EXPECT_TRUE(events.back().ends_with(" from http://h/c after 0.5 seconds"));
}
