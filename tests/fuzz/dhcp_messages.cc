// What a DHCP server may send to a rehearsal: a frame, by itself, and as a message of each kind. It goes the
// way of an answer, and what comes out of it is a plain text.
#include <cstring>

#include "programs/zerotouch/rehearse/Frames.h"
#include "programs/zerotouch/rehearse/Rehearsal.h"
#include "tests/fuzz/Fuzz.h"

namespace {

using namespace Rehearsal;

constexpr Wire::EthAddr port{{2, 0, 0, 1, 0, 1}};
constexpr Asking asking{.transaction = 0x010203, .port = port};

void check(ZeroTouch::AnswerFamily family, std::optional<Answer> answer) {
  if (!answer) return;
  bool const six = family != ZeroTouch::AnswerFamily::dhcpv4;
  for (auto const& [code, value] : answer->options) {
    std::string const shown = optionWords(six, code, value);
    KEL_ASSERT(isPrintable(shown) && shown.size() <= 403, "a plain and short text");
  }
  Hearing hearing;
  hearing.routers.push_back({"fe80::1", family == ZeroTouch::AnswerFamily::dhcpv6});
  Offered offered;
  offered.family = family;
  offered.answer = std::move(*answer);
  hearing.offers.push_back(std::move(offered));
  auto const* const chosen = choose(hearing, "et1");
  auto const& only = hearing.offers.front();
  KEL_ASSERT((chosen != nullptr) == only.because.empty(), "an answer is chosen, or there is a reason");
  KEL_ASSERT(chosen == nullptr || isPrintable(chosen->result->bootFileName()), "a plain text");
  KEL_ASSERT(isHarmless(only.because), "a plain text");
  for (auto const& line : judge(&hearing, nullptr, "et1").toMend)
    KEL_ASSERT(isHarmless(line), "a plain text");
}

}  // namespace

void fuzz(std::string_view input) {
  Bytes const bytes(input.begin(), input.end());
  if (auto const packet = readFrame(bytes)) {
    KEL_ASSERT(packet->payload.data() + packet->payload.size() <= bytes.data() + bytes.size(),
               "within the frame");
    neighbourAdvertisement(port, *packet);
  }
  // What the reader compares with the question is made to fit, so that the rest is reached.
  Question question;
  question.identifier = {0, 3, 0, 1, 2, 0, 0, 0, 0, 1};
  Bytes four = bytes;
  if (four.size() > 34) {
    std::memcpy(&four[4], "\0\1\2\3", 4);
    std::ranges::copy(port.bytes, &four[28]);
  }
  check(ZeroTouch::AnswerFamily::dhcpv4, readOffer(four, asking));
  Bytes six{2, 1, 2, 3, 0, 1, 0, 10};
  six.insert(six.end(), question.identifier.begin(), question.identifier.end());
  six.insert(six.end(), bytes.begin(), bytes.end());
  check(ZeroTouch::AnswerFamily::dhcpv6, readAdvertise(six, question, asking));
  six[0] = 7;
  check(ZeroTouch::AnswerFamily::statelessDhcpv6, readReply(six, question, asking));
}
