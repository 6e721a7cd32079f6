#include "zerotouch/sm/Pacing.h"

#include <algorithm>
#include <cmath>

#include "platform/kel/Clock.h"
#include "platform/kel/Format.h"
#include "platform/kel/Random.h"
#include "zerotouch/agent/Policy.h"

namespace ZeroTouch {

namespace {

constexpr Kel::Seconds longestAsked = 600;
constexpr Kel::Seconds longestDownload = 86'400;
constexpr double longestQuery = 4;  // in described ones
constexpr unsigned mostDoublings = 30;

// A time as people read it: whole seconds, but no wait is shown as 0 s.
Kel::String shown(Kel::Seconds time) { return Kel::format("%d s", std::max(std::lround(time), 1L)); }

Kel::Seconds doubled(Kel::Seconds time, unsigned times) {
  return std::ldexp(time, static_cast<int>(std::min(times, mostDoublings)));
}

}  // namespace

Wait Pacing::beforeFirstQuery(Kel::Seconds described) const {
  Kel::Seconds const extra = policy()->pacing()->startJitter() * Kel::random();
  if (extra <= 0) return {described, ""};
  return {described + extra, "the ports, and " + shown(extra) + " at random before the first query"};
}

Wait Pacing::forAnswers(Kel::Seconds described, unsigned failed) const {
  Kel::Seconds time = described;
  if (policy()->pacing()->retryBackoffMax() > 0) time = doubled(described, failed);
  if (policy()->dhcp()->clientTiming() == ClientTiming::rfc) time = Kel::never;
  time = std::min(time, longestQuery * described);
  if (time <= described) return {described, ""};
  return {time, shown(time) + " for answers"};
}

Wait Pacing::beforeDownload(Kel::Seconds described, unsigned failed) const {
  return pause(described, doubled(described, failed), failed, "the next download");
}

Wait Pacing::beforeAttempt(Kel::Seconds described, unsigned failed) const {
  return pause(described, doubled(described, std::max(failed, 1U) - 1), failed, "the next attempt");
}

Wait Pacing::pause(Kel::Seconds described, Kel::Seconds grown, unsigned failed, char const* before) const {
  auto const settings = policy()->pacing();
  grown = std::max(described, std::min(grown, settings->retryBackoffMax()));
  Kel::Seconds const asked = notBefore_ - Kel::now();
  Kel::Seconds const least = std::max(grown, asked);
  Kel::Seconds const time = std::isinf(least) ? least : least * (1 + settings->retryJitter() * Kel::random());
  if (time <= described) return {described, ""};
  Kel::String why = shown(time) + " before " + before;
  if (asked > grown) {
    why += ": the server has asked for a pause of " + shown(asked);
  } else if (grown > described) {
    why += Kel::format(": %s after %u failed %s", shown(grown), failed, failed == 1 ? "attempt" : "attempts");
  }
  if (time > least) why += ", " + shown(time - least) + " of it at random";
  return {time, why};
}

Wait Pacing::forDownload(Kel::Seconds described) const {
  Kel::Seconds const stall = policy()->download()->stallLimit();
  if (stall <= 0) return {described, ""};
  return {longestDownload, "the download, unless nothing moves for " + shown(stall)};
}

void Pacing::serverAsksFor(Kel::Seconds pause) {
  if (policy()->pacing()->retryAfter()) notBefore_ = Kel::now() + std::clamp(pause, 0.0, longestAsked);
}

}  // namespace ZeroTouch
