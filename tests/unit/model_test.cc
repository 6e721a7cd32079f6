// The generated state model: what the accessors do, and what the type descriptions let generic code do.
#include <gtest/gtest.h>

#include "platform/kel/Described.h"
#include "platform/model/agent.h"
#include "platform/model/entitymib.h"
#include "platform/model/interface.h"
#include "platform/model/ip6.h"
#include "platform/model/routing.h"
#include "platform/model/zerotouch.h"

namespace {

using Kel::Value;
using Kel::ValueMap;
using Log = std::vector<std::string>;

Wire::IntfId const ethernet1("Ethernet1");

TEST(Model, collections_of_entities_create_once_announce_and_refuse_another_constructor_attribute) {
  class Reactor : public ZeroTouch::ZeroTouchSmModel::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onPhyIntfStatus(Wire::IntfId const& id) override {
      auto const port = notifier().phyIntfStatus(id);
      log.push_back(id.stringValue() + (port ? " created with '" + port->intfName() + "'" : " removed"));
    }
    void onIntfStatus(Wire::IntfId const& id) override { log.push_back(id.stringValue() + " registered"); }
    Log log;
  };
  auto const sm = Kel::makePtr<ZeroTouch::ZeroTouchSmModel>(
      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
      nullptr, nullptr);
  auto const reactor = Kel::makePtr<Reactor>(sm);
  auto const status = Kel::makePtr<Interface::EthPhyIntfStatus>(ethernet1);
  auto const other = Kel::makePtr<Interface::EthPhyIntfStatus>(ethernet1);

  auto const port = sm->phyIntfStatusIs(ethernet1, status);
  port->intfNameIs("Ethernet1");
  EXPECT_EQ(sm->phyIntfStatusIs(ethernet1, status), port);
  EXPECT_EQ(port->ethIntfStatus(), status);
  auto const address = [](auto const& handle) {
    return Kel::format("0x%x", reinterpret_cast<std::uintptr_t>(handle.get()));
  };
  try {
    sm->phyIntfStatusIs(ethernet1, other);
    ADD_FAILURE() << "was not refused";
  } catch (Kel::NameInUseError const& error) {
    EXPECT_EQ(
        error.what(),
        "Reinstantiating the pointer interface where constructor parameter attribute _ethIntfStatus has a "
        "different value of " +
            address(other) + " than the current value of " + address(status) + " not allowed");
  }
  // A reference shares the record: it is registered under the record's own key.
  sm->intfStatusIs(port);
  sm->intfStatusIs(port);
  EXPECT_EQ(sm->intfStatus(ethernet1), port);
  sm->phyIntfStatusDelAll();
  EXPECT_EQ(sm->phyIntfStatus(ethernet1), nullptr);
  EXPECT_EQ(sm->intfStatus(ethernet1), port);
  EXPECT_EQ(reactor->log, (Log{"Ethernet1 created with ''", "Ethernet1 registered", "Ethernet1 removed"}));
}

TEST(Model, notifiees_hear_the_levels_that_they_were_made_for) {
  static Log log;
  struct Base : Interface::IntfStatus::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void onOperStatus() override { log.push_back("base:operStatus"); }
  };
  struct Deep : Interface::EthPhyIntfStatus::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void onOperStatus() override { log.push_back("deep:operStatus"); }
    void onLinkStatus() override { log.push_back("deep:linkStatus"); }
  };
  log.clear();
  auto const port = Kel::makePtr<Interface::EthPhyIntfStatus>(ethernet1);
  auto const base = Kel::makePtr<Base>(port);
  auto const deep = Kel::makePtr<Deep>(port);
  port->operStatusIs(Interface::OperStatus::up);
  port->operStatusIs(Interface::OperStatus::up);
  port->linkStatusIs(Interface::LinkStatus::up);
  EXPECT_EQ(log, (Log{"base:operStatus", "deep:operStatus", "deep:linkStatus"}));
}

TEST(Model, contained_entities_come_go_and_may_be_there_from_the_start) {
  class Reactor : public EntityMib::Status::NotifieeConst {
   public:
    explicit Reactor(Kel::Ptr<EntityMib::Status> const& mib) : NotifieeConst(mib), mib_(mib.get()) {}
    void onRoot() override {
      log.push_back(notifier().root() ? "there" : "gone");
      if (removeAtOnce) mib_->rootDel();
    }
    bool removeAtOnce = false;
    Log log;

   private:
    EntityMib::Status* mib_;
  };
  auto const mib = Kel::makePtr<EntityMib::Status>();
  auto const reactor = Kel::makePtr<Reactor>(mib);
  EXPECT_EQ(mib->root(), nullptr);
  auto const root = mib->rootIs();
  EXPECT_EQ(mib->rootIs(), root);
  mib->rootDel();
  mib->rootDel();
  reactor->removeAtOnce = true;
  EXPECT_NE(mib->rootIs(), nullptr);  // who creates it gets it, whatever handlers did
  EXPECT_EQ(mib->root(), nullptr);
  EXPECT_EQ(reactor->log, (Log{"there", "gone", "there", "gone"}));
  EXPECT_NE(Kel::makePtr<Routing::Config>()->routeList(), nullptr);
}

// "ok", or the reason of the refusal; the attribute is looked up by name as the state socket does.
std::string set(Kel::Entity& entity, char const* attribute, std::string_view key, Value const& value) {
  Kel::AttributeType const* type = entity.entityType()->attribute(attribute);
  // The check alone must give the same answer, and change nothing.
  Value const before = type->get(entity, key);
  std::string const checked = type->set(nullptr, key, value);
  EXPECT_EQ(type->get(entity, key), before);
  std::string const result = type->set(&entity, key, value);
  EXPECT_EQ(checked, result);
  if (!result.empty()) {
    EXPECT_EQ(type->get(entity, key), before);
  }
  return result.empty() ? "ok" : result;
}

TEST(Description, sets_what_fits_and_refuses_the_rest_with_a_reason) {
  auto const dhcp = Kel::makePtr<ZeroTouch::IntfDhcpStatus>("et1");
  auto const config = Kel::makePtr<ZeroTouch::Config>();
  auto const port = Kel::makePtr<Interface::EthPhyIntfConfig>(ethernet1);
  ValueMap const route{{"prefix", "10.0.0.0/8"}, {"nextHop", "192.0.2.1"}};
  struct Case {
    Kel::Entity& entity;
    char const *attribute, *key;
    Value value;
    std::string result;
  };
  for (Case const& c : {
           Case{*dhcp, "mtu", "", std::uint64_t{65535}, "ok"},
           Case{*dhcp, "mtu", "", std::uint64_t{65536}, "expected at most 65535"},
           Case{*dhcp, "reason", "", std::string(32, 'x'), "ok"},
           Case{*dhcp, "reason", "", std::string(33, 'x'), "longer than 32 bytes"},
           Case{*dhcp, "addrWithMask", "", "10.0.0.5/33", "'10.0.0.5/33' is no IP address with mask"},
           Case{*dhcp, "gateway", "0", "2001:db8::1", "ok"},
           Case{*dhcp, "gateway", "256", "10.0.0.1", "'256': expected a whole number from 0 to 255"},
           Case{*dhcp, "staticRoute", "0", route, "ok"},
           Case{*dhcp, "staticRoute", "1", ValueMap{{"prefix", "x"}},
                "prefix: 'x' is no IPv4 address with mask"},
           Case{*config, "maxRunTime", "", "unlimited", "ok"}, Case{*config, "maxRunTime", "", 0.5, "ok"},
           Case{*port, "linkModeLocal", "", "linkMode10G", "ok"},
           Case{*port, "linkModeLocal", "", std::uint64_t{9},
                "expected one of linkModeDefault, linkModeAutoneg, linkModeAutoneg40G, linkMode10G, "
                "linkMode25G, "
                "linkMode40G, linkMode50G, linkMode50G1, linkMode100G, linkMode100G2, linkMode200G4, "
                "linkMode400G8"},
           Case{*port, "mtu", "", std::uint64_t{9000}, "ok"},  // of the base type
       }) {
    EXPECT_EQ(set(c.entity, c.attribute, c.key, c.value), c.result) << c.attribute;
    if (c.result == "ok") {
      EXPECT_EQ(c.entity.entityType()->attribute(c.attribute)->get(c.entity, c.key), c.value) << c.attribute;
    }
  }
  EXPECT_EQ(dhcp->staticRoute(0).nextHop.stringValue(), "192.0.2.1");
  EXPECT_EQ(config->maxRunTime(), 0.5);
  EXPECT_EQ(port->mtu(), 9000U);
}

TEST(Description, creates_lists_and_removes_what_is_held) {
  auto const dhcp = Kel::makePtr<ZeroTouch::DhcpStatus>();
  auto const& entries = *dhcp->entityType()->attribute("intfDhcpStatus");
  EXPECT_EQ(entries.create(nullptr, "et1"), "");
  EXPECT_EQ(entries.keys(*dhcp), Log{});
  for (char const* key : {"et2", "et1", "et2"}) EXPECT_EQ(entries.create(dhcp.get(), key), "");
  EXPECT_EQ(entries.keys(*dhcp), (Log{"et1", "et2"}));
  EXPECT_EQ(entries.child(*dhcp, "et1"), dhcp->intfDhcpStatus("et1").get());
  EXPECT_EQ(entries.del(dhcp.get(), "et1"), "");
  EXPECT_EQ(entries.keys(*dhcp), Log{"et2"});

  auto const ip6 = Kel::makePtr<Ip6::IntfConfig>(ethernet1);
  auto const& addresses = *ip6->entityType()->attribute("addr");
  EXPECT_EQ(addresses.create(ip6.get(), "2001:db8::1/64"), "");
  EXPECT_EQ(addresses.create(ip6.get(), "2001:db8::1"), "'2001:db8::1' is no IPv6 address with mask");
  EXPECT_EQ(addresses.get(*ip6, "2001:db8::1/64"), Value(true));
  EXPECT_EQ(addresses.del(ip6.get(), "2001:0db8::1/64"), "");  // another text of the same address
  EXPECT_EQ(addresses.keys(*ip6), Log{});

  auto const mib = Kel::makePtr<EntityMib::Status>();
  auto const& root = *mib->entityType()->attribute("root");
  EXPECT_EQ(root.create(mib.get(), ""), "");
  EXPECT_EQ(root.child(*mib, ""), mib->root().get());
  EXPECT_EQ(root.del(mib.get(), ""), "");
  EXPECT_EQ(mib->root(), nullptr);
}

}  // namespace
