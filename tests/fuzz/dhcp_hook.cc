// The variables that either DHCP client hands to its script, a line each: the state tree takes what it is
// told, and everything in it is a plain text.
#include "platform/statebase/Connection.h"
#include "programs/zerotouch-dhclient-script/Dhcpcd.h"
#include "programs/zerotouch-dhclient-script/Message.h"
#include "tests/fuzz/StateTree.h"

namespace {

void checkPlain(auto const& results) {
  for (auto const& [device, result] : results) {
    for (auto const& text : {result->reason(), result->hostname(), result->domainName(), result->serverName(),
                             result->bootFileName()})
      KEL_ASSERT(isPrintable(text), "a plain text");
  }
}

}  // namespace

void fuzz(std::string_view input) {
  std::vector<std::string> lines;
  while (!input.empty()) lines.emplace_back(take(input).substr(0, 65'536)).append(1, '\0');
  std::vector<char const*> variables;
  for (auto const& line : lines) variables.push_back(line.c_str());
  variables.push_back(nullptr);

  auto environment = Hook::environmentOf(variables.data());
  if (Hook::isOfDhcpcd(environment)) environment = Hook::fromDhcpcd(environment);
  std::string const lease = Hook::leaseRecord(environment);
  KEL_ASSERT(lease.empty() || (std::ranges::count(lease, '\n') == 8 && lease.ends_with("\n}\n")), "a record");
  std::string const lease6 = Hook::leaseRecord6(environment);
  KEL_ASSERT(lease6.empty() || (std::ranges::count(lease6, '\n') == 7 && lease6.ends_with("\n}\n")),
             "a record");
  Hook::Complaints complaints;
  auto const message = Hook::messageFor(environment, complaints);
  for (auto const& complaint : complaints.lines()) KEL_ASSERT(isHarmless(complaint), "a line for a terminal");
  if (!message) return;

  auto const results = Kel::makePtr<ZeroTouch::DhcpStatus>();
  StateTree state(results);
  std::string const line = Statebase::dumpJson(Kel::ValueMap{
      {"jsonrpc", "2.0"}, {"id", std::int64_t{1}}, {"method", message->method}, {"params", message->params}});
  KEL_ASSERT(line.size() <= Statebase::Connection::maxLine, "a line of the socket");
  KEL_ASSERT(state.answer(line) == "{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":true}\n", "the tree takes it");
  checkPlain(results->intfDhcpStatus());
  checkPlain(results->intfDhcp6Status());
}
