// The DHCP client's lease file, of which only the last identifier is kept.
#include "programs/zerotouch-dhclient/Shim.h"
#include "tests/fuzz/Fuzz.h"

void fuzz(std::string_view input) {
  static ScratchFile const file("dhclient.leases");
  file.write(input);
  makeLeaseFile(file.path().c_str());
  KEL_ASSERT(file.read() == input, "a file that is there is left alone");

  std::string const lines = "\n" + std::string(input);
  std::size_t const last = lines.rfind("\ndefault-duid ");
  forgetLeases(file.path().c_str(), {});
  std::string const kept = file.read();
  KEL_ASSERT(kept.empty() == (last == lines.npos), "an identifier, if there was one");
  KEL_ASSERT(kept.empty() || lines.compare(last + 1, kept.size(), kept) == 0, "the last one");
  KEL_ASSERT(kept.empty() || kept.ends_with('\n') || lines.ends_with(kept), "to the end of its line");
  forgetLeases(file.path().c_str(), {});
  otherDevices(file.path().c_str(), {});
  KEL_ASSERT(file.read() == kept, "nothing more to forget");
}
