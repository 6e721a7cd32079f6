// Notifications: who is told what, in which order, whatever handlers do meanwhile.
#include <gtest/gtest.h>

#include <functional>

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

TEST_F(Notifications, keep_the_key_alive_that_a_handler_deletes) {
  Notebook notebook(log);
  port->watcherIs(&notebook);
  auto key = std::make_unique<std::string>("an address too long to be kept inside the string object itself");
  std::string const text = *key;
  auto const a = reactor("a", [&] { key = nullptr; });
  port->loggingHostIs(*key, {"", 1});
  EXPECT_EQ(taken(), (Log{"a:" + text + "=1", "watcher:loggingHost[" + text + "]"}));
  port->watcherDel(&notebook);
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
