#include "zerotouch/utils/SettingsFile.h"

#include <sstream>

#include "platform/kel/WholeFile.h"

namespace ZeroTouch {

std::optional<Settings> readSettings(Kel::String const& path) {
  auto const contents = Kel::readFile(path);
  if (!contents) return std::nullopt;
  Settings settings;
  std::istringstream lines(*contents);
  for (Kel::String line; std::getline(lines, line);) {
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
