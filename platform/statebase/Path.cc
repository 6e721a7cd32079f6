#include "platform/statebase/Path.h"

namespace Statebase {

namespace {

std::optional<std::string> unescaped(std::string_view segment) {
  std::string result;
  for (std::size_t i = 0; i < segment.size(); ++i) {
    if (segment[i] != '~') {
      result += segment[i];
      continue;
    }
    if (++i == segment.size() || (segment[i] != '0' && segment[i] != '1')) return std::nullopt;
    result += segment[i] == '0' ? '~' : '/';
  }
  return result;
}

}  // namespace

std::optional<std::vector<std::string>> splitPath(std::string_view path) {
  std::vector<std::string> segments;
  if (path == "/") return segments;
  if (path.empty()) return std::nullopt;
  while (!path.empty()) {
    if (path.front() != '/') return std::nullopt;
    path.remove_prefix(1);
    std::size_t const end = std::min(path.find('/'), path.size());
    auto segment = unescaped(path.substr(0, end));
    if (!segment || segment->empty()) return std::nullopt;
    segments.push_back(*std::move(segment));
    path.remove_prefix(end);
  }
  return segments;
}

std::string join(std::string_view path, std::string_view segment) {
  std::string result(path == "/" ? "" : path);
  result += '/';
  for (char const c : segment) {
    if (c == '~') {
      result += "~0";
    } else if (c == '/') {
      result += "~1";
    } else {
      result += c;
    }
  }
  return result;
}

bool isWithin(std::string_view path, std::string_view ancestor) {
  if (ancestor == "/") return true;
  return path.starts_with(ancestor) && (path.size() == ancestor.size() || path[ancestor.size()] == '/');
}

}  // namespace Statebase
