#include "platform/linux/links/LinkModes.h"

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

namespace {

#define BITS(name, ...) constexpr int name[] = {__VA_ARGS__}
#define BIT(name) ETHTOOL_LINK_MODE_##name##_Full_BIT

// Drivers older than the modes of 2016 report any 10 gigabit port as 10000baseT.
BITS(modes10G, BIT(10000baseT), BIT(10000baseKX4), BIT(10000baseKR), ETHTOOL_LINK_MODE_10000baseR_FEC_BIT,
     BIT(10000baseCR), BIT(10000baseSR), BIT(10000baseLR), BIT(10000baseLRM), BIT(10000baseER));
BITS(modes25G, BIT(25000baseCR), BIT(25000baseKR), BIT(25000baseSR));
BITS(modes40G, BIT(40000baseKR4), BIT(40000baseCR4), BIT(40000baseSR4), BIT(40000baseLR4));
BITS(modes50G, BIT(50000baseCR2), BIT(50000baseKR2), BIT(50000baseSR2));
BITS(modes50G1, BIT(50000baseKR), BIT(50000baseSR), BIT(50000baseCR), BIT(50000baseLR_ER_FR),
     BIT(50000baseDR));
BITS(modes100G, BIT(100000baseKR4), BIT(100000baseSR4), BIT(100000baseCR4), BIT(100000baseLR4_ER4));
BITS(modes100G2, BIT(100000baseKR2), BIT(100000baseSR2), BIT(100000baseCR2), BIT(100000baseLR2_ER2_FR2),
     BIT(100000baseDR2));
BITS(modes200G4, BIT(200000baseKR4), BIT(200000baseSR4), BIT(200000baseLR4_ER4_FR4), BIT(200000baseDR4),
     BIT(200000baseCR4));
BITS(modes400G8, BIT(400000baseKR8), BIT(400000baseSR8), BIT(400000baseLR8_ER8_FR8), BIT(400000baseDR8),
     BIT(400000baseCR8));
// All modes that use twisted pair (Base-T).
BITS(modesBaseT, ETHTOOL_LINK_MODE_10baseT_Half_BIT, BIT(10baseT), ETHTOOL_LINK_MODE_100baseT_Half_BIT,
     BIT(100baseT), ETHTOOL_LINK_MODE_1000baseT_Half_BIT, BIT(1000baseT), BIT(2500baseT), BIT(5000baseT),
     BIT(10000baseT));

#undef BIT
#undef BITS

using enum Interface::EthLinkMode;
using Set = Interface::EthLinkModeSet;

constexpr std::array<LinkModeEntry, 9> table = {{
    {linkMode10G, &Set::mode10G, "10g", SPEED_10000, modes10G},
    {linkMode25G, &Set::mode25G, "25g", SPEED_25000, modes25G},
    {linkMode40G, &Set::mode40G, "40g", SPEED_40000, modes40G},
    {linkMode50G, &Set::mode50G, "50g", SPEED_50000, modes50G},
    {linkMode50G1, &Set::mode50G1, "50g-1", SPEED_50000, modes50G1},
    {linkMode100G, &Set::mode100G, "100g", SPEED_100000, modes100G},
    {linkMode100G2, &Set::mode100G2, "100g-2", SPEED_100000, modes100G2},
    {linkMode200G4, &Set::mode200G4, "200g-4", SPEED_200000, modes200G4},
    {linkMode400G8, &Set::mode400G8, "400g-8", SPEED_400000, modes400G8},
}};

LinkModeMask maskOfBits(std::span<int const> bits) {
  LinkModeMask result;
  for (int const bit : bits) result.set(static_cast<std::size_t>(bit));
  return result;
}

// What a port supports includes its sockets. Drivers that do not say are judged by the socket in use, which
// is twisted pair when the driver does not know; then there has to be a mode for it.
bool isBaseT(LinkSettings const& settings) {
  bool const fibre = settings.supported[ETHTOOL_LINK_MODE_FIBRE_BIT];
  if (fibre || settings.supported[ETHTOOL_LINK_MODE_TP_BIT]) return !fibre;
  return settings.port == PORT_TP && (settings.supported & maskOfBits(modesBaseT)).any();
}

}  // namespace

std::span<LinkModeEntry const> linkModeTable() { return table; }

LinkModeMask maskOf(LinkModeEntry const& entry) { return maskOfBits(entry.bits); }

LinkModeMask const& speedModes() {
  static LinkModeMask const all = [] {
    LinkModeMask result;
    for (auto const& entry : table) result |= maskOf(entry);
    return result;
  }();
  return all;
}

Interface::EthLinkModeSet linkModeCapabilities(LinkSettings const& settings) {
  Interface::EthLinkModeSet result;
  for (auto const& entry : table) result.*entry.member = (settings.supported & maskOf(entry)).any();
  return result;
}

Interface::AutonegCapability autonegCapability(LinkSettings const& settings) {
  if (isBaseT(settings)) return Interface::AutonegCapability::baseT;
  bool const capable = settings.supported[ETHTOOL_LINK_MODE_Autoneg_BIT];
  return capable ? Interface::AutonegCapability::capable : Interface::AutonegCapability::none;
}

void readLinkModes(Kel::String const& deviceName, Interface::EthPhyIntfStatus& status) {
  auto const read = readLinkSettings(deviceName);
  if (!read && errno != EOPNOTSUPP) return;
  LinkSettings const settings = read.value_or(LinkSettings());
  // The capability to negotiate first: a change of the modes restarts the trial of speeds, which looks at
  // both.
  status.autonegCapabilityIs(autonegCapability(settings));
  status.linkModeCapabilitiesIs(linkModeCapabilities(settings));
}

}  // namespace Linux
