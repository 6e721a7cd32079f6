// What an HTTP request says about the switch that sends it.
#pragma once

#include <vector>

#include "platform/model/entitymib.h"

namespace ZeroTouch {

inline constexpr char const* softwareVersionPath = "/etc/kvo-version";
inline constexpr char const* architecturePath = "/etc/arch";

// The header lines, in their order: MAC address, model, serial number, hardware revision, and, as far as the
// two files have them, software version and architecture. No line holds a control byte.
std::vector<Kel::String> requestHeaders(Wire::EthAddr const& systemMacAddr, EntityMib::Fru const& root,
                                        Kel::String const& versionPath = softwareVersionPath,
                                        Kel::String const& archPath = architecturePath);

}  // namespace ZeroTouch
