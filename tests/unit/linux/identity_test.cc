// The host name, resolv.conf, log servers and the reload.
#include <sys/mount.h>

#include "platform/kel/testing/FakeChildRunner.h"
#include "platform/kel/testing/SimulatedTime.h"
#include "tests/unit/linux/NetworkTest.h"

namespace Linux {
namespace {

using Strings = std::vector<std::string>;

// The appliers by themselves, under simulated time.
class IdentityTest : public ::testing::Test {
 protected:
  IdentityTest() { std::filesystem::create_directory(folder.path("/run")); }

  void serversAre(Strings const& v4, Strings const& v6 = {}, std::string const& domain = "") {
    entities.netConfig->nameServerDelAll();
    entities.netConfig->v6NameServerDelAll();
    std::uint8_t index = 0;
    for (auto const& server : v4)
      entities.netConfig->nameServerIs(++index, *Wire::IpAddr::fromString(server));
    for (auto const& server : v6)
      entities.netConfig->v6NameServerIs(++index, *Wire::Ip6Addr::fromString(server));
    entities.netConfig->domainNameIs(domain);
    time.settle();
  }
  std::unique_ptr<ResolvConfApplier> resolvConf() const {
    return std::make_unique<ResolvConfApplier>(entities, folder.path("/resolv.conf"), folder.path("/run"));
  }

  TemporaryFolder folder;
  Entities entities = newEntities();
  Kel::testing::SimulatedTime time;
  Kel::testing::FakeChildRunner children;
  Warned warned;
};

std::string const firstLine =
    "# Written by zerotouchd. What stood here before comes back when provisioning takes its settings back.\n";
std::string const before = "domain old.example\noptions timeout:1 \n\n# no end of line";

std::string dropped(std::string const& what, std::string const& why) {
  return "VALUE_DROPPED: The " + what + " is not used: " + why + "\n";
}

TEST_F(IdentityTest, ResolvConfIsWrittenAndPutBack) {
  folder.write("/elsewhere", before);
  std::filesystem::create_symlink("elsewhere", folder.path("/resolv.conf"));
  std::filesystem::permissions(folder.path("/elsewhere"), std::filesystem::perms(0640));
  auto const applier = resolvConf();
  EXPECT_EQ(entities.netStatus->domainName(), "old.example");
  for (auto const& [v4, v6, domain, text, status] :
       std::vector<std::tuple<Strings, Strings, std::string, std::string, std::string>>{
           {{"10.0.0.2", "10.0.0.1"},
            {"2001:db8::2", "2001:db8::1"},
            "a.example. b.example",
            firstLine + "search a.example b.example\nnameserver 10.0.0.2\nnameserver 10.0.0.1\nnameserver "
                        "2001:db8::2\n# The C library's resolver asks no more than those above.\nnameserver "
                        "2001:db8::1\n",
            "a.example"},
           {{"127.0.0.1", "224.0.0.1", "0.0.0.0"},
            {"fe80::1", "::1"},
            "x\nnameserver\t6.6.6.6",
            before,
            "old.example"},
           {{}, {}, "new.example", firstLine + "search new.example\n", "new.example"},
           {{}, {}, "", before, "old.example"}}) {
    serversAre(v4, v6, domain);
    EXPECT_EQ(folder.read("/elsewhere"), text);
    EXPECT_EQ(entities.netStatus->domainName(), status);
  }
  std::string faults =
      dropped("domain name 'x?nameserver 6.6.6.6'", "something else than letters, digits, dashes and dots");
  for (auto const& [server, why] : std::vector<std::pair<std::string, std::string>>{
           {"127.0.0.1", "a loopback address"},
           {"224.0.0.1", "a multicast, broadcast or reserved address"},
           {"0.0.0.0", "of no machine"},
           {"fe80::1", "a link-local address"},
           {"::1", "of no machine, a loopback or an embedded IPv4 address"}}) {
    faults += dropped("name server '" + server + "'", why);
  }
  EXPECT_EQ(warned.text(), faults);
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path("/resolv.conf")));
  EXPECT_EQ(std::filesystem::status(folder.path("/elsewhere")).permissions(), std::filesystem::perms(0640));
}

TEST_F(IdentityTest, ResolvConfThatWasAbsentGoesAndWhatOthersWriteStays) {
  auto const applier = resolvConf();
  serversAre({"10.0.0.2"});
  EXPECT_EQ(folder.read("/resolv.conf"), firstLine + "nameserver 10.0.0.2\n");
  serversAre({});
  EXPECT_EQ(folder.read("/resolv.conf"), "(absent)");
  serversAre({"10.0.0.2"});
  folder.write("/resolv.conf", "of somebody else");
  serversAre({"10.0.0.3"});
  EXPECT_EQ(folder.read("/resolv.conf"), firstLine + "nameserver 10.0.0.3\n");
  serversAre({});
  EXPECT_EQ(folder.read("/resolv.conf"), "of somebody else");
  serversAre({"10.0.0.2"});
  folder.write("/resolv.conf", "of somebody else");
  serversAre({});
  EXPECT_EQ(folder.read("/resolv.conf"), "of somebody else");
  ResolvConfApplier const inNoFolder(entities, folder.path("/none/resolv.conf"), folder.path("/run"));
  serversAre({"10.0.0.2"});
  EXPECT_EQ(warned.text(), "SYSTEM_FILE_FAILED: A file of the system is not changed: cannot write " +
                               folder.path("/none/resolv.conf: No such file or directory\n"));
}

TEST_F(IdentityTest, ResolvConfThatIsAMountIsRewritten) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to mount";
  ASSERT_EQ(unshare(CLONE_NEWNS), 0);
  ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
  folder.write("/outside", before);
  folder.write("/resolv.conf", "");
  ASSERT_EQ(std::system(("mount --bind " + folder.path("/outside ") + folder.path("/resolv.conf")).c_str()),
            0);
  auto const applier = resolvConf();
  serversAre({"10.0.0.2"});
  EXPECT_EQ(folder.read("/outside"), firstLine + "nameserver 10.0.0.2\n");
  applier->undo();
  EXPECT_EQ(folder.read("/outside"), before);
  EXPECT_EQ(umount(folder.path("/resolv.conf").c_str()), 0);
  EXPECT_EQ(warned.text(), "");
}

TEST_F(IdentityTest, LogServersAreWrittenAndRsyslogIsTold) {
  std::string const file = "/rsyslog.d/zt.conf", path = folder.path(file);
  folder.write("/rsyslog.d/other.conf", "");
  auto const applier = [&] {
    return std::make_unique<LogHostApplier>(entities, path, CommandLine{"reread", "it"});
  };
  auto const hostIs = [&](std::string const& host, std::uint16_t port = 514) {
    entities.logConfig->vrfLoggingHostIs("default")->loggingHostIs(host, {host, port});
  };
  auto hosts = applier();
  hostIs("10.0.0.9", 1514);
  for (char const* host : {"2001:db8::9", "log.example", "x\")\n*.* /tmp/x", "a b"}) hostIs(host);
  entities.logConfig->vrfLoggingHostIs("blue\nx")->loggingHostIs("10.0.0.8", {"10.0.0.8", 514});
  time.settle();
  auto const action = [](std::string const& host, std::string const& port) {
    return "*.* action(type=\"omfwd\" target=\"" + host + "\" port=\"" + port + "\" protocol=\"udp\")\n";
  };
  std::string const mine = "mine", first = "# Written by zerotouchd, which also removes this file.\n";
  EXPECT_EQ(folder.read(file), first + "# Not sent to: the servers of VRF blue?x\n" +
                                   action("10.0.0.9", "1514") + action("2001:db8::9", "514") +
                                   action("log.example", "514"));
  EXPECT_EQ(warned.text(),
            dropped("log server 'a b'", "something else than letters, digits, dashes and dots") +
                dropped("log server 'x\")?*.* /tmp/x'",
                        "a label begins or ends with something else than a letter or a digit"));
  ASSERT_EQ(children.started.size(), 1U);
  EXPECT_EQ(children.last().argv, (Strings{"/usr/bin/env", "--", "reread", "it"}));

  // Changes while the command runs are met by one more run.
  entities.logConfig->vrfLoggingHostDelAll();
  time.settle();
  EXPECT_EQ(folder.read(file), "(absent)");
  EXPECT_EQ(children.started.size(), 1U);
  children.last().child->exitedIs(3);
  ASSERT_EQ(children.started.size(), 2U);
  time.advance(30);
  EXPECT_EQ(children.last().signals, std::vector{SIGKILL});
  children.last().child->killedIs(SIGKILL);
  EXPECT_FALSE(hosts->busy());
  std::string const failed = "LOG_RELOAD_FAILED: The log servers do not count yet: reread it: ";
  EXPECT_TRUE(warned.text().ends_with(failed + "exit status 3\n" + failed + "not done within 30 s\n"));

  // What a killed host or a power cut left is known by its first line, and the file of somebody else is left
  // alone.
  for (std::string const& content :
       {first, first.substr(0, 9), std::string(), std::string(124, '\0'), mine}) {
    folder.write(file, content);
    EXPECT_EQ(applier()->undo(), content != mine);
    EXPECT_EQ(folder.read(file), content != mine ? "(absent)" : mine);
  }
  std::string const soFar = warned.text();
  hostIs("10.0.0.9");
  time.settle();
  EXPECT_EQ(folder.read(file), "mine");
  EXPECT_EQ(warned.text(), soFar + "SYSTEM_FILE_FAILED: A file of the system is not changed: " + path +
                               " belongs to somebody else\n");
}

TEST_F(IdentityTest, ReloadIsTriedUntilItSucceeds) {
  std::string requests;
  ReloadApplier const applier(entities, {"reboot", "now"}, [&] { requests += "requested "; });
  entities.reloadConfig->reasonIs("ZTP RELOAD");
  entities.reloadConfig->reloadTimeIs(Kel::now());
  time.settle();
  ASSERT_EQ(children.started.size(), 1U);
  EXPECT_EQ(children.last().argv,
            (Strings{"/usr/bin/env", "--", "ZEROTOUCH_RELOAD_REASON=ZTP RELOAD", "reboot", "now"}));
  children.last().child->exitedIs(127);
  time.advance(59);
  EXPECT_EQ(children.started.size(), 1U);
  time.advance(1);
  ASSERT_EQ(children.started.size(), 2U);
  time.advance(60);  // and this one hangs
  EXPECT_EQ(children.last().signals, std::vector{SIGKILL});
  children.last().child->killedIs(SIGKILL);
  time.advance(60);
  ASSERT_EQ(children.started.size(), 3U);
  children.last().child->exitedIs(0);
  time.advance(1000);
  EXPECT_EQ(children.started.size(), 3U);
  EXPECT_EQ(requests, "requested ");
  std::string const failed = "RELOAD_FAILED: Cannot reload the system: reboot now: ";
  EXPECT_EQ(warned.text(), failed + "exit status 127; tried again in 60 s\n" + failed +
                               "not done within 60 s; tried again in 60 s\n");
}

}  // namespace
}  // namespace Linux
