// What becomes of a download: where it is installed, and how a script ends that takes too long.
#include <algorithm>
#include <csignal>

#include "tests/unit/support/FetchTest.h"

namespace {

using ZeroTouch::configDownloadPath;

class Install : public FetchTest {
 protected:
  // Enters stateCopyConfigOrExecScript with `content` downloaded.
  Sm& install(std::string const& content, std::string const& saveFile = "") {
    Sm& result = withAnswer("http://h/c");
    platform.config->enabledIs(true);
    enter(State::stateFetchConfig);
    takeEvents();
    writeFile(configDownloadPath, content);
    result.option67UriIs("http://h/c");
    result.bytesReadIs(static_cast<std::uint32_t>(content.size()));
    result.fileIsHashPlingIs(content.starts_with("#!"));
    result.fileCopySuccessIs(true);  // of an earlier run
    if (!saveFile.empty()) result.configEntryIs("SAVE_FILE", saveFile);
    result.nextStateIs(State::stateCopyConfigOrExecScript);
    return result;
  }
};

TEST_F(Install, replaces_the_startup_configuration_that_save_file_names) {
  struct Case {
    char const *saveFile, *destination, *objection;
  };
  char const* const usual = "/flash/startup-config";
  std::string const tooLong = "/" + std::string(250, 'x');
  for (Case const& c :
       {Case{"", usual, ""}, Case{"/my-config", "/flash/my-config", ""},
        Case{"/dir/a=b", "/flash/dir/a=b", ""}, Case{"my-config", usual, "it does not begin with /"},
        Case{"/../outside", usual, "it holds .."}, Case{"/dir", usual, "it names a folder"},
        Case{"/dir/", usual, "it names a folder"}, Case{"/missing/x", usual, "its folder does not exist"},
        Case{"/link/x", usual, "it leads out of the flash"},
        Case{tooLong.c_str(), usual, "its name is too long"}}) {
    flash.write("/flash/dir/other", "");
    flash.write(c.destination, "old, and longer than the new one");
    std::filesystem::remove(flash.path("/flash/link"));
    std::filesystem::create_directory_symlink("/", flash.path("/flash/link"));
    Sm& sm = install("#", c.saveFile);
    EXPECT_EQ(flash.read(c.destination), "#");
    EXPECT_TRUE(sm.fileCopySuccess());
    Strings expected{"ZTP_CONFIG_DOWNLOAD_SUCCESS: Successfully downloaded startup-config from http://h/c"};
    if (*c.objection != '\0') {
      expected.insert(expected.begin(), std::string("SAVE_FILE_IGNORED: Setting SAVE_FILE=") + c.saveFile +
                                            " is ignored: " + c.objection);
    }
    EXPECT_EQ(takeEvents(), expected);
    EXPECT_EQ(sm.transitionState(), State::stateShutdown);
    EXPECT_NE(settingsFile().find("DISABLE=NextReload\n"), std::string::npos);
    startOver();
  }
}

TEST_F(Install, a_script_that_takes_too_long_is_stopped_and_decides_nothing_any_more) {
  Sm& sm = install("#!/bin/sh\n");
  auto const child = children.last().child;
  auto const signals = [this] {  // of the script; clients that release the lease came after it
    return std::ranges::find(children.started, Strings{configDownloadPath},
                             &decltype(children)::Started::argv)
        ->signals;
  };
  time.advance(3000);
  platform.config->scriptExecTimeoutIs(700);  // counted from now
  time.advance(699);
  EXPECT_EQ(sm.currentState(), State::stateCopyConfigOrExecScript);
  takeEvents();
  EXPECT_TRUE(time.advanceUntil([&] { return sm.transitionState() == State::stateRetry; }, 2));
  EXPECT_EQ(
      takeEvents(),
      Strings{"ZTP_EXEC_SCRIPT_TIMEOUT: Timed out executing the downloaded config script after 700 seconds"});
  time.settle();
  platform.config->scriptExecTimeoutIs(5);
  EXPECT_EQ(runningTimer(), "RetryWaitTimer");
  EXPECT_EQ(signals(), std::vector<int>{SIGTERM});

  // It ignores that. The next attempt ends it for good.
  enter(State::stateRetryFetchConfig);
  sm.choosenIntfIs(Kel::makePtr<ZeroTouch::IntfStatus>(Wire::IntfId("Ethernet1"), nullptr));
  sm.nextStateIs(State::stateFetchConfig);
  EXPECT_EQ(signals(), (std::vector<int>{SIGTERM, SIGKILL}));
  EXPECT_FALSE(sm.scriptChildProcess());
}

}  // namespace
