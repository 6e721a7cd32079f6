// A signed boot file. Nobody has the key of the authority any more, so nothing may be believed but the one
// content that it has signed, whatever stands around it.
#include "tests/fuzz/Fuzz.h"
#include "zerotouch/trust/Trust.h"

void fuzz(std::string_view input) {
  static std::string failure;
  static auto const* const library = ZeroTouch::trustLibrary(failure);
  KEL_ASSERT(library != nullptr, "the library can be loaded");
  static ScratchFile const file, content;
  file.write(input);
  int const output = open(content.path().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  auto const verification = library->verify(
      file.path(), output,
      {.signers = PROJECT_FOLDER "/tests/fuzz/signers.pem", .serialNumber = {}, .now = {}, .newest = {}});
  for (std::size_t pieces = 0; verification->work(); ++pieces)
    KEL_ASSERT(pieces <= input.size() + 1, "it comes to an end");
  close(output);
  auto const& objection = verification->objection();
  KEL_ASSERT(isHarmless(objection), "what is said can be shown");
  KEL_ASSERT(content.read().size() == verification->size(), "what was counted");
  KEL_ASSERT(objection.empty() != verification->signature().signer.empty(),
             "who has signed, or why it does not count");
  if (objection.empty()) KEL_ASSERT(content.read() == "#!/bin/sh\necho hello\n", "what was signed");
}
