// Which URL a DHCP answer asks for.
#pragma once

#include "platform/kel/Types.h"

namespace ZeroTouch {

struct BootFile {
  Kel::String url;        // empty when there is an objection
  Kel::String scheme;     // "http", "https", "ftp" or "tftp"
  Kel::String objection;  // why the name is no URL that can be downloaded; empty when it is one
};

// A server name means TFTP. Without one the boot file's name is the URL, when its scheme is, to the letter,
// "http", "https", "ftp" or "tftp".
BootFile bootFile(Kel::String const& serverName, Kel::String const& bootFileName);

}  // namespace ZeroTouch
