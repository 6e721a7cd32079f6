// What a configuration script wrote, as an event tells it.
#include "tests/fuzz/Fuzz.h"
#include "zerotouch/fetch/Install.h"

void fuzz(std::string_view input) {
  static ScratchFile const file;
  file.write(input);
  std::string const text = ZeroTouch::scriptOutput(file.path().c_str());
  KEL_ASSERT(text.size() <= 3 * 4096 + 32, "a short text");
  KEL_ASSERT(isHarmless(text), "no control character");
}
