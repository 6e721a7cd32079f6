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
constexpr double longestQuery = 4;  // in usual ones
constexpr unsigned mostDoublings = 30;

// A time as people read it: whole seconds, but no wait is shown as 0 s.
Kel::String shown(Kel::Seconds time) { return Kel::format("%d s", std::max(std::lround(time), 1L)); }

Kel::Seconds doubled(Kel::Seconds time, unsigned times) {
  return std::ldexp(time, static_cast<int>(std::min(times, mostDoublings)));
}

}  // namespace

Wait Pacing::beforeFirstQuery(Kel::Seconds usual) const {
  Kel::Seconds const extra = policy()->pacing()->startJitter() * Kel::random();
  if (extra <= 0) return {usual, ""};
  return {usual + extra, "the ports, and " + shown(extra) + " at random before the first query"};
}

Wait Pacing::forAnswers(Kel::Seconds usual, unsigned failed) const {
  Kel::Seconds time = usual;
  if (policy()->pacing()->retryBackoffMax() > 0) time = doubled(usual, failed);
  if (policy()->dhcp()->clientTiming() == ClientTiming::rfc) time = Kel::never;
  time = std::min(time, longestQuery * usual);
  if (time <= usual) return {usual, ""};
  return {time, shown(time) + " for answers"};
}

Wait Pacing::beforeDownload(Kel::Seconds usual, unsigned failed) const {
  return pause(usual, doubled(usual, failed), failed, "the next download");
}

Wait Pacing::beforeAttempt(Kel::Seconds usual, unsigned failed) const {
  return pause(usual, doubled(usual, std::max(failed, 1U) - 1), failed, "the next attempt");
}

Wait Pacing::pause(Kel::Seconds usual, Kel::Seconds grown, unsigned failed, char const* before) const {
  auto const settings = policy()->pacing();
  grown = std::max(usual, std::min(grown, settings->retryBackoffMax()));
  Kel::Seconds const asked = notBefore_ - Kel::now();
  Kel::Seconds const least = std::max(grown, asked);
  Kel::Seconds const time = std::isinf(least) ? least : least * (1 + settings->retryJitter() * Kel::random());
  if (time <= usual) return {usual, ""};
  Kel::String why = shown(time) + " before " + before;
  if (asked > grown) {
    why += ": the server has asked for a pause of " + shown(asked);
  } else if (grown > usual) {
    why += Kel::format(": %s after %u failed %s", shown(grown), failed, failed == 1 ? "attempt" : "attempts");
  }
  if (time > least) why += ", " + shown(time - least) + " of it at random";
  return {time, why};
}

Wait Pacing::forDownload(Kel::Seconds usual) const {
  Kel::Seconds const stall = policy()->download()->stallLimit();
  if (stall <= 0) return {usual, ""};
  return {longestDownload, "the download, unless nothing moves for " + shown(stall)};
}

void Pacing::serverAsksFor(Kel::Seconds pause) {
  if (policy()->pacing()->retryAfter()) notBefore_ = Kel::now() + std::clamp(pause, 0.0, longestAsked);
}

}  // namespace ZeroTouch
