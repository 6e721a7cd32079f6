// The variables that the DHCP client hands to its script, a line each: what the state tree is told fits into
// it, and the agent applies what it finds there.
#include "platform/kel/Log.h"
#include "platform/statebase/Connection.h"
#include "programs/zerotouch-dhclient-script/Message.h"
#include "tests/fuzz/IdleAgent.h"
#include "tests/fuzz/StateTree.h"

namespace {

struct Host : IdleAgent {
  StateTree state{platform.dhcpStatus};
  std::vector<std::string> events;
  int const sink = Kel::logSinkIs([this](Kel::LogEvent const& event) { events.push_back(event.message); });

  void told(Hook::Message const& message) {
    std::string const line = Statebase::dumpJson(Kel::ValueMap{
        {"jsonrpc", "2.0"}, {"id", std::int64_t{1}}, {"method", message.method}, {"params", message.params}});
    KEL_ASSERT(line.size() <= Statebase::Connection::maxLine, "a line of the socket");
    KEL_ASSERT(state.answer(line) == "{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":true}\n", "the tree takes it");
    time.settle();
  }
  void apply(std::string const& device, Kel::Ptr<ZeroTouch::IntfDhcpStatus> const& answer) {
    if (!answer || answer->bootFileName().empty()) return;
    auto const chosen = Kel::makePtr<ZeroTouch::IntfStatus>(Wire::IntfId("Ethernet1"), nullptr);
    chosen->intfNameIs("Ethernet1");
    chosen->kernelIntfNameIs(device);
    sm().choosenIntfIs(chosen);
    sm().doConfigureSystemIdentity();
    KEL_ASSERT(events.size() == 1 && isPrintable(events[0]) && events[0].ends_with(" ]"), "one plain line");
    sm().doUnconfigureSystemIdentity();
    sm().choosenIntfIs(nullptr);
    events.clear();
  }
};

void checkLease(std::string const& record) {
  std::string_view rest = record;
  for (char const* const start : {"lease {", "  interface \"", "  fixed-address ", "  option dhcp-server-id",
                                  "  renew epoch ", "  rebind epoch ", "  expire epoch ", "}"}) {
    std::string_view const line = take(rest);
    KEL_ASSERT(line.starts_with(start) && isPrintable(line), "a record of dhclient.leases(5)");
  }
  KEL_ASSERT(rest.empty(), "one record");
}

}  // namespace

void fuzz(std::string_view input) {
  std::vector<std::string> lines;
  while (!input.empty()) lines.emplace_back(take(input).substr(0, 65'536)).append(1, '\0');
  std::vector<char const*> variables;
  for (auto const& line : lines) variables.push_back(line.c_str());
  variables.push_back(nullptr);

  auto const environment = Hook::environmentOf(variables.data());
  if (auto const lease = Hook::leaseRecord(environment); !lease.empty()) checkLease(lease);
  Hook::Complaints complaints;
  auto const message = Hook::messageFor(environment, complaints);
  for (auto const& complaint : complaints.lines()) KEL_ASSERT(isPrintable(complaint), "a plain line");
  if (!message) return;

  static Host host;
  host.told(*message);
  std::string const device(Hook::variable(environment, "interface"));
  auto const& records = host.platform.dhcpStatus;
  host.apply(device, records->intfDhcpStatus(device));
  records->intfDhcpStatusDelAll();
  host.apply(device, records->intfDhcp6Status(device));
  records->intfDhcp6StatusDelAll();
}
