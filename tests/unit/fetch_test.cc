// The download: which URL, what the request says, how the body is kept, how a transfer ends.
#include <sys/stat.h>

#include "tests/unit/support/FetchTest.h"
#include "zerotouch/fetch/BootFile.h"
#include "zerotouch/fetch/RequestHeaders.h"

namespace {

using ZeroTouch::configDownloadPath;
using ZeroTouch::CurlTransfer;

TEST(BootFile, the_server_or_the_scheme_makes_the_url) {
  struct Case {
    char const *server, *file, *expected;
  };
  for (Case const& c :
       {Case{"", "http://h/c", "http://h/c http"}, Case{"", "https://h/c", "https://h/c https"},
        Case{"", "ftp://h/c", "ftp://h/c ftp"}, Case{"", "tftp://h/c", "tftp://h/c tftp"},
        Case{"10.0.0.1", "cfg", "tftp://10.0.0.1/cfg tftp"}, Case{"s", "http://h/c", "tftp://s/http://h/c tftp"},
        Case{"", "HTTP://h/c", "none"}, Case{"", "cfg", "none"}, Case{"", "file:///etc/shadow", "none"},
        Case{"", ":x", "none"}, Case{"", "httpx://h/c", "none"}}) {
    auto const file = ZeroTouch::bootFile(c.server, c.file);
    EXPECT_EQ(file.objection.empty() ? file.url + " " + file.scheme : "none" + file.url, c.expected);
  }
}

TEST(RequestHeaders, say_who_asks) {
  TemporaryFolder const etc;
  EntityMib::Fru root;
  root.modelNameIs("SW-48\r\nX-Evil: 1");
  root.hardwareRevIs("02");
  auto const headers = [&] {
    return ZeroTouch::requestHeaders(*Wire::EthAddr::fromString("02:1A:B3:0A:0B:0C"), root,
                                     etc.path("/version"), etc.path("/arch"));
  };
  Strings const always{"X-Ostrel-SystemMAC: 02:1a:b3:0a:0b:0c", "X-Ostrel-ModelName: SW-48X-Evil: 1",
                       "X-Ostrel-Serial: ", "X-Ostrel-HardwareVersion: 02"};
  EXPECT_EQ(headers(), always);
  etc.write("/version", "OTHER=x\nKVO_VERSION\n KVO_VERSION=no\n");
  etc.write("/arch", "i386 extra\nmore\n");
  Strings with = always;
  with.emplace_back("X-Ostrel-Architecture: i386");
  EXPECT_EQ(headers(), with);
  etc.write("/version", "KVO_VERSION=1\nKVO_VERSION=7.2.1=b\r\nOTHER=x");
  with.insert(with.end() - 1, "X-Ostrel-SoftwareVersion: 7.2.1=b");
  EXPECT_EQ(headers(), with);
}

using Callbacks = FetchTest;

TEST_F(Callbacks, write_to_nothing_that_is_not_the_agents_own_file) {
  flash.write("/other", "precious");
  auto const other = flash.path("/other");
  char const* const path = configDownloadPath;
  for (auto const& [prepare, reason] : std::initializer_list<std::pair<std::function<void()>, std::string>>{
           {[&] { std::filesystem::create_symlink(other, path); }, "Too many levels of symbolic links"},
           {[&] { std::filesystem::create_hard_link(other, path); }, "the file has another name too"},
           {[&] { mkfifo(path, 0600); }, "No such device or address"},
           {[&] { writeFile(path, "x"), chown(path, 65534, 65534) == 0 || (std::abort(), 0); },
            "it belongs to another user"}}) {
    prepare();
    CurlTransfer transfer;
    char body[] = "#!";
    EXPECT_EQ(ZeroTouch::curlWriteCB(body, 1, 2, &transfer), static_cast<std::size_t>(-1));
    EXPECT_EQ(transfer.failure, "cannot write /tmp/zt-download: " + reason);
    EXPECT_EQ(flash.read("/other"), "precious");
    std::filesystem::remove(path);
  }
}

TEST_F(Callbacks, find_the_boot_image_url) {
  std::string const name = "X-Ostrel-BootImage-Url:";
  std::string const longest = name + " " + std::string(1023, 'u');
  for (auto const& [text, url] : std::initializer_list<std::pair<std::string, std::string>>{
           {name + "   http://h/i more\r\n", "http://h/i"},
           {name + "http://h/i\r\n", "http://h/i\r\n"},
           {name, "none"},
           {name + "  ", "none"},
           {"x-ostrel-bootimage-url: http://h/i", "none"},
           {"", "none"},
           {longest, std::string(1023, 'u')},
           {longest + "u", "none"}}) {
    CurlTransfer transfer;
    std::vector<char> line(text.begin(), text.end());  // of that length exactly: reading past it is an error
    EXPECT_EQ(ZeroTouch::curlHeaderCB(line.data(), 1, line.size(), &transfer), line.size());
    EXPECT_EQ(transfer.bootImageUrlPresent ? transfer.bootImageUrl.data() : "none", url);
  }
}

// Transfers are real, and so is their time.
class Transfers : public FetchTest {
 protected:
  // Fetches, until another state than stateFetchConfig is asked for; answers which.
  State fetch(std::string const& url) {
    Kel::Loop::instance().simulate(0);
    withAnswer(url);
    Kel::Loop::instance().endSimulation();
    platform.config->enabledIs(true);
    enter(State::stateSetupSystemIdentity);
    events.clear();
    sm().nextStateIs(State::stateFetchConfig);
    EXPECT_TRUE(
        Kel::Loop::instance().runUntil([this] { return sm().transitionState() != State::stateInvalid; }, 10));
    EXPECT_EQ(sm().curlCBData(), nullptr);
    EXPECT_FALSE(sm().curlSockFd());
    EXPECT_EQ(runningTimer(), "");
    return sm().transitionState();
  }
};

// Ticks are too rare to help: the watch of the socket alone carries the transfer, also when the number of the
// resolver's socket becomes that of the connection.
TEST_F(Transfers, are_carried_by_the_watch_of_their_socket) {
  environment.set("ZEROTOUCH_CONFIGFETCH_TIMER_INTERVAL", "20");
  for (auto const& [body, error] : std::initializer_list<std::pair<std::string, std::string>>{
           {"hostname sw1\n", ""},
           {"#!" + std::string(800'000, 'x'), ""},
           {std::string(900'001, 'x'), "the file is larger than the limit of 900000 bytes"}}) {
    OneAnswerServer server("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                           body);
    std::string const url = server.url();
    platform.config->maxDownloadSizeIs(900'000);
    bool const success = error.empty();
    EXPECT_EQ(fetch(url), success ? State::stateCopyConfigOrExecScript : State::stateRetryFetchConfig);
    Strings expected{"ZTP_CONFIG_DOWNLOAD: Attempting to download the startup-config from " + url};
    if (!success) {
      expected.push_back("ZTP_CONFIG_DOWNLOAD_FAIL: Failed to download the startup-config from ");
      expected.back().append(url).append(". Error: ").append(error);
    } else {
      EXPECT_EQ(sm().bytesRead(), body.size());
      EXPECT_EQ(file(configDownloadPath), body);
      EXPECT_EQ(sm().fileIsHashPling(), body.starts_with("#!"));
    }
    EXPECT_EQ(takeEvents(), expected);
    server.stop();
    EXPECT_NE(server.request.find("X-Ostrel-SystemMAC: 00:00:00:00:00:00\r\n"), std::string::npos);
    std::filesystem::remove(configDownloadPath);
    startOver();
  }
}

TEST_F(Transfers, that_never_start_are_no_success_of_an_earlier_one) {
  Sm& sm = withAnswer("HTTP://h/c");
  sm.curlTransferDoneIs(true);
  sm.curlSuccessIs(true);
  sm.bytesReadIs(7);
  sm.nextStateIs(State::stateFetchConfig);
  EXPECT_EQ(sm.transitionState(), State::stateRetry);
  EXPECT_EQ(sm.bytesRead(), 0U);
  EXPECT_EQ(takeEvents(), Strings{});
}

}  // namespace
