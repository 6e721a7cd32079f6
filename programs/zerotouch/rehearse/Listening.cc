// Questions out, answers in.
#include <algorithm>
#include <filesystem>
#include <map>
#include <random>

#include "platform/kel/Clock.h"
#include "platform/kel/Format.h"
#include "platform/linux/packets/RouterAdvertisements.h"
#include "programs/zerotouch/rehearse/Frames.h"
#include "programs/zerotouch/rehearse/Rehearsal.h"
#include "zerotouch/dhcp/ClientConfig.h"

namespace Rehearsal {

namespace {

using ZeroTouch::AnswerFamily;

// The template of a client's configuration: the installed one, or that of a package which was only unpacked.
std::string templateOf(char const* installed) {
  std::error_code error;
  std::filesystem::path const path = installed;
  auto const program = std::filesystem::read_symlink("/proc/self/exe", error);
  auto const beside = program.parent_path().parent_path() / "share" / "ZeroTouch" / path.filename();
  return std::filesystem::exists(beside, error) ? beside.string() : path.string();
}

class Listener {
 public:
  Listener(Linux::FramePort const& port, Identity const& identity, std::vector<AnswerFamily> const& families,
           Tell const& tell)
      : port_(port), tell_(tell) {
    hearing_.asked = families;
    std::random_device random;
    for (AnswerFamily const family : families) {
      bool const six = family != AnswerFamily::dhcpv4;
      char const* const base = six ? ZeroTouch::dhclient6BaseConfigPath : ZeroTouch::dhclientBaseConfigPath;
      questions_[family] = {questionOf(identity.systemMacAddr, *identity.chassis, templateOf(base), six),
                            {.transaction = six ? random() & 0xffffffU : random(), .port = port.address()}};
      asksRouters_ = asksRouters_ || six;
    }
  }

  Hearing listen(double seconds) {
    hearing_.seconds = seconds;
    start_ = Kel::now();
    double nextQuestion = 0, pause = 1;
    for (double now = 0; now < seconds; now = Kel::now() - start_) {
      if (now >= nextQuestion) {
        askAll(now);
        nextQuestion += pause;
        pause *= 2;
      }
      double const until = std::min(seconds, nextQuestion) - now;
      auto const frame = port_.receive(std::chrono::milliseconds(static_cast<long>(until * 1000) + 1));
      auto const packet = frame ? readFrame(*frame) : std::nullopt;
      if (packet) handle(*packet);
    }
    return std::move(hearing_);
  }

 private:
  struct Asked {
    Question question;
    Asking asking;
    bool answered = false;
  };

  // Who has been answered is not asked again, but others may still answer.
  void askAll(double now) {
    std::string waits;
    for (auto& [family, asked] : questions_) {
      if (asked.answered) continue;
      asked.asking.seconds = now;
      bool const six = family != AnswerFamily::dhcpv4;
      auto const message = family == AnswerFamily::dhcpv4 ? discover(asked.question, asked.asking)
                           : family == AnswerFamily::dhcpv6
                               ? solicit(asked.question, asked.asking)
                               : informationRequest(asked.question, asked.asking);
      port_.send(six ? frame6(port_.address(), message) : frame4(port_.address(), message));
      waits += (waits.empty() ? "" : ", ") + std::string(name(family));
    }
    if (asksRouters_ && hearing_.routers.empty()) port_.send(routerSolicitation(port_.address()));
    if (waits.empty()) return;
    tell_(now == 0 ? Kel::format("waiting %g s for answers: ", hearing_.seconds) + waits
                   : Kel::format("no answer within %.0f s, asked again: ", now) + waits);
  }

  void handle(Packet const& packet) {
    switch (packet.kind) {
      case Packet::Kind::dhcp4:
        return take(AnswerFamily::dhcpv4, packet);
      case Packet::Kind::dhcp6:
        take(AnswerFamily::dhcpv6, packet);
        return take(AnswerFamily::statelessDhcpv6, packet);
      case Packet::Kind::routerAdvertisement:
        return take(packet);
      case Packet::Kind::neighbourSolicitation:
        if (auto const answer = neighbourAdvertisement(port_.address(), packet)) port_.send(*answer);
    }
  }

  void take(AnswerFamily family, Packet const& packet) {
    auto const asked = questions_.find(family);
    if (asked == questions_.end()) return;
    auto const& [question, asking, answered] = asked->second;
    auto answer = family == AnswerFamily::dhcpv4   ? readOffer(packet.payload, asking)
                  : family == AnswerFamily::dhcpv6 ? readAdvertise(packet.payload, question, asking)
                                                   : readReply(packet.payload, question, asking);
    if (!answer) return;
    if (answer->ignored.empty()) asked->second.answered = true;
    bool const known = std::ranges::any_of(hearing_.offers, [&](Offered const& other) {
      return other.family == family && other.from == packet.from && other.answer.options == answer->options;
    });
    constexpr std::ptrdiff_t most = 64;  // of a family
    if (known || std::ranges::count(hearing_.offers, family, &Offered::family) >= most) return;
    Offered offered;
    offered.family = family;
    offered.from = packet.from;
    offered.after = Kel::now() - start_;
    offered.answer = std::move(*answer);
    hearing_.offers.push_back(std::move(offered));
  }

  void take(Packet const& packet) {
    Linux::RouterAdvertisement advertisement;
    if (!asksRouters_ ||
        !Linux::parseRouterAdvertisement(packet.payload, packet.hopLimit, packet.source, advertisement)
             .empty())
      return;
    auto const known = std::ranges::find(hearing_.routers, packet.from, &Router::address);
    constexpr std::size_t most = 64;
    if (known != hearing_.routers.end()) {
      known->managed = advertisement.managed;
    } else if (hearing_.routers.size() < most) {
      hearing_.routers.push_back({packet.from, advertisement.managed});
    }
  }

  Linux::FramePort const& port_;
  Tell const& tell_;
  std::map<AnswerFamily, Asked> questions_;
  bool asksRouters_ = false;
  Hearing hearing_;
  Kel::Seconds start_ = 0;
};

}  // namespace

char const* name(AnswerFamily family) {
  switch (family) {
    case AnswerFamily::dhcpv4:
      return "DHCPv4";
    case AnswerFamily::dhcpv6:
      return "DHCPv6";
    case AnswerFamily::statelessDhcpv6:
      return "stateless DHCPv6";
  }
  return "";
}

Hearing ask(Linux::FramePort const& port, Identity const& identity, std::vector<AnswerFamily> const& families,
            double seconds, Tell const& tell) {
  return Listener(port, identity, families, tell).listen(seconds);
}

}  // namespace Rehearsal
