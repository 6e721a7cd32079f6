// Which URL a DHCP answer asks for, and what an HTTP request for it says about the switch.
#pragma once

#include <set>
#include <vector>

#include "platform/kel/Types.h"
#include "platform/model/agent.h"
#include "platform/model/entitymib.h"
#include "zerotouch/sm/Problem.h"

namespace ZeroTouch {

struct BootFile {
  Kel::String url;        // empty when there is an objection
  Kel::String scheme;     // "http", "https", "ftp" or "tftp"
  Kel::String objection;  // why the name is no URL that can be downloaded; empty when it is one
  // What is wrong with the name; also that a TFTP server was named with a URL, which then names a file there.
  Problem problem = Problem::none;
};

// A server name means TFTP. Without one the boot file's name is the URL, when its scheme is, to the letter,
// "http", "https", "ftp" or "tftp", and is followed by "://" and a host. Its scheme has to be among
// `allowed`, unless that is empty.
BootFile bootFile(Kel::String const& serverName, Kel::String const& bootFileName,
                  std::set<Kel::String> const& allowed = {});

// That of a DHCP answer, with a scheme that platform.toml allows.
BootFile bootFileOf(IntfDhcpStatus const& answer);

// The end of a download that has failed: where its URL hardly means what was meant, that is what has to be
// mended.
Trouble toMend(Problem ofName, Trouble const& end);

inline constexpr char const* softwareVersionPath = "/etc/kvo-version";
inline constexpr char const* architecturePath = "/etc/arch";

// The header lines, in their order: MAC address, model, serial number, hardware revision, and, as far as the
// two files have them, software version and architecture. No line holds a control byte.
std::vector<Kel::String> requestHeaders(Wire::EthAddr const& systemMacAddr, EntityMib::Fru const& root,
                                        Kel::String const& versionPath = softwareVersionPath,
                                        Kel::String const& archPath = architecturePath);

}  // namespace ZeroTouch
