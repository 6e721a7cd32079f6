// Initial values of the state tree, from a JSON file: an object with a member for each path, its value what
// is to be written there, as in {"/entityMib/status": {"systemMacAddr": "02:00:00:00:00:01", "root": {}}}.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/statebase/Tree.h"

namespace Statebase {

// "file:line: reason".
class InitialValuesError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Writes all that `file` holds, in its order, with the rights of the host. Throws InitialValuesError, and
// then has written nothing. An entity that one member creates is not there yet for the path of a later one:
// write it as an object within its holder, or by its own path.
void applyInitialValues(Tree& tree, std::string const& file);

}  // namespace Statebase
