// Signed files: which are believed, and why others are not. They are made by openssl and by the command line.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/kel/Clock.h"
#include "platform/kel/WholeFile.h"
#include "tests/unit/support/TemporaryFolder.h"
#include "tests/unit/support/Transcript.h"
#include "zerotouch/trust/Trust.h"

namespace {

using ZeroTouch::Expectations;
using ZeroTouch::utcTime;

class Trust : public ::testing::Test {
 protected:
  Trust() {
    folder.write("/boot", "#!/bin/sh\necho hello\n");
    shell(R"(authority ca ca; authority signer signer ca)");
  }

  void shell(std::string const& commands) const {
    folder.write("/commands", "ZEROTOUCH=" ZEROTOUCH_PROGRAM " PROJECT=" PROJECT_FOLDER
                              "\n. $PROJECT/tests/unit/support/signed_files.sh\n" +
                                  commands + "\n");
    std::string const run = "cd " + folder.path() + " && bash commands >log 2>&1";
    ASSERT_EQ(std::system(run.c_str()), 0) << commands << "\n" << folder.read("/log");
  }

  // What is said of the file "signed".
  std::string verified(Expectations expectations = {}) const {
    std::string failure;
    auto const* const library = ZeroTouch::trustLibrary(failure);
    if (library == nullptr) return failure;
    expectations.signers = folder.path("/ca.pem");
    int const output = open(folder.path("/content").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    auto const verification = library->verify(folder.path("/signed"), output, expectations);
    while (verification->work()) continue;
    close(output);
    std::string text = verification->objection();
    if (std::size_t const at = text.find(folder.path("/")); at != std::string::npos)
      text.erase(at, folder.path("/").size());
    auto const& signature = verification->signature();
    if (!text.empty()) return signature.signer + text;  // nobody is said to have signed it
    EXPECT_EQ(folder.read("/content").size(), verification->size());
    text = "believed: " + signature.signer.substr(3) + " signed " + std::to_string(verification->size()) +
           " bytes for";
    if (signature.serialNumbers.empty()) text += " all";
    for (auto const& serial : signature.serialNumbers) text += " " + serial;
    return signature.validUntil == Kel::never ? text : text + " until " + utcTime(signature.validUntil);
  }

  TemporaryFolder folder;
};

TEST_F(Trust, says_why_a_file_is_not_believed) {
  shell(
      R"(p256='ec -pkeyopt ec_paramgen_curve:P-256' code='keyUsage=digitalSignature\nextendedKeyUsage=codeSigning'
authority ca other; authority signer mallory other; authority signer rsa ca rsa:2048
authority signer ed ca ed25519; authority signer p384 ca ec -pkeyopt ec_paramgen_curve:P-384
authority issue weak ca "$code" 365 rsa:1024; authority issue expired ca "$code" past $p256
authority issue server ca 'keyUsage=digitalSignature\nextendedKeyUsage=serverAuth' 365 $p256
authority issue encipher ca keyUsage=keyEncipherment 365 rsa:2048
authority issue between ca 'basicConstraints=CA:TRUE\nkeyUsage=keyCertSign' 365 $p256; authority signer below between)");
  for (auto const& [commands, said] : transcript("signatures.txt")) {
    shell(commands);
    EXPECT_EQ(verified({.signers = "", .serialNumber = {}, .now = Kel::now(), .newest = {}}) + "\n", said)
        << commands;
  }
}

TEST_F(Trust, holds_the_file_against_the_switch_and_the_clock) {
  constexpr Kel::Seconds day = 86'400;
  shell("\"$ZEROTOUCH\" sign --certificate signer.pem --key signer.key --serial SN1 --valid-until " +
        utcTime(Kel::now() + 7 * day) + " boot -o signed");
  Kel::Seconds const now = Kel::now();
  std::string const believed = "believed: signer signed 21 bytes for SN1 until ";
  for (auto const& [expectations, said] : std::vector<std::pair<Expectations, std::string>>{
           {{"", "SN1", now, now - 100}, believed},
           {{"", "SN11", now, {}}, "the file is for other switches: SN1"},
           {{"", {}, now + 8 * day, {}}, "the file was valid until "},
           {{"", {}, now + 3660 * day, {}},
            "the certificate of its signer's authority (CN=ca) has expired on "},
           {{"", {}, 0.0, {}}, "the certificate of its signer's authority (CN=ca) is not valid before "},
           {{"", {}, {}, {}}, believed},
           {{"", {}, now, now + 100}, "the file was signed at "}})
    EXPECT_TRUE(verified(expectations).starts_with(said)) << verified(expectations) << "\n" << said;
  EXPECT_EQ(ZeroTouch::timeForDates(0), std::nullopt);
  EXPECT_EQ(ZeroTouch::timeForDates(*ZeroTouch::timeOf("2100-01-01T00:00:00Z")), 4'102'444'800);
  for (char const* const text : {"", "soon", "2027-02-30", "2027-01-31T12:00", "2027-01-31 "})
    EXPECT_EQ(ZeroTouch::timeOf(text), std::nullopt) << text;
}

TEST_F(Trust, every_changed_byte_is_refused) {
  shell("\"$ZEROTOUCH\" sign --certificate signer.pem --key signer.key --serial SN1 boot -o signed");
  std::string const whole = folder.read("/signed");
  Expectations const expectations{.signers = "", .serialNumber = "SN1", .now = Kel::now(), .newest = {}};
  ASSERT_TRUE(verified(expectations).starts_with("believed: "));
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (int const change : {0x01, 0x20, 0x80, 0xff}) {
      std::string altered = whole;
      altered[i] = static_cast<char>(altered[i] ^ change);
      folder.write("/signed", altered);
      EXPECT_FALSE(verified(expectations).starts_with("believed: ")) << i << " " << change;
    }
    folder.write("/signed", whole.substr(0, i));
    EXPECT_FALSE(verified(expectations).starts_with("believed: ")) << i << " bytes";
  }
}

}  // namespace
