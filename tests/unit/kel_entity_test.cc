// Notifications: who is told what, in which order, whatever handlers do meanwhile.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <tuple>

#include "platform/kel/Reactor.h"
#include "platform/model/agent.h"
#include "platform/model/entitymib.h"
#include "platform/model/interface.h"
#include "platform/model/zerotouch.h"

namespace {

using Log = std::vector<std::string>;

// An entity with an attribute, the MTU, and a collection, the log servers.
struct Port : ZeroTouch::IntfDhcpStatus {
  explicit Port(bool& e) : IntfDhcpStatus("e0"), ended(e) {}
  ~Port() override { ended = true; }
  bool& ended;
};

// Notes each notification under its name and then runs `act`.
struct Reactor : ZeroTouch::IntfDhcpStatus::NotifieeConst {
  Reactor(Kel::Ptr<Port> const& p, std::string n, Log& l, std::function<void()> action)
      : NotifieeConst(p), act(std::move(action)), port(p.get()), name(std::move(n)), log(l) {}
  ~Reactor() override {
    if (atEnd) atEnd();
  }
  void note(std::string const& what) const {
    log.push_back(name + ":" + what);
    if (act) act();
  }
  void onMtu() override { note("mtu=" + std::to_string(port->mtu())); }
  void onLoggingHost(std::string const& key) override {
    auto const& all = port->loggingHost();
    note(key + (all.contains(key) ? "=" + std::to_string(all.get(key).port) : " gone"));
  }

  std::function<void()> act, atEnd;
  Port* port;
  std::string name;
  Log& log;
};

struct Notebook : Kel::Watcher {
  explicit Notebook(Log& l) : log(l) {}
  void onChange(Kel::Entity const&, std::string_view attribute, std::string_view key) override {
    log.push_back("watcher:" + std::string(attribute) + "[" + std::string(key) + "]");
  }
  Log& log;
};

class Notifications : public testing::Test {
 protected:
  Kel::Ptr<Reactor> reactor(std::string const& name, std::function<void()> action = {}) {
    return Kel::makePtr<Reactor>(port, name, log, std::move(action));
  }
  Log taken() { return std::exchange(log, {}); }

  Log log;
  bool ended = false;
  Kel::Ptr<Port> port = Kel::makePtr<Port>(ended);
};

TEST_F(Notifications, tell_changes_only_in_the_order_of_registration_and_watchers_last) {
  Notebook notebook(log);
  port->watcherIs(&notebook);
  auto const first = reactor("first");
  auto const silent = reactor("silent");
  auto const second = reactor("second");
  silent->hasNotificationActiveIs(false);

  port->mtuIs(0);
  port->loggingHostDel("a");
  port->loggingHostDelAll();
  EXPECT_EQ(taken(), Log{});
  port->mtuIs(9000);
  EXPECT_EQ(taken(), (Log{"first:mtu=9000", "second:mtu=9000", "watcher:mtu[]"}));
  port->loggingHostIs("a", {"", 1});
  port->loggingHostIs("a", {"", 1});
  port->loggingHostIs("a", {"", 2});
  EXPECT_EQ(taken(), (Log{"first:a=1", "second:a=1", "watcher:loggingHost[a]", "first:a=2", "second:a=2",
                          "watcher:loggingHost[a]"}));
  // The key may be part of what a handler deletes.
  auto key = std::make_unique<std::string>("an address too long to be kept inside the string object itself");
  first->act = [&] { key = nullptr; };
  std::string const text = *key;
  port->loggingHostIs(*key, {"", 1});
  first->act = nullptr;
  EXPECT_EQ(taken(),
            (Log{"first:" + text + "=1", "second:" + text + "=1", "watcher:loggingHost[" + text + "]"}));
  silent->hasNotificationActiveIs(true);
  port->watcherDel(&notebook);
  port->loggingHostDel("a");
  EXPECT_EQ(taken(), (Log{"first:a gone", "silent:a gone", "second:a gone"}));
}

TEST_F(Notifications, reach_neither_who_left_or_came_during_the_delivery_nor_who_is_being_destroyed) {
  Kel::Ptr<Reactor> a, b, c, late;
  a = reactor("a", [&] {
    b = nullptr;
    if (!late) late = reactor("late");
  });
  b = reactor("b");
  c = reactor("c", [&] { c = nullptr; });
  port->mtuIs(1);
  EXPECT_EQ(taken(), (Log{"a:mtu=1", "c:mtu=1"}));
  port->mtuIs(2);
  EXPECT_EQ(taken(), (Log{"a:mtu=2", "late:mtu=2"}));
  late->atEnd = [&] { port->mtuIs(3); };
  late = reactor("next");
  EXPECT_EQ(taken(), (Log{"a:mtu=3", "next:mtu=3"}));
}

TEST_F(Notifications, nest_when_a_handler_changes_the_same_attribute) {
  auto const a = reactor("a", [&] { port->mtuIs(7); });
  Kel::Ptr<Reactor> b;
  b = reactor("b", [&] { b = nullptr; });  // leaves in the inner delivery, so the outer one must not call it
  auto const c = reactor("c");
  port->mtuIs(1);
  EXPECT_EQ(taken(), (Log{"a:mtu=1", "a:mtu=7", "b:mtu=7", "c:mtu=7", "c:mtu=7"}));
}

TEST_F(Notifications, go_on_when_a_handler_lets_go_of_the_entity) {
  for (char const* key : {"x", "y"}) port->loggingHostIs(key, {"", 1});
  Kel::Ptr<Reactor> a, b;
  a = reactor("a", [&] {
    port = nullptr;
    a = nullptr;
  });
  b = reactor("b", [&] { b = nullptr; });
  port->loggingHostDelAll();  // drops the entity and every reactor while its first entry is announced
  EXPECT_EQ(taken(), (Log{"a:x gone", "b:x gone"}));
  EXPECT_TRUE(ended);
}

TEST_F(Notifications, call_functions_through_reactors_until_those_end) {
  using Hooks = ZeroTouch::IntfDhcpStatus::NotifieeConst;
  auto const note = [this](std::string const& what) { return [this, what] { log.push_back(what); }; };
  Kel::Reactor mtu(port, &Hooks::onMtu, note("mtu"));
  Kel::Reactor host(port, &Hooks::onLoggingHost, [this](std::string const& key) { log.push_back(key); });
  Kel::Reactor some(port, {&Hooks::onLoggingHost, &Hooks::onHostname}, note("some"));
  Kel::Reactor member;
  struct Owner {
    void handle(std::string const&) {
      ++calls;
      reactor = {};  // destroys the notifiee's handle within its own call ...
      port.loggingHostIs("nested", {"", 1});
      port.loggingHostDel("nested");  // ... after which it hears nothing more
    }
    Port& port;
    Kel::Reactor& reactor;
    int calls = 0;
  } owner{*port, member};
  Kel::Reactor any(port, note("any"));
  port->mtuIs(9000);
  port->hostnameIs("h");
  EXPECT_EQ(taken(), (Log{"mtu", "any", "some", "any"}));
  mtu = Kel::Reactor();
  any = std::move(mtu);
  port->mtuIs(1);
  EXPECT_EQ(any.notifier(), nullptr);
  port->loggingHostIs("a", {"", 1});
  EXPECT_EQ(taken(), (Log{"a", "some"}));
  member = Kel::Reactor(port, &Hooks::onLoggingHost, &owner, &Owner::handle);
  EXPECT_EQ(member.notifier(), port.get());
  port->loggingHostDel("a");
  EXPECT_EQ(owner.calls, 1);
  EXPECT_EQ(taken(), (Log{"a", "some", "nested", "some", "nested", "some"}));
}

TEST(Entries, are_followed_each_by_a_reactor) {
  auto const dir = Kel::makePtr<ZeroTouch::DhcpStatus>();
  auto const first = dir->intfDhcpStatusIs("e0");
  Log log;
  std::unique_ptr<Kel::EntryReactors<Kel::Name>> reactors;
  bool last = false;
  reactors.reset(new Kel::EntryReactors<Kel::Name>(dir, &ZeroTouch::DhcpStatus::intfDhcpStatus,
                                                   &ZeroTouch::DhcpStatus::NotifieeConst::onIntfDhcpStatus,
                                                   [&](Kel::Name const& name) {
                                                     if (last) reactors = nullptr;
                                                     log.push_back(name);
                                                   }));
  dir->intfDhcpStatusIs("e1")->mtuIs(9000);
  dir->intfDhcpStatusNotify("e1");  // the same entity still has one reactor
  first->reasonIs("BOUND");
  dir->intfDhcpStatusDel("e0");
  first->reasonIs("FAIL");
  dir->intfDhcpStatusIs(first);
  first->mtuIs(1);
  EXPECT_EQ(std::exchange(log, {}), (Log{"e0", "e1", "e1", "e1", "e0", "e0", "e0", "e0"}));
  last = true;
  first->mtuIs(2);
  first->mtuIs(3);
  EXPECT_EQ(log, (Log{"e0"}));
}

TEST(Model, a_collection_creates_an_entry_once_and_refuses_another_constructor_attribute) {
  Wire::IntfId const key("Ethernet1");
  auto const one = Kel::makePtr<Interface::EthPhyIntfStatus>(key);
  auto const other = Kel::makePtr<Interface::EthPhyIntfStatus>(key);
  auto const sm = std::apply([](auto... none) { return Kel::makePtr<ZeroTouch::ZeroTouchSmModel>(none...); },
                             std::array<std::nullptr_t, 24>());
  auto const port = sm->phyIntfStatusIs(key, one);
  EXPECT_EQ(sm->phyIntfStatusIs(key, one), port);
  auto const address = [](auto const& entity) { return reinterpret_cast<std::uintptr_t>(entity.get()); };
  try {
    sm->phyIntfStatusIs(key, other);
    ADD_FAILURE() << "was not refused";
  } catch (Kel::NameInUseError const& error) {
    EXPECT_EQ(error.what(),
              Kel::format("Reinstantiating the pointer interface where constructor parameter attribute "
                          "_ethIntfStatus has a different value of 0x%x than the current value of 0x%x not "
                          "allowed",
                          address(other), address(one)));
  }
}

TEST(Model, who_creates_a_contained_entity_gets_it_whatever_handlers_do) {
  auto const mib = Kel::makePtr<EntityMib::Status>();
  Kel::Reactor const reactor(mib, &EntityMib::Status::NotifieeConst::onRoot, [&] { mib->rootDel(); });
  EXPECT_NE(mib->rootIs(), nullptr);
  EXPECT_EQ(mib->root(), nullptr);
}

TEST(Pointers, count_alike_in_both_modes_and_survive_their_own_release) {
  for (bool const threadSafe : {false, true}) {
    Kel::threadSafePointersIs(threadSafe);
    bool ended = false;
    auto port = Kel::makePtr<Port>(ended);
    Kel::Ptr<Kel::Entity const> base = port;
    auto moved = std::move(port);
    EXPECT_EQ(moved->references(), 2U);
    auto const& same = moved;
    moved = same;
    moved = nullptr;
    EXPECT_FALSE(ended);
    base = nullptr;
    EXPECT_TRUE(ended) << "thread-safe " << threadSafe;
  }
  Kel::threadSafePointersIs(false);
}

}  // namespace
