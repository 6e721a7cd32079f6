#include "platform/linux/settings/SettingKinds.h"

#include <net/if.h>

#include <algorithm>
#include <sstream>

#include "platform/linux/Warnings.h"

namespace Linux {

namespace {

constexpr auto speedUnknown = static_cast<std::uint32_t>(SPEED_UNKNOWN);

Kel::String deviceName(int ifIndex) {
  char name[IF_NAMESIZE];
  return if_indextoname(static_cast<unsigned>(ifIndex), name) != nullptr ? name : "";
}

Kel::String textOf(LinkSettings const& settings) {
  std::ostringstream text;
  text << "was autoneg " << (settings.autoneg ? "on" : "off");
  if (!settings.autoneg) text << " speed " << settings.speed << " duplex " << unsigned{settings.duplex};
  text << " advertising";
  for (std::size_t bit = 0; bit < settings.advertising.size(); ++bit) {
    if (settings.advertising[bit]) text << " " << bit;
  }
  return text.str();
}

// The speed to put back on a port that reported none when it was found because it had no link.
std::uint32_t highestSpeed(LinkSettings const& settings) {
  std::uint32_t result = speedUnknown;
  for (auto const& entry : linkModeTable()) {
    if ((settings.supported & maskOf(entry)).any()) result = entry.speed;
  }
  return result;
}

bool parseFound(std::istringstream& words, LinkSettings& settings) {
  Kel::String word;
  Kel::String autoneg;
  words >> word >> autoneg;
  if (word != "autoneg" || (autoneg != "on" && autoneg != "off")) return false;
  settings.autoneg = autoneg == "on";
  if (!settings.autoneg) {
    Kel::String duplexWord;
    unsigned duplex = 0;
    words >> word >> settings.speed >> duplexWord >> duplex;
    if (!words || word != "speed" || duplexWord != "duplex") return false;
    settings.duplex = static_cast<std::uint8_t>(duplex);
    if (settings.speed == speedUnknown) settings.speed = highestSpeed(settings);
  }
  if (!(words >> word) || word != "advertising") return false;
  settings.advertising.reset();
  for (std::size_t bit = 0; words >> bit;) {
    if (bit >= settings.advertising.size()) return false;
    settings.advertising.set(bit);
  }
  return words.eof();
}

LinkModeEntry const* entryOf(Kel::String const& word) {
  auto const found = std::ranges::find(linkModeTable(), std::string_view(word), &LinkModeEntry::word);
  return found == linkModeTable().end() ? nullptr : &*found;
}

}  // namespace

Kel::String linkModeText(Interface::EthPhyIntfConfig const& config) {
  using enum Interface::EthLinkMode;
  switch (config.linkModeLocal()) {
    case linkModeDefault:
      return "";
    case linkModeAutoneg40G:
      return "auto 40g";
    case linkModeAutoneg: {
      Kel::String text = "auto";
      if (!config.advertisedModesConfiguredLocal()) return text;
      for (auto const& entry : linkModeTable()) {
        if (config.advertisedModesLocal().*entry.member) text += " " + Kel::String(entry.word);
      }
      return text;
    }
    default:
      break;
  }
  auto const found = std::ranges::find(linkModeTable(), config.linkModeLocal(), &LinkModeEntry::mode);
  return found == linkModeTable().end() ? "" : "forced " + Kel::String(found->word);
}

Kel::String applyLinkModeText(Kel::String const& value, LinkSettings& settings) {
  LinkSettings wanted = settings;
  std::istringstream words(value);
  Kel::String word;
  words >> word;
  if (word == "was") {
    if (!parseFound(words, wanted)) return "not understood";
  } else if (word == "forced" || word == "auto") {
    bool const forced = word == "forced";
    LinkModeMask modes;
    for (LinkModeEntry const* entry = nullptr; words >> word; modes |= maskOf(*entry)) {
      entry = entryOf(word);
      if (entry == nullptr) return "unknown speed '" + word + "'";
      if (forced) wanted.speed = entry->speed;
    }
    if (modes.none()) modes = speedModes();
    if ((modes & settings.supported).none()) return "the device does not support it";
    wanted.autoneg = !forced;
    if (forced) {
      wanted.duplex = DUPLEX_FULL;
    } else {
      // Pause, the sockets and error correction stay as they are.
      wanted.advertising = (settings.advertising & ~speedModes()) | (settings.supported & modes);
      wanted.advertising.set(ETHTOOL_LINK_MODE_Autoneg_BIT);
    }
  } else {
    return "not understood";
  }
  settings = wanted;
  return {};
}

bool linkModeTaken(LinkSettings const& wanted, LinkSettings const& now) {
  if (now.autoneg != wanted.autoneg) return false;
  if (wanted.autoneg) return (now.advertising & speedModes()) == (wanted.advertising & speedModes());
  // Without a link, many drivers do not tell the speed that was forced.
  return now.speed == wanted.speed || now.speed == speedUnknown;
}

std::optional<Kel::String> LinkModeSetting::read(int ifIndex, Kel::String const& /*argument*/) {
  auto const settings = readLinkSettings(deviceName(ifIndex));
  return settings ? std::optional(textOf(*settings)) : std::nullopt;
}

Kel::String LinkModeSetting::write(int ifIndex, Kel::String const& /*argument*/, Kel::String const& value) {
  Kel::String const name = deviceName(ifIndex);
  auto const before = readLinkSettings(name);
  if (!before) return "the device has no such setting";
  LinkSettings wanted = *before;
  if (auto reason = applyLinkModeText(value, wanted); !reason.empty()) return reason;
  if (auto reason = writeLinkSettings(name, wanted); !reason.empty()) return reason;
  auto const now = readLinkSettings(name);
  if (now && !linkModeTaken(wanted, *now)) linkModeIgnored.log(ports_->describe(ifIndex), value);
  return {};
}

}  // namespace Linux
