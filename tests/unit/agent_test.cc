// The agent's shell: settings file, path rooting, child launcher, root entity, event catalogue.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "platform/kel/Loop.h"
#include "tests/unit/support/AgentTest.h"
#include "zerotouch/agent/ChildLauncher.h"
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
    sm.doWriteConfigFile();
    EXPECT_EQ(ZeroTouch::readSettings(flash.path("/flash/zerotouch-config")), c.expected);
    agent = nullptr;
  }
}

TEST_F(Agent, a_settings_file_that_cannot_be_written_is_left_as_it_was) {
  flash.write("/flash/zerotouch-config", "KEEP=me\n");
  Sm& sm = atRest();
  environment.set("FILESYSTEM_ROOT", flash.path("/nowhere"));
  sm.doAddConfigEntry("DISABLE", "NextReload");
  sm.doWriteConfigFile();
  EXPECT_EQ(settingsFile(), "KEEP=me\n");

  std::filesystem::create_directory(flash.path("/flash/folder"));
  EXPECT_THAT(ZeroTouch::replaceFile(flash.path("/flash/folder"), "x"), testing::HasSubstr("cannot replace"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(flash.path("/flash")), {}), 2)
      << "left-over files";
}

TEST_F(Agent, children_get_their_output_files_and_the_rest_from_the_agent) {
  Kel::childRunnerIs(nullptr);  // real children, and real time
  Kel::Loop::instance().endSimulation();
  struct Case {
    std::string out, err;  // below the folder; "" for none
    std::string expectedOut, expectedErr;
  };
  for (Case const& c : {Case{"/out", "/err", "o\n", "e\n"}, Case{"/out", "", "o\n", "(absent)"},
                        Case{"/absent/out", "/err", "(absent)", "e\n"}}) {
    std::string shell = "/bin/sh", option = "-c", script = "echo o; echo e >&2; exit 7";
    char* argv[] = {shell.data(), option.data(), script.data(), nullptr};
    EXPECT_EQ(ZeroTouch::argvToString(argv), "/bin/sh -c " + script + " ");
    flash.write("/out", "something longer that is truncated");
    std::string const out = flash.path(c.out), err = flash.path(c.err);
    auto const child =
        ZeroTouch::runCmd(argv, c.out.empty() ? nullptr : out.c_str(), c.err.empty() ? nullptr : err.c_str());
    while (!child->ended()) sd_event_run(Kel::Loop::instance().event(), UINT64_MAX);
    EXPECT_EQ(child->exitStatus(), 7);
    EXPECT_EQ(flash.read(c.out), c.expectedOut);
    EXPECT_EQ(flash.read("/err"), c.expectedErr);
    std::filesystem::remove(flash.path("/err"));
  }
  Kel::Loop::instance().simulate(1'700'000'000);
  char* none[] = {nullptr};
  EXPECT_EQ(ZeroTouch::argvToString(none), "");
}

TEST_F(Agent, the_root_holds_one_agent) {
  ZeroTouch::Root tree("zerotouch");
  EXPECT_FALSE(tree.hasBackupSupport());
  auto const create = [&]() -> Kel::Ptr<ZeroTouch::AgentCreator> const& {
    ZeroTouch::MountedEntities const& p = platform;
    return tree.agentIs(p.config, p.status, p.dhcpStatus, p.epicd, p.episd, p.vicd, p.visd, p.aisd, p.aisld,
                        p.kernelNetInfo, p.elisd, p.eisd, p.entityMib, p.ipConfig, p.l3ConfigDir, p.ipStatus,
                        p.ip6Config, p.ip6Status, p.routingConfig, p.netConfig, p.netStatus, p.reloadConfig,
                        p.fileReplication, p.logConfig, p.raPacketStatus);
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
