#include "platform/kel/Assert.h"

#include <syslog.h>

#include <cstdio>
#include <cstdlib>

namespace Kel {

void assertionFailed(char const* file, int line, char const* text) {
  std::fprintf(stderr, "%s:%d: Assertion failed: %s\n", file, line, text);
  syslog(LOG_CRIT, "%s:%d: Assertion failed: %s", file, line, text);
  std::abort();
}

}  // namespace Kel
