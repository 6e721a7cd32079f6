// A small state tree, as the host mounts it, for the tests of the state tree and its socket.
#pragma once

#include <gtest/gtest.h>

#include "platform/kel/testing/SimulatedTime.h"
#include "platform/model/agent.h"
#include "platform/model/entitymib.h"
#include "platform/model/interface.h"
#include "platform/model/log.h"
#include "platform/model/routing.h"
#include "platform/model/zerotouch.h"
#include "platform/statebase/Json.h"
#include "platform/statebase/Tree.h"
#include "tests/unit/support/TemporaryFolder.h"

namespace Statebase::testing {

struct TestTree {
  Kel::Ptr<ZeroTouch::Config> config = Kel::makePtr<ZeroTouch::Config>();
  Kel::Ptr<ZeroTouch::DhcpStatus> dhcpStatus = Kel::makePtr<ZeroTouch::DhcpStatus>();
  Kel::Ptr<EntityMib::Status> entityMib = Kel::makePtr<EntityMib::Status>();
  Kel::Ptr<Interface::AllEthPhyIntfStatusDir> ports = Kel::makePtr<Interface::AllEthPhyIntfStatusDir>();
  Kel::Ptr<Interface::AllIntfStatusDir> allPorts = Kel::makePtr<Interface::AllIntfStatusDir>();
  Tree tree;

  TestTree() {
    tree.mount("/zerotouch/config", config, Access::groupWrites);
    tree.mount("/zerotouch/dhcpStatus", dhcpStatus, Access::rootWrites);
    tree.mount("/entityMib/status", entityMib, Access::readOnly);
    tree.mount("/interface/status/ethPhy", ports, Access::readOnly);
    tree.mount("/interface/status/all", allPorts, Access::readOnly);
    tree.mount("/routing/config", Kel::makePtr<Routing::Config>(), Access::readOnly);
    allPorts->intfStatusIs(ports->intfStatusIs(*Wire::IntfId::fromString("Ethernet1/1")));
  }

  std::string dump() const { return dumpJson(tree.get("/")); }
};

// The cases of a file in expected/: what is asked, in a line behind "$ ", and the lines of the answer.
inline std::vector<std::pair<std::string, std::string>> transcript(std::string const& name) {
  std::vector<std::pair<std::string, std::string>> cases;
  std::ifstream file(PROJECT_FOLDER "/tests/unit/expected/" + name);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("$ ")) {
      cases.emplace_back(line.substr(2), "");
    } else if (!line.starts_with("# ")) {
      cases.back().second += line + "\n";
    }
  }
  EXPECT_FALSE(cases.empty()) << name;
  return cases;
}

struct TemporaryDirectory : TemporaryFolder {
  std::string operator/(std::string const& name) const { return path("/" + name); }
};

}  // namespace Statebase::testing
