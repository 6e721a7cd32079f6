// sign and verify: boot files whose signature a switch checks.
#include "platform/kel/Clock.h"
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"
#include "zerotouch/trust/Trust.h"

namespace ZeroTouchCommand {

namespace {

ZeroTouch::TrustLibrary const& library() {
  Kel::String failure;
  auto const* const result = ZeroTouch::trustLibrary(failure);
  if (result == nullptr) throw Refused("signatures cannot be used: " + failure);
  return *result;
}

Kel::Value listOf(std::vector<std::string> const& texts) {
  Kel::ValueList result;
  for (auto const& text : texts) result.emplace_back(text);
  return result;
}

std::string joined(std::vector<std::string> const& texts) {
  std::string result;
  for (auto const& text : texts) result += (result.empty() ? "" : ", ") + text;
  return result;
}

Kel::Value jsonOf(ZeroTouch::Signature const& signature, double bytes) {
  return Kel::ValueMap{{"signer", signature.signer},
                       {"fingerprint", signature.fingerprint},
                       {"signedAt", signature.signedAt},
                       {"validUntil", signature.validUntil},
                       {"serialNumbers", listOf(signature.serialNumbers)},
                       {"bytes", bytes}};
}

Rows rowsOf(ZeroTouch::Signature const& signature, std::uint64_t bytes) {
  Rows rows{{"Signed by:", signature.signer}, {"Fingerprint:", signature.fingerprint}};
  if (signature.signedAt > 0) rows.push_back({"Signed at:", ZeroTouch::utcTime(signature.signedAt)});
  if (signature.validUntil != Kel::never)
    rows.push_back({"Valid until:", ZeroTouch::utcTime(signature.validUntil)});
  rows.push_back(
      {"For switches:", signature.serialNumbers.empty() ? "all" : joined(signature.serialNumbers)});
  rows.push_back({"Content:", std::to_string(bytes) + " bytes"});
  return rows;
}

}  // namespace

void sign(Context const& context, SigningWords const& words) {
  ZeroTouch::SigningRequest request;
  request.content = words.file;
  request.output = words.output.empty() ? words.file + ".cms" : words.output;
  request.certificate = words.certificate;
  request.key = words.key;
  request.serialNumbers = words.serials;
  request.now = Kel::now();
  if (!words.validUntil.empty()) {
    request.validUntil = ZeroTouch::timeOf(words.validUntil);
    if (!request.validUntil)
      throw WrongUsage("--valid-until: '" + words.validUntil + "' is no date as in 2027-01-31");
    if (*request.validUntil < request.now) throw Refused(words.validUntil + " has passed");
  }
  if (auto const failure = library().sign(request); !failure.empty()) throw Refused(failure);
  if (context.json)
    printJson(Kel::ValueMap{{"file", request.output}});
  else
    print("Signed: " + request.output + "\n");
}

void verify(Context const& context, VerifyingWords const& words) {
  ZeroTouch::Expectations expectations;
  expectations.signers = words.signers;
  if (!words.serial.empty()) expectations.serialNumber = words.serial;
  expectations.now = ZeroTouch::timeForDates(Kel::now());
  auto const verification = library().verify(words.file, -1, expectations);
  while (verification->work()) continue;
  if (!verification->objection().empty()) throw Refused(verification->objection());
  auto const& signature = verification->signature();
  auto const bytes = verification->size();
  context.json ? printJson(jsonOf(signature, static_cast<double>(bytes)))
               : print(facts(rowsOf(signature, bytes)));
}

}  // namespace ZeroTouchCommand
