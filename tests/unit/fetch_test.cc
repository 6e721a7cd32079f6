// The download: which URL, what the request says, where the body is kept and the configuration saved.
// Transfers and scripts as a whole are shown by the simulation and by the runs in the lab.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <utility>

#include "platform/kel/WholeFile.h"
#include "tests/unit/support/AgentTest.h"
#include "tests/unit/support/Transcript.h"
#include "zerotouch/fetch/BootFile.h"
#include "zerotouch/fetch/CurlTransfer.h"
#include "zerotouch/fetch/DownloadEnd.h"
#include "zerotouch/fetch/Install.h"

namespace {

using Cases = std::initializer_list<std::pair<std::string, std::string>>;
using ZeroTouch::configDownloadPath;
using ZeroTouch::CurlTransfer;

TEST(RequestHeaders, say_who_asks) {
  TemporaryFolder const etc;
  EntityMib::Fru root;
  root.modelNameIs("SW-48\r\nX-Evil: 1");
  root.hardwareRevIs("02");
  etc.write("/version", "OTHER=x\nKVO_VERSION\n KVO_VERSION=no\nKVO_VERSION=7.2.1=b\r\nOTHER=x");
  etc.write("/arch", "i386 extra\nmore\n");
  Strings const expected{"X-Ostrel-SystemMAC: 02:1a:b3:0a:0b:0c",
                         "X-Ostrel-ModelName: SW-48X-Evil: 1",
                         "X-Ostrel-Serial: ",
                         "X-Ostrel-HardwareVersion: 02",
                         "X-Ostrel-SoftwareVersion: 7.2.1=b",
                         "X-Ostrel-Architecture: i386"};
  EXPECT_EQ(ZeroTouch::requestHeaders(*Wire::EthAddr::fromString("02:1A:B3:0A:0B:0C"), root,
                                      etc.path("/version"), etc.path("/arch")),
            expected);
}

TEST(Download, knows_the_host_of_a_url) {
  for (auto const& [url, host] : Cases{{"http://u:p@h.example:80/a@b:c", "h.example"},
                                       {"https://[2001:db8::1]:443?x", "[2001:db8::1]"},
                                       {"tftp://[half", "[half"},
                                       {"://", ""},
                                       {"h", "h"}})
    EXPECT_EQ(ZeroTouch::hostOf(url), host);
}

class Fetch : public AgentTest {
 protected:
  Fetch() { std::filesystem::remove(configDownloadPath); }
};

TEST_F(Fetch, replaces_whatever_stands_in_the_place_of_the_download_and_writes_to_nothing_else) {
  flash.write("/other", "precious");
  auto const other = flash.path("/other");
  char const* const path = configDownloadPath;
  for (auto const& [prepare, failure] : std::initializer_list<std::pair<std::function<void()>, std::string>>{
           {[&] { std::filesystem::create_symlink(other, path); }, ""},
           {[&] { std::filesystem::create_hard_link(other, path); }, ""},
           {[&] { mkfifo(path, 0600); }, ""},
           {[&] { std::ofstream(path) << "x", chown(path, 65534, 65534) == 0 || (std::abort(), 0); }, ""},
           {[&] { std::filesystem::create_directory(path); },
            "cannot write /tmp/zt-download: Is a directory"}}) {
    prepare();
    CurlTransfer transfer;
    char body[] = "#!";
    EXPECT_EQ(ZeroTouch::curlWriteCB(body, 1, 2, &transfer),
              failure.empty() ? 2 : static_cast<std::size_t>(-1));
    EXPECT_EQ(transfer.failure, failure);
    struct stat file {};
    EXPECT_EQ(lstat(path, &file), 0);
    bool const isOurs = S_ISREG(file.st_mode) && (file.st_mode & 0777U) == 0600 && file.st_uid == geteuid();
    EXPECT_EQ(isOurs, failure.empty());
    EXPECT_EQ(flash.read("/other"), "precious");
    std::filesystem::remove(path);
  }
}

TEST_F(Fetch, finds_the_boot_image_url) {
  std::string const name = "X-Ostrel-BootImage-Url:";
  std::string const longest = name + " " + std::string(1023, 'u');
  for (auto const& [text, url] : Cases{{name + "   http://h/i more\r\n", "http://h/i"},
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

TEST(HttpAnswer, tells_what_the_headers_say) {
  auto const& curl = *ZeroTouch::Curl::load();
  using Lines = std::vector<char const*>;
  auto const after = [](Lines const& lines) {
    ZeroTouch::HttpAnswer answer;
    for (std::string const line : lines) answer.note(line + "\r\n");
    return answer;
  };
  char const *const busy = "HTTP/1.1 503 Busy", *const date = "Date: Sun, 06 Nov 1994 08:49:37 GMT";
  for (auto const& [lines, pause] :
       std::vector<std::pair<Lines, int>>{{{busy, "retry-after:  120 "}, 120},
                                          {{"HTTP/2 429", "Retry-After: 7"}, 7},
                                          {{busy, date, "Retry-After: Sun, 06 Nov 1994 08:50:07 GMT"}, 30},
                                          {{busy, date, "Retry-After: Sunday, 06-Nov-94 08:49:07 GMT"}, -30},
                                          {{busy, "Retry-After: soon"}, 0},
                                          {{busy, "Retry-After: 99999999999999999999"}, 0},
                                          {{busy, "Retry-After:"}, 0},
                                          {{"HTTP/1.1 404 No", "Retry-After: 120"}, 0},
                                          {{busy, "Retry-After: 120", "HTTP/1.1 503 Busy"}, 0}})
    EXPECT_EQ(after(lines).pause(curl).value_or(0), pause) << lines.back();

  for (auto const& [line, tag] : Cases{{"ETag: \"a b\"", ""},
                                       {"etag:\"a-1\"", "\"a-1\""},
                                       {"ETag: W/\"a\"", ""},
                                       {"ETag: a", ""},
                                       {"ETag: \"a\"b\"", ""},
                                       {"ETag: \"\"", ""},
                                       {"ETag", ""}})
    EXPECT_EQ(after({line.c_str()}).etag, tag) << line;
  auto const rest = after({"HTTP/1.1 206 Partial", "Content-Length: 5", "Content-Range: bytes 7-11/12"});
  EXPECT_EQ((std::vector<std::uint64_t>{rest.rangeFirst, rest.fileLength(), rest.tellsEnd}),
            (std::vector<std::uint64_t>{7, 12, true}));
  EXPECT_EQ(after({"HTTP/1.1 206", "Content-Range: bytes 7-11/*", "Content-Length: 5"}).fileLength(), 0U);
  EXPECT_FALSE(after({"HTTP/1.1 200 OK", "Content-Length: many"}).tellsEnd);
  EXPECT_TRUE(after({"HTTP/1.1 200 OK", "Transfer-Encoding: chunked"}).tellsEnd);
  EXPECT_TRUE(after({"HTTP/2 200"}).tellsEnd);
}

TEST_F(Fetch, ends_when_the_server_says_more_than_libcurl_is_to_keep) {
  CurlTransfer transfer;
  std::vector<char> half(ZeroTouch::maxHeaderBytes / 2, 'h');
  EXPECT_EQ(ZeroTouch::curlHeaderCB(half.data(), 1, half.size(), &transfer), half.size());
  EXPECT_EQ(ZeroTouch::curlHeaderCB(half.data(), 1, half.size(), &transfer), half.size());
  EXPECT_EQ(ZeroTouch::curlHeaderCB(half.data(), 1, 1, &transfer), 0U);
  EXPECT_EQ(transfer.failure, "the server's headers are longer than 1048576 bytes");
}

TEST_F(Fetch, takes_no_earlier_transfer_for_one_that_never_started) {
  Sm& sm = atRest();
  inventoryIs(EntityMib::InitStatus::initialized);
  auto const chosen = Kel::makePtr<ZeroTouch::IntfStatus>(Wire::IntfId("Ethernet1"), nullptr);
  chosen->kernelIntfNameIs("et1");
  platform.dhcpStatus->intfDhcpStatusIs("et1")->bootFileNameIs("HTTP://h/c");
  sm.choosenIntfIs(chosen);
  sm.currentStateIs(State::stateSetupSystemIdentity);
  sm.curlTransferDoneIs(true);
  sm.curlSuccessIs(true);
  sm.bytesReadIs(7);
  sm.nextStateIs(State::stateFetchConfig);
  EXPECT_EQ(sm.transitionState(), State::stateRetry);
  EXPECT_EQ(sm.bytesRead(), 0U);
  EXPECT_EQ(takeEvents(),
            Strings{"BOOT_FILE_NOT_URL: The boot file HTTP://h/c cannot be downloaded: its scheme is none "
                    "of http, https, ftp and tftp in lower case"});
}

TEST_F(Fetch, saves_the_configuration_in_a_file_below_the_flash_only) {
  flash.write("/flash/dir/other", "");
  std::filesystem::create_directory_symlink("/", flash.path("/flash/link"));
  for (auto const& [value, objection] : transcript("save_file.txt"))
    EXPECT_EQ(ZeroTouch::saveFileObjection(value) + "\n", objection) << value;
}

TEST_F(Fetch, copies_in_pieces_where_there_is_room_and_keeps_the_mode_of_the_file_that_is_replaced) {
  constexpr std::size_t aPieceAndMore = 5 << 20;
  flash.write("/source", "x");
  std::filesystem::resize_file(flash.path("/source"), aPieceAndMore);
  auto const target = flash.path("/flash/target");
  unsigned signs = 0;
  auto const copy = [&] {
    return Kel::replaceFileByCopy(target, flash.path("/source"), 0600, [&] { ++signs; });
  };
  auto const room = std::filesystem::space(target.substr(0, target.rfind('/'))).free;
  EXPECT_EQ(copy(), "cannot write " + target + ": No space left on device, " +
                        std::to_string(aPieceAndMore - room) + " bytes are missing");
  EXPECT_EQ(signs, 0U);
  ASSERT_EQ(mount("tmpfs", "/tmp", nullptr, MS_REMOUNT, "size=16m"), 0) << std::strerror(errno);
  for (mode_t const mode : {0600U, 0640U}) {
    if (mode != 0600) std::filesystem::permissions(target, static_cast<std::filesystem::perms>(mode));
    EXPECT_EQ(copy(), "");
    EXPECT_EQ(std::exchange(signs, 0), 2U);  // before the first piece and after it
    EXPECT_EQ(std::filesystem::file_size(target), aPieceAndMore);
    EXPECT_EQ(std::filesystem::status(target).permissions(), static_cast<std::filesystem::perms>(mode));
  }
}

TEST_F(Fetch, removes_at_its_start_what_a_killed_copy_has_left) {
  flash.write("/flash/zerotouch-config", "SAVE_FILE=/kept\n");
  for (char const* const name : {"/flash/startup-config", "/flash/kept", "/flash/other"})
    flash.write(std::string(name) + ".zerotouch-new", "half");
  atRest();
  EXPECT_EQ(flash.read("/flash/startup-config.zerotouch-new"), "(absent)");
  EXPECT_EQ(flash.read("/flash/kept.zerotouch-new"), "(absent)");
  EXPECT_EQ(flash.read("/flash/other.zerotouch-new"), "half");
}

}  // namespace
