// The DHCP client's lease file, of which only the last identifier is kept.
#include "programs/zerotouch-dhclient/Shim.h"
#include "tests/fuzz/Fuzz.h"

void fuzz(std::string_view input) {
  static ScratchFile const file("dhclient.leases");
  file.write(input);
  makeLeaseFile(file.path().c_str());
  KEL_ASSERT(file.read() == input, "a file that is there is left alone");

  std::string expected;
  for (std::string_view rest = input; !rest.empty();) {
    std::string_view const before = rest;
    std::string_view const line = take(rest);
    if (line.starts_with("default-duid ")) expected = before.substr(0, before.size() - rest.size());
  }
  forgetLeases(file.path().c_str());
  KEL_ASSERT(file.read() == expected, "the last identifier");
  forgetLeases(file.path().c_str());
  KEL_ASSERT(file.read() == expected, "nothing more to forget");
}
