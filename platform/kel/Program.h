// Where programs are found.
#pragma once

#include "platform/kel/Types.h"

namespace Kel {

// Whether the path names a regular file that this process may execute.
bool isProgram(String const& path);

// Whether execvp(3) would find this: a path of a program, or a name that one of the folders in PATH has.
bool isCommand(String const& name);

}  // namespace Kel
