// The texts of the state tree: JSON, and the paths that name what is in it.
#pragma once

#include <initializer_list>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/kel/EntityType.h"

namespace Statebase {

// A path in the state tree has "/" before each segment, and in a segment "~0" for "~" and "~1" for "/", as in
// a JSON pointer (RFC 6901): keys are names of interfaces and the like, and may hold a "/". The root is "/".

// The unescaped segments; nothing when `path` is malformed.
std::optional<std::vector<std::string>> splitPath(std::string_view path);

// `path` with one more segment.
std::string join(std::string_view path, std::string_view segment);

// Whether `path` is `ancestor` itself or lies below it.
bool isWithin(std::string_view path, std::string_view ancestor);

// JSON text is read into Kel::Value and written from it; the order of members is kept in both directions.

// Deeper documents are refused: nobody needs them, and walking them would eat the stack.
inline constexpr std::size_t maxJsonDepth = 32;

// Why a text is no JSON, and on which line.
class JsonError : public std::runtime_error {
 public:
  JsonError(unsigned line, std::string const& reason) : std::runtime_error(reason), line_(line) {}
  unsigned line() const { return line_; }

 private:
  unsigned line_;
};

// The line on which each member of a document stands, by the path of the member in the document. A member
// whose name begins with "/" is itself a path, and stands under that.
using JsonLines = std::map<std::string, unsigned>;

// Throws JsonError.
Kel::Value parseJson(std::string_view text, JsonLines* lines = nullptr);

// On one line, or indented by `indent` blanks per level. Bytes that are no UTF-8 are replaced.
std::string dumpJson(Kel::Value const& value, int indent = -1);

// The member `name` of an object; nullptr when there is none.
Kel::Value const* member(Kel::Value const& object, std::string_view name);

// For readers who make do with what a document has.

// The member at a path of names; null when one of them is missing.
Kel::Value const& at(Kel::Value const& object, std::span<std::string const> names);
Kel::Value const& at(Kel::Value const& object, std::initializer_list<std::string> names);
// A string; `otherwise` when the value is none.
std::string text(Kel::Value const& value, std::string otherwise = "");
// A number that is not negative: Kel::never for "unlimited", 0 for what is no such number.
double number(Kel::Value const& value);

}  // namespace Statebase
