#include "fleet/Simulation.h"

#include <algorithm>
#include <deque>
#include <queue>

#include "fleet/Link.h"

namespace Fleet {

namespace {

struct Member : Switch {
  std::deque<Output> next;    // what it does if it is given nothing
  std::uint64_t changes = 0;  // of `next`, whose older events no longer count
  bool asks = false;
  std::uint64_t query = 0;  // its number
  std::uint64_t queued =
      0;               // the number of the query whose question the server has not answered yet; 0 for none
  bool known = false;  // the server has an address for it
  bool downloads = false;
  double mark = 0;     // of its download on the link
  double missing = 0;  // of the file, when the next download goes on where this one ends
};

struct Event {
  enum class Kind : std::uint8_t { output, offer, acknowledgement };
  Kel::Seconds time;
  Kind kind;
  std::uint32_t number;   // of the switch
  std::uint64_t version;  // of its outputs, or of its query
  bool operator>(Event const& other) const { return time > other.time; }
};

class Simulation {
 public:
  explicit Simulation(Setting const& setting)
      : setting_(setting), link_(setting.bytesPerSecond), members_(setting.switches) {
    for (std::uint32_t i = 0; i < setting.switches; ++i) {
      members_[i].start = setting.startedWithin * i / setting.switches;
      members_[i].seed = setting.seed * 1'000'003 + i;
    }
  }

  Result run() {
    for (std::uint32_t i = 0; i < setting_.switches; ++i) foresee(i);
    while (result_.provisioned.size() < setting_.switches) {
      Kel::Seconds const arrival = link_.nextTime();
      Kel::Seconds const event = events_.empty() ? Kel::never : events_.top().time;
      if (std::min(arrival, event) > setting_.patience) break;
      if (arrival <= event) {
        give(link_.nextOwner(), arrival, Input::Kind::file);
      } else {
        Event const next = events_.top();
        events_.pop();
        handle(next);
      }
    }
    result_.bytesSent = link_.sent();
    result_.downloadsAtOnce = link_.most();
    return result_;
  }

 private:
  void handle(Event const& event) {
    auto& member = members_[event.number];
    if (event.kind == Event::Kind::offer) return offer(event);
    if (event.kind == Event::Kind::acknowledgement) {
      if (member.asks && member.query == event.version) give(event.number, event.time, Input::Kind::lease);
      return;
    }
    if (event.version != member.changes) return;
    Output const output = member.next.front();
    member.next.pop_front();
    ++member.outputs;
    act(event.number, output);
    if (output.kind == Output::Kind::reloads) return;
    if (member.next.empty()) return foresee(event.number);
    announce(event.number);
  }

  void act(std::uint32_t number, Output const& output) {
    auto& member = members_[number];
    switch (output.kind) {
      case Output::Kind::asks:
        member.asks = true;
        ++member.query;
        ++result_.queries;
        if (member.queued == 0) ask(number, output.time);
        break;
      case Output::Kind::asksNoMore:
        member.asks = false;
        break;
      case Output::Kind::downloads:
        member.downloads = true;
        ++result_.downloads;
        if (!output.resumes) member.missing = setting_.fileBytes;
        member.mark = link_.begin(output.time, number, member.missing);
        break;
      case Output::Kind::downloadsNoMore:
        if (!member.downloads) break;  // it has all of the file
        member.downloads = false;
        ++result_.givenUp;
        member.missing = link_.end(output.time, number, member.mark);
        break;
      case Output::Kind::reloads:
        result_.provisioned.push_back(output.time);
        break;
    }
  }

  // The DHCP server does one thing after the other. A question that it has not come to yet is not repeated.
  void ask(std::uint32_t number, Kel::Seconds time) {
    auto& member = members_[number];
    ++result_.messages;
    member.queued = member.query;
    dhcpFree_ = std::max(dhcpFree_, time);
    if (!member.known && looks(dhcpFree_)) dhcpFree_ += 1 / setting_.leasesPerSecond;
    events_.push({dhcpFree_, Event::Kind::offer, number, member.query});
  }

  // Whether the server looks if a new address is in use; one that is loaded does not look at each.
  bool looks(Kel::Seconds time) {
    if (setting_.leasesPerSecond <= 0) return false;
    while (!looked_.empty() && time - looked_.front() > lookWindow) looked_.pop_front();
    if (setting_.looks > 0 && looked_.size() >= setting_.looks) return false;
    looked_.push_back(time);
    return true;
  }

  // The switch asks for the address, behind all questions that the server has yet to answer.
  void offer(Event const& event) {
    auto& member = members_[event.number];
    member.known = true;
    member.queued = 0;
    bool const late = !member.asks || member.query != event.version;
    if (late) ++result_.lostAnswers;
    if (late && member.asks) return ask(event.number, event.time);
    if (late) return;
    ++result_.messages;
    dhcpFree_ = std::max(dhcpFree_, event.time);
    events_.push({dhcpFree_, Event::Kind::acknowledgement, event.number, member.query});
  }

  void give(std::uint32_t number, Kel::Seconds time, Input::Kind kind) {
    auto& member = members_[number];
    if (kind == Input::Kind::file) {
      link_.end(time, number, member.mark);
      member.downloads = false;
    }
    member.inputs.push_back({time, kind});
    foresee(number);
  }

  void foresee(std::uint32_t number) {
    auto& member = members_[number];
    auto const outputs = replay(member, setting_.patience + 1);
    ++result_.replays;
    ++member.changes;
    member.next = {outputs.begin(), outputs.end()};
    if (!member.next.empty()) announce(number);
  }

  void announce(std::uint32_t number) {
    auto const& member = members_[number];
    events_.push({member.next.front().time, Event::Kind::output, number, member.changes});
  }

  Setting setting_;
  Link link_;
  std::vector<Member> members_;
  std::priority_queue<Event, std::vector<Event>, std::greater<>> events_;
  Kel::Seconds dhcpFree_ = 0;
  std::deque<Kel::Seconds> looked_;  // when the server has, lately
  Result result_;
};

}  // namespace

Result simulate(Setting const& setting) { return Simulation(setting).run(); }

}  // namespace Fleet
