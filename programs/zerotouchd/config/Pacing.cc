#include "programs/zerotouchd/config/Pacing.h"

#include "platform/model/values/Grammar.h"

namespace {

// Longer waits than a day are mistakes.
constexpr int longest = 86'400;
constexpr int mostJitter = 10;

// A number from 0 to `most`.
Setter upTo(int most, std::function<void(double)> take) {
  return [most, take = std::move(take)](toml::node const& node) {
    auto const value = node.value<double>();
    if (!node.is_number() || !value || !(*value >= 0 && *value <= most))
      fail(node.source(), "expected a number from 0 to " + std::to_string(most));
    take(*value);
  };
}

// The servers that count, as their answers name them.
Setter servers(ZeroTouch::DhcpPolicy& policy) {
  auto const one = [&policy](toml::node const& node) {
    auto const given = node.value_exact<std::string>().value_or("");
    auto const address = Wire::IpAddr::fromString(given);
    auto const duid = Grammar::duid(given);
    if (!address && !duid) {
      fail(node.source(),
           "expected a DHCPv4 server's address, or a DHCPv6 server's DUID, as "
           "\"00:03:00:01:02:00:00:00:00:01\"");
    }
    policy.serverIs(address ? address->stringValue() : *duid);
  };
  return [&policy, one](toml::node const& node) {
    listOf(one)(node);
    if (policy.server().empty()) fail(node.source(), "expected at least one server");
  };
}

}  // namespace

Sections pacingSections(ZeroTouch::Policy& policy) {
  auto const& pacing = policy.pacing();
  auto const& download = policy.download();
  auto const& dhcp = policy.dhcp();
  using ZeroTouch::AfterFailure, ZeroTouch::ClientTiming, ZeroTouch::RedirectPolicy;
  return {
      {"pacing",
       {{"start_jitter", upTo(longest, [=](double v) { pacing->startJitterIs(v); })},
        {"retry_jitter", upTo(mostJitter, [=](double v) { pacing->retryJitterIs(v); })},
        {"retry_backoff_max", upTo(longest, [=](double v) { pacing->retryBackoffMaxIs(v); })},
        {"retry_after", flag([=](bool v) { pacing->retryAfterIs(v); })}}},
      {"download",
       {{"stall_limit", upTo(longest, [=](double v) { download->stallLimitIs(v); })},
        {"resume", flag([=](bool v) { download->resumeIs(v); })},
        {"redirects", oneOf<RedirectPolicy>({{"keep", RedirectPolicy::keep},
                                             {"follow", RedirectPolicy::follow},
                                             {"refuse", RedirectPolicy::refuse}},
                                            [=](auto v) { download->redirectsIs(v); })},
        {"require_length", flag([=](bool v) { download->requireLengthIs(v); })}}},
      {"dhcp",
       {{"after_failure",
         oneOf<AfterFailure>({{"same", AfterFailure::same}, {"others first", AfterFailure::othersFirst}},
                             [=](auto v) { dhcp->afterFailureIs(v); })},
        {"offers", upTo(longest, [=](double v) { dhcp->offersIs(v); })},
        {"servers", servers(*dhcp)},
        {"client_timing", oneOf<ClientTiming>({{"brisk", ClientTiming::brisk}, {"rfc", ClientTiming::rfc}},
                                              [=](auto v) { dhcp->clientTimingIs(v); })}}}};
}
