// Paths in the state tree: "/" before each segment, and in a segment "~0" for "~" and "~1" for "/", as in a
// JSON pointer (RFC 6901): keys are names of interfaces and the like, and may hold a "/". The root is "/".
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Statebase {

// The unescaped segments; nothing when `path` is malformed.
std::optional<std::vector<std::string>> splitPath(std::string_view path);

// `path` with one more segment.
std::string join(std::string_view path, std::string_view segment);

// Whether `path` is `ancestor` itself or lies below it.
bool isWithin(std::string_view path, std::string_view ancestor);

}  // namespace Statebase
