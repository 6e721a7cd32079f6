// What a configuration script wrote, as an event tells it.
#include "tests/fuzz/Fuzz.h"
#include "zerotouch/fetch/Install.h"

void fuzz(std::string_view input) {
  static ScratchFile const file;
  file.write(input);
  std::string const text = ZeroTouch::scriptOutput(file.path().c_str());
  KEL_ASSERT(text.size() <= 3 * 4096 + 32, "a short text");
  for (std::size_t i = 0; i < text.size(); ++i) {
    auto const byte = static_cast<unsigned char>(text[i]);
    auto const before = i > 0 ? static_cast<unsigned char>(text[i - 1]) : 0U;
    KEL_ASSERT(byte >= 0x20 && byte != 0x7f, "no control character");
    KEL_ASSERT(byte < 0x80 || byte >= 0xa0 || (before >= 0x80 && before != 0xc2),
               "none of the second set either");
  }
}
