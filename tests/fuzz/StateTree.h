// A state tree with entities of each kind of access.
#pragma once

#include "platform/model/agent.h"
#include "platform/model/entitymib.h"
#include "platform/statebase/Json.h"
#include "platform/statebase/Rpc.h"
#include "tests/fuzz/Fuzz.h"

struct StateTree : Statebase::RpcSession {
  Statebase::Tree tree;

  explicit StateTree(Kel::Ptr<ZeroTouch::DhcpStatus> const& dhcp = Kel::makePtr<ZeroTouch::DhcpStatus>()) {
    tree.mount("/zerotouch/config", Kel::makePtr<ZeroTouch::Config>(), Statebase::Access::groupWrites);
    tree.mount("/zerotouch/dhcpStatus", dhcp, Statebase::Access::rootWrites);
    tree.mount("/entityMib/status", Kel::makePtr<EntityMib::Status>(), Statebase::Access::readOnly);
  }
  Statebase::Role role() const override { return Statebase::Role::root; }
  void watch(std::vector<std::string> const&) override {}
  bool unwatch(std::string const&) override { return false; }
  std::string answer(std::string_view line) { return rpcAnswer(tree, *this, line); }
};

// Nothing when the text is no JSON.
inline std::optional<Kel::Value> parsed(std::string_view text) try {
  return Statebase::parseJson(text);
} catch (Statebase::JsonError const&) {
  return std::nullopt;
}
