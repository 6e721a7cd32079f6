// A state tree with entities of each kind of access, and what to expect of an answer.
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

// The id in the answer to a request, as JSON; nothing when there is to be no answer.
inline std::optional<std::string> answeredId(std::optional<Kel::Value> const& request) {
  if (!request || request->as<Kel::ValueMap>() == nullptr) return "null";
  Kel::Value const* const id = Statebase::member(*request, "id");
  if (id == nullptr) return std::nullopt;
  bool const isPlain = !id->as<bool>() && !id->as<Kel::ValueList>() && !id->as<Kel::ValueMap>();
  return isPlain ? Statebase::dumpJson(*id) : "null";
}
