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
#include "tests/unit/support/Transcript.h"

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
    tree.rootWritesOnly("/zerotouch/config/installMode");
    tree.mount("/zerotouch/dhcpStatus", dhcpStatus, Access::rootWrites);
    tree.mount("/entityMib/status", entityMib, Access::readOnly);
    tree.mount("/interface/status/ethPhy", ports, Access::readOnly);
    tree.mount("/interface/status/all", allPorts, Access::readOnly);
    tree.mount("/routing/config", Kel::makePtr<Routing::Config>(), Access::readOnly);
    allPorts->intfStatusIs(ports->intfStatusIs(*Wire::IntfId::fromString("Ethernet1/1")));
  }

  std::string dump() const { return dumpJson(tree.get("/")); }
};

struct TemporaryDirectory : TemporaryFolder {
  std::string operator/(std::string const& name) const { return path("/" + name); }
};

}  // namespace Statebase::testing
