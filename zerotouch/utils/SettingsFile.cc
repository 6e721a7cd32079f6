#include "zerotouch/utils/SettingsFile.h"

#include <fstream>

#include "platform/kel/WholeFile.h"

namespace ZeroTouch {

std::optional<Settings> readSettings(Kel::String const& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  Settings settings;
  for (Kel::String line; std::getline(file, line);) {
    std::size_t const equals = line.find('=');
    if (equals != Kel::String::npos) settings[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return settings;
}

Kel::String writeSettings(Kel::String const& path, Settings const& settings) {
  Kel::String content;
  for (auto const& [key, value] : settings) content.append(key).append("=").append(value).append("\n");
  return Kel::replaceFile(path, content);
}

}  // namespace ZeroTouch
