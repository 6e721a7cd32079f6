// Tells a TAP device which link modes to say that it supports: it takes over all that ETHTOOL_SLINKSETTINGS
// hands it.
#pragma once

#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "platform/linux/Descriptor.h"

namespace Linux {

inline void supportedIs(std::string const& device, std::vector<int> const& linkModes) {
  constexpr std::size_t base = sizeof(ethtool_link_settings) / sizeof(std::uint32_t);
  alignas(ethtool_link_settings) std::array<std::uint32_t, base + 3 * 127> words{};
  auto& settings = *reinterpret_cast<ethtool_link_settings*>(words.data());
  Descriptor const socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::strncpy(request.ifr_name, device.c_str(), sizeof request.ifr_name - 1);
  request.ifr_data = reinterpret_cast<char*>(words.data());
  settings.cmd = ETHTOOL_GLINKSETTINGS;
  ASSERT_EQ(ioctl(socket.get(), SIOCETHTOOL, &request), 0);
  settings.cmd = ETHTOOL_GLINKSETTINGS;
  settings.link_mode_masks_nwords = static_cast<__s8>(-settings.link_mode_masks_nwords);
  ASSERT_EQ(ioctl(socket.get(), SIOCETHTOOL, &request), 0);
  settings.cmd = ETHTOOL_SLINKSETTINGS;
  std::memset(words.data() + base, 0,
              static_cast<std::size_t>(settings.link_mode_masks_nwords) * sizeof words[0]);
  for (int const mode : linkModes) words[base + static_cast<std::size_t>(mode / 32)] |= 1U << mode % 32;
  ASSERT_EQ(ioctl(socket.get(), SIOCETHTOOL, &request), 0) << std::strerror(errno);
}

}  // namespace Linux
