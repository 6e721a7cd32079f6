// What becomes of a download: installed, or run as a script whose end decides.
#include <algorithm>
#include <csignal>

#include "tests/unit/support/FetchTest.h"

namespace {

using ZeroTouch::configDownloadPath;

constexpr char const* script = "#!/bin/sh\n";
constexpr char const* executing = "ZTP_EXEC_SCRIPT: Executing the downloaded config script";

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

TEST_F(Install, of_nothing_retries_and_a_failed_one_says_why_and_stops) {
  Sm& sm = install("");
  EXPECT_EQ(
      takeEvents(),
      Strings{"ZTP_CONFIG_DOWNLOAD_FAIL: Failed to download the startup-config from http://h/c. Error: Zero "
              "bytes read"});
  EXPECT_EQ(sm.transitionState(), State::stateRetry);
  EXPECT_EQ(flash.read("/flash/startup-config"), "(absent)");
  startOver();

  flash.write("/flash/startup-config", "old");
  std::size_t const larger = 2U << 20U;  // than the file system, which holds the download only by its holes
  EXPECT_DEATH(
      {
        Kel::logSinkIs(
            [](Kel::LogEvent const& event) { std::fprintf(stderr, "%s\n", event.message.c_str()); });
        writeFile(configDownloadPath, "x");
        std::filesystem::resize_file(configDownloadPath, larger);
        withAnswer("http://h/c").bytesReadIs(larger);
        enter(State::stateFetchConfig);
        this->sm().nextStateIs(State::stateCopyConfigOrExecScript);
      },
      "cannot write /tmp/zerotouch-test.*/flash/startup-config: No space left on device[^$]*"
      "Assertion failed: success");
  EXPECT_EQ(flash.read("/flash/startup-config"), "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(flash.path("/flash")), {}), 1);
}

TEST_F(Install, runs_a_script_whose_end_decides) {
  struct Case {
    std::function<void(Kel::ChildSiginfo&)> end;
    std::string out, err;
    State next;
    std::string event;
  };
  std::string const failed = "ZTP_EXEC_SCRIPT_FAIL: Config script exited with an error. Error code: ";
  auto const exits = [](std::uint8_t status) {
    return [status](Kel::ChildSiginfo& child) { child.exitedIs(status); };
  };
  for (Case const& c :
       {Case{exits(0), "", "", State::stateShutdown,
             "ZTP_EXEC_SCRIPT_SUCCESS: Successfully executed the downloaded config script"},
        Case{exits(3), "x\n", "bad\n", State::stateRetry, failed + "3. Output: bad. x. "},
        Case{exits(1), "", "", State::stateRetry, failed + "1. "},
        Case{exits(2), std::string(100'000, 'o'), "\x1b[2J\tend", State::stateRetry,
             failed + "2. Output: ?[2J end. " + std::string(4096, 'o') + ". [output cut] "},
        Case{[](Kel::ChildSiginfo& child) { child.killedIs(SIGSEGV); }, "", "", State::stateRetry,
             "ZTP_EXEC_SCRIPT_SIGNALED: Config script exited with an uncaught signal. Signal code: "
             "Segmentation "
             "fault"}}) {
    environment.unset("ZTP_EXEC_SCRIPT");
    Sm& sm = install(script);
    EXPECT_EQ(takeEvents(),
              (Strings{"ZTP_CONFIG_DOWNLOAD_SUCCESS: Successfully downloaded config script from http://h/c",
                       executing}));
    EXPECT_STREQ(std::getenv("ZTP_EXEC_SCRIPT"), "1");
    EXPECT_EQ(children.last().argv, Strings{configDownloadPath});
    EXPECT_EQ(std::filesystem::status(configDownloadPath).permissions(), std::filesystem::perms::owner_all);
    EXPECT_EQ(runningTimer(), "ScriptExecTimer");
    writeFile("/var/run/ztp-config-script.stdout", c.out);
    writeFile("/var/run/ztp-config-script.stderr", c.err);
    c.end(*children.last().child);
    EXPECT_EQ(sm.transitionState(), c.next);
    EXPECT_EQ(takeEvents(), Strings{c.event});
    EXPECT_FALSE(sm.scriptChildProcess());
    startOver();
  }
}

TEST_F(Install, a_script_that_takes_too_long_is_stopped_and_decides_nothing_any_more) {
  Sm& sm = install(script);
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
