// The generated state model: what the accessors do.
#include <gtest/gtest.h>

#include <array>
#include <tuple>

#include "platform/kel/Reactor.h"
#include "platform/model/agent.h"
#include "platform/model/entitymib.h"
#include "platform/model/interface.h"
#include "platform/model/zerotouch.h"

namespace {

using Log = std::vector<std::string>;

Wire::IntfId const ethernet1("Ethernet1");

TEST(Model, collections_of_entities_create_once_announce_and_refuse_another_constructor_attribute) {
  using Hooks = ZeroTouch::ZeroTouchSmModel::NotifieeConst;
  auto const sm = std::apply([](auto... none) { return Kel::makePtr<ZeroTouch::ZeroTouchSmModel>(none...); },
                             std::array<std::nullptr_t, 24>());
  Log log;
  Kel::Reactor const ports(sm, &Hooks::onPhyIntfStatus, [&](Wire::IntfId const& id) {
    auto const port = sm->phyIntfStatus(id);
    log.push_back(id.stringValue() + (port ? " created with '" + port->intfName() + "'" : " removed"));
  });
  Kel::Reactor const registered(sm, &Hooks::onIntfStatus, [&] { log.push_back("registered"); });
  auto const status = Kel::makePtr<Interface::EthPhyIntfStatus>(ethernet1);
  auto const other = Kel::makePtr<Interface::EthPhyIntfStatus>(ethernet1);

  auto const port = sm->phyIntfStatusIs(ethernet1, status);
  port->intfNameIs("Ethernet1");
  EXPECT_EQ(sm->phyIntfStatusIs(ethernet1, status), port);
  EXPECT_EQ(port->ethIntfStatus(), status);
  try {
    sm->phyIntfStatusIs(ethernet1, other);
    ADD_FAILURE() << "was not refused";
  } catch (Kel::NameInUseError const& error) {
    EXPECT_EQ(error.what(),
              Kel::format("Reinstantiating the pointer interface where constructor parameter attribute "
                          "_ethIntfStatus has a different value of 0x%x than the current value of 0x%x not "
                          "allowed",
                          reinterpret_cast<std::uintptr_t>(other.get()),
                          reinterpret_cast<std::uintptr_t>(status.get())));
  }
  // A reference shares the record: it is registered under the record's own key.
  sm->intfStatusIs(port);
  sm->intfStatusIs(port);
  EXPECT_EQ(sm->intfStatus(ethernet1), port);
  sm->phyIntfStatusDelAll();
  EXPECT_EQ(sm->phyIntfStatus(ethernet1), nullptr);
  EXPECT_EQ(sm->intfStatus(ethernet1), port);
  EXPECT_EQ(log, (Log{"Ethernet1 created with ''", "registered", "Ethernet1 removed"}));
}

TEST(Model, who_creates_a_contained_entity_gets_it_whatever_handlers_do) {
  auto const mib = Kel::makePtr<EntityMib::Status>();
  Kel::Reactor const reactor(mib, &EntityMib::Status::NotifieeConst::onRoot, [&] { mib->rootDel(); });
  EXPECT_NE(mib->rootIs(), nullptr);
  EXPECT_EQ(mib->root(), nullptr);
}

}  // namespace
