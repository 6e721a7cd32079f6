#include "platform/linux/LinkSettings.h"

#include <linux/ethtool.h>
#include <linux/if.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/linux/Descriptor.h"

namespace Linux {

namespace {

constexpr std::size_t bitsPerWord = 32;
constexpr std::size_t maskWords = LinkModeMask{}.size() / bitsPerWord;
constexpr std::size_t baseWords = sizeof(ethtool_link_settings) / sizeof(std::uint32_t);
constexpr std::size_t maxKernelWords = 127;  // what the kernel can count to

// What the ioctl takes: the fixed part, then the masks supported, advertising and of the link partner.
struct Request {
  alignas(ethtool_link_settings) std::array<std::uint32_t, baseWords + 3 * maxKernelWords> words{};

  ethtool_link_settings& base() { return *reinterpret_cast<ethtool_link_settings*>(words.data()); }
  std::size_t maskLength() {
    return static_cast<std::size_t>(std::max<int>(base().link_mode_masks_nwords, 0));
  }
  std::uint32_t* mask(std::size_t number) { return words.data() + baseWords + number * maskLength(); }
};

bool call(Kel::String const& deviceName, Request& request) {
  Descriptor const socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq interface {};
  if (deviceName.size() >= sizeof interface.ifr_name) {
    errno = ENODEV;
    return false;
  }
  std::ranges::copy(deviceName, interface.ifr_name);
  interface.ifr_data = reinterpret_cast<char*>(request.words.data());
  return ioctl(socket.get(), SIOCETHTOOL, &interface) == 0;
}

// The first call fails in order to tell, as a negative number, how long the kernel's masks are.
bool read(Kel::String const& deviceName, Request& request) {
  request.base().cmd = ETHTOOL_GLINKSETTINGS;
  if (!call(deviceName, request)) return false;
  auto const length = static_cast<__s8>(-request.base().link_mode_masks_nwords);
  request = {};
  request.base().cmd = ETHTOOL_GLINKSETTINGS;
  request.base().link_mode_masks_nwords = length;
  return call(deviceName, request);
}

LinkModeMask maskFrom(std::uint32_t const* words, std::size_t count) {
  LinkModeMask result;
  for (std::size_t bit = 0; bit < std::min(count, maskWords) * bitsPerWord; ++bit) {
    result[bit] = (words[bit / bitsPerWord] >> bit % bitsPerWord & 1) != 0;
  }
  return result;
}

void maskTo(LinkModeMask const& mask, std::uint32_t* words, std::size_t count) {
  std::fill(words, words + count, 0);
  for (std::size_t bit = 0; bit < std::min(count, maskWords) * bitsPerWord; ++bit) {
    if (mask[bit]) words[bit / bitsPerWord] |= std::uint32_t{1} << bit % bitsPerWord;
  }
}

}  // namespace

std::optional<LinkSettings> readLinkSettings(Kel::String const& deviceName) {
  Request request;
  if (!read(deviceName, request)) return std::nullopt;
  ethtool_link_settings const& base = request.base();
  return LinkSettings{base.autoneg == AUTONEG_ENABLE,
                      base.speed,
                      base.duplex,
                      base.port,
                      maskFrom(request.mask(0), request.maskLength()),
                      maskFrom(request.mask(1), request.maskLength())};
}

Kel::String writeLinkSettings(Kel::String const& deviceName, LinkSettings const& settings) {
  Request request;
  if (!read(deviceName, request)) return std::strerror(errno);
  ethtool_link_settings& base = request.base();
  base.cmd = ETHTOOL_SLINKSETTINGS;
  base.autoneg = settings.autoneg ? AUTONEG_ENABLE : AUTONEG_DISABLE;
  base.speed = settings.speed;
  base.duplex = settings.duplex;
  maskTo(settings.advertising, request.mask(1), request.maskLength());
  return call(deviceName, request) ? "" : std::strerror(errno);
}

}  // namespace Linux
