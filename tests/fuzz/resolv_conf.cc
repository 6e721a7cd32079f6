// A domain and a name server from outside (a line each) and what resolv.conf held before (the rest): the file
// holds what can be used of them, and then what it held before.
#include "platform/kel/testing/SimulatedTime.h"
#include "platform/linux/ResolvConfApplier.h"
#include "tests/fuzz/Fuzz.h"

namespace {

void checkLines(std::string_view rest) {
  while (!rest.empty()) {
    std::string_view line = take(rest);
    KEL_ASSERT(isPrintable(line), "a line of text");
    std::string_view const keyword = take(line, " ");
    KEL_ASSERT(keyword == "#" || keyword == "search" || keyword == "nameserver", "a known line");
    if (keyword == "nameserver") KEL_ASSERT(Wire::IpGenAddr::fromString(line), "an address");
  }
}

}  // namespace

void fuzz(std::string_view input) {
  static Kel::testing::SimulatedTime time;
  static ScratchFile const file("resolv.conf");
  std::string_view const domain = take(input);
  auto const server = Wire::IpGenAddr::fromString(take(input));
  file.write(input);
  Linux::Entities entities;
  entities.netConfig = Kel::makePtr<System::NetConfig>();
  entities.netStatus = Kel::makePtr<System::NetStatus>();
  std::string const folder = std::filesystem::path(file.path()).parent_path();
  {
    Linux::ResolvConfApplier const killed(entities, file.path(), folder);
    entities.netConfig->domainNameIs(std::string(domain));
    if (server && !server->isV6()) entities.netConfig->nameServerIs(0, server->v4());
    if (server && server->isV6()) entities.netConfig->v6NameServerIs(0, server->v6());
    time.settle();
    if (file.read() != input) checkLines(file.read());
  }
  Linux::ResolvConfApplier(entities, file.path(), folder).undo();
  KEL_ASSERT(file.read() == input, "as it was");
}
