#include "zerotouch/trust/Trust.h"

#include <dlfcn.h>

#include <array>
#include <cmath>
#include <ctime>

#include "platform/kel/Clock.h"

namespace ZeroTouch {

namespace {

// The library stands beside that of Kel. Its name alone would not do: with the address sanitizer, the loader
// does not know on whose behalf it searches.
Kel::String pathOfLibrary() {
  constexpr char const* name = "libZeroTouchTrust.so";
  Dl_info kel{};
  if (dladdr(reinterpret_cast<void const*>(&Kel::now), &kel) == 0 || kel.dli_fname == nullptr) return name;
  Kel::String const path = kel.dli_fname;
  return path.substr(0, path.rfind('/') + 1) + name;
}

}  // namespace

TrustLibrary const* trustLibrary(Kel::String& failure) {
  static TrustLibrary const* loaded = nullptr;
  failure.clear();
  if (loaded != nullptr) return loaded;
  void* const library = dlopen(pathOfLibrary().c_str(), RTLD_LAZY | RTLD_LOCAL);
  using Factory = TrustLibrary const*();
  auto* const factory =
      library != nullptr ? reinterpret_cast<Factory*>(dlsym(library, "zeroTouchTrust")) : nullptr;
  if (factory != nullptr) return loaded = factory();
  char const* const reason = dlerror();
  failure = reason != nullptr ? reason : "libZeroTouchTrust.so is not complete";
  if (library != nullptr) dlclose(library);
  return nullptr;
}

std::optional<Kel::Seconds> timeForDates(Kel::Seconds now) {
  constexpr Kel::Seconds builtAt = ZEROTOUCH_BUILT_AT;
  return now > builtAt ? std::optional(now) : std::nullopt;
}

Kel::String utcTime(Kel::Seconds since1970) {
  auto const seconds = static_cast<std::time_t>(std::floor(since1970));
  std::tm parts{};
  std::array<char, 64> text{};
  if (gmtime_r(&seconds, &parts) == nullptr) return "";
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::optional<Kel::Seconds> timeOf(Kel::String const& text) {
  constexpr Kel::Seconds endOfDay = 86'399;
  for (auto const& [format, behind] :
       {std::pair("%Y-%m-%dT%H:%M:%SZ", 0.0), std::pair("%Y-%m-%d", endOfDay)}) {
    std::tm parts{};
    char const* const end = strptime(text.c_str(), format, &parts);
    if (end == nullptr || *end != '\0') continue;
    Kel::Seconds const time = static_cast<Kel::Seconds>(timegm(&parts)) + behind;
    // February 30 is no date, though it can be counted.
    if (utcTime(time).starts_with(text.substr(0, text.find('T')))) return time;
  }
  return std::nullopt;
}

}  // namespace ZeroTouch
