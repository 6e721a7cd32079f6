#include "platform/statebase/InitialValues.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/statebase/Json.h"

namespace Statebase {

namespace {

std::string contentOf(std::string const& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream content;
  if (stream) content << stream.rdbuf();
  if (!stream || content.bad()) throw InitialValuesError(file + ":1: " + std::strerror(errno));
  return std::move(content).str();
}

// The line of the member at `path`, or of the closest one around it.
unsigned lineOf(JsonLines const& lines, std::string path) {
  while (!path.empty()) {
    if (auto const found = lines.find(path); found != lines.end()) return found->second;
    path.erase(path.rfind('/') == std::string::npos ? 0 : path.rfind('/'));
  }
  return 1;
}

}  // namespace

void applyInitialValues(Tree& tree, std::string const& file) {
  std::string const content = contentOf(file);
  auto const fail = [&](unsigned line, std::string const& reason) {
    throw InitialValuesError(file + ":" + std::to_string(line) + ": " + reason);
  };
  JsonLines lines;
  try {
    Kel::Value const document = parseJson(content, &lines);
    auto const* members = document.as<Kel::ValueMap>();
    if (members == nullptr) throw JsonError(1, "expected an object with paths as its members");
    for (auto const& [path, value] : *members) tree.checkSet(Role::host, {path, value});
    for (auto const& [path, value] : *members) tree.set(Role::host, {path, value});
  } catch (JsonError const& error) {
    fail(error.line(), error.what());
  } catch (Refusal const& refusal) {
    fail(lineOf(lines, refusal.path()), refusal.what());
  }
}

}  // namespace Statebase
