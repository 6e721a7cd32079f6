// Which URL a DHCP answer asks for.
#pragma once

#include <optional>

#include "platform/kel/Types.h"

namespace ZeroTouch {

struct BootFile {
  Kel::String url;
  bool http;   // http or https: the request says which switch is asking
  bool https;  // its certificate is not checked
};

// A server name means TFTP. Without one the boot file's name is the URL, when its scheme is, to the letter,
// "http", "https", "ftp" or "tftp"; nothing otherwise.
std::optional<BootFile> bootFile(Kel::String const& serverName, Kel::String const& bootFileName);

}  // namespace ZeroTouch
