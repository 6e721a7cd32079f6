// Checks for programming errors. What a network, a cable or an operator can cause is never one.
#pragma once

namespace Kel {

// Prints "file:line: Assertion failed: text" to standard error and the system log, then aborts.
// Before that, it writes the line to the descriptor of assertionRecordIs too.
[[noreturn]] void assertionFailed(char const* file, int line, char const* text);

// The file in which a failed assertion leaves its line, so that somebody can tell afterwards; -1 for none.
void assertionRecordIs(int fd);

}  // namespace Kel

#define KEL_ASSERT(condition, text)                     \
  do {                                                  \
    if (!(condition)) [[unlikely]]                      \
      ::Kel::assertionFailed(__FILE__, __LINE__, text); \
  } while (false)
