// The way in for libFuzzer.
#include "tests/fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(char const* data, std::size_t size) {
  fuzz({data, size});
  return 0;
}
