// The tests; or, when a test asks for it, a process that changes a port and dies.
#include "tests/unit/linux/NetworkTest.h"

namespace {

// Configures Ethernet1, whose device is there already, and ends without putting anything back. The exit
// status tells whether all of it reached the kernel.
int configureAndDie(char const* runDirectory) {
  using namespace Linux;
  Wire::IntfId const port("Ethernet1");
  Entities const entities = newEntities();
  auto* const adapter = new Adapter(entities, testConfig(runDirectory));
  configureAll(entities, port);
  bool const done = Kel::Loop::instance().runUntil(
      [&] {
        auto const& addresses = adapter->netlink().addresses(adapter->ports()->port(port).ifIndex);
        return addresses.contains(*Wire::Ip6AddrWithMask::fromString("2001:db8::5/64"));
      },
      10);
  _exit(done ? 0 : 1);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--configure-and-die") return configureAndDie(argv[2]);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
