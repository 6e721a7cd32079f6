// What becomes of a download: under which name it is saved, and how a script ends that takes too long.
#include <algorithm>
#include <csignal>

#include "tests/unit/support/FetchTest.h"
#include "zerotouch/fetch/Install.h"

namespace {

using ZeroTouch::configDownloadPath;

// That it is saved there, or under the usual name, the runs in the lab show.
class SaveFile : public FetchTest {};

TEST_F(SaveFile, names_a_file_below_the_flash) {
  flash.write("/flash/dir/other", "");
  std::filesystem::create_directory_symlink("/", flash.path("/flash/link"));
  for (auto const& [value, objection] : std::initializer_list<std::pair<std::string, char const*>>{
           {"/my-config", ""},
           {"/dir/a=b", ""},
           {"my-config", "it does not begin with /"},
           {"/../outside", "it holds .."},
           {"/dir", "it names a folder"},
           {"/dir/", "it names a folder"},
           {"/missing/x", "its folder does not exist"},
           {"/link/x", "it leads out of the flash"},
           {"/" + std::string(250, 'x'), "its name is too long"}}) {
    EXPECT_EQ(ZeroTouch::saveFileObjection(value), objection) << value;
  }
}

class Install : public FetchTest {};

TEST_F(Install, a_script_that_takes_too_long_is_stopped_and_decides_nothing_any_more) {
  Sm& sm = withAnswer("http://h/c");
  platform.config->enabledIs(true);
  enter(State::stateFetchConfig);
  writeFile(configDownloadPath, "#!/bin/sh\n");
  sm.bytesReadIs(10);
  sm.fileIsHashPlingIs(true);
  sm.nextStateIs(State::stateCopyConfigOrExecScript);
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
