#include "platform/kel/Trace.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

#include "platform/kel/Clock.h"

namespace Kel {

namespace {

struct Registry {
  std::vector<TraceFacility*> facilities;
  std::map<String, int> levels;
  TraceSink sink;

  int level(String const& name) const {
    auto found = levels.find(name);
    if (found == levels.end()) found = levels.find("*");
    return found == levels.end() ? -1 : found->second;
  }
};

// Never destroyed: facilities of other libraries leave it at exit.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

}  // namespace

TraceFacility::TraceFacility(char const* name) : name_(name), level_(registry().level(name)) {
  registry().facilities.push_back(this);
}

TraceFacility::~TraceFacility() { std::erase(registry().facilities, this); }

void TraceFacility::write(int level, String const& text) const {
  if (registry().sink) {
    registry().sink(*this, level, text);
  } else {
    std::fprintf(stderr, "%.6f %s %d %s\n", now(), name_, level, text.c_str());
  }
}

String traceIs(String const& setting) {
  std::map<String, int> levels;
  std::istringstream parts(setting);
  for (String part; std::getline(parts, part, ',');) {
    std::size_t const equals = part.find('=');
    bool const oneDigit = equals != String::npos && equals + 2 == part.size() && part[equals + 1] >= '0' &&
                          part[equals + 1] <= '9';
    if (!oneDigit || equals == 0)
      return "'" + part + "' is no trace setting (expected FACILITY=LEVEL, LEVEL 0 to 9)";
    levels[part.substr(0, equals)] = part[equals + 1] - '0';
  }
  registry().levels = std::move(levels);
  for (TraceFacility* facility : registry().facilities) facility->levelIs(registry().level(facility->name()));
  return {};
}

void traceSinkIs(TraceSink sink) { registry().sink = std::move(sink); }

}  // namespace Kel
