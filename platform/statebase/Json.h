// JSON text to and from Kel::Value. The order of members is kept in both directions.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/kel/Value.h"

namespace Statebase {

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

// Where the members of a document stand: the line of each, by its path (Path.h) in the document. A member
// whose name is a path itself (it begins with "/") stands under that path.
using JsonLines = std::map<std::string, unsigned>;

// Throws JsonError.
Kel::Value parseJson(std::string_view text, JsonLines* lines = nullptr);

// On one line, or indented by `indent` blanks per level. Bytes that are no UTF-8 are replaced.
std::string dumpJson(Kel::Value const& value, int indent = -1);

// The member `name` of an object; nullptr when there is none.
Kel::Value const* member(Kel::Value const& object, std::string_view name);

}  // namespace Statebase
