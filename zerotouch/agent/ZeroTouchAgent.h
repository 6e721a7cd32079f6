// The library's entry point: the symbol that the host looks up, and the environment that children are given.
#pragma once

#include <array>

#include "zerotouch/agent/AgentCreator.h"

namespace ZeroTouch {

// The variables that the DHCP clients are handed, so that their hook can reach the state tree.
inline constexpr std::array defaultEnvVars = {"SYSNAME", "STATEBASESOCKNAME", "STATEBASEPORT"};

// Makes the agent from the mounted entities; it runs from here on, on the caller's loop, until the handle is
// dropped. The symbol is the plain name. Nothing is thrown.
extern "C" Kel::Ptr<AgentCreator> agentCreatorFactory(
    Kel::Ptr<Config> const& config, Kel::Ptr<Status> const& status,
    Kel::Ptr<DhcpStatus const> const& dhcpStatus, Kel::Ptr<Interface::AllEthPhyIntfConfigDir> const& epicd,
    Kel::Ptr<Interface::AllEthPhyIntfStatusDir const> const& episd,
    Kel::Ptr<Interface::VlanIntfConfigDir> const& vicd,
    Kel::Ptr<Interface::VlanIntfStatusDir const> const& visd,
    Kel::Ptr<Interface::AllIntfStatusDir const> const& aisd,
    Kel::Ptr<Interface::AllIntfStatusLocalDir const> const& aisld,
    Kel::Ptr<KernelNetInfo::Status const> const& kernelNetInfoStatus,
    Kel::Ptr<Interface::EthLagIntfStatusDir> const& elisd, Kel::Ptr<Interface::EthIntfStatusDir> const& eisd,
    Kel::Ptr<EntityMib::Status const> const& entityMibStatus, Kel::Ptr<Ip::Config> const& ipConfig,
    Kel::Ptr<L3::Intf::ConfigDir> const& l3ConfigDir, Kel::Ptr<Ip::Status const> const& ipStatus,
    Kel::Ptr<Ip6::Config> const& ip6Config, Kel::Ptr<Ip6::Status const> const& ip6Status,
    Kel::Ptr<Routing::Config> const& routingConfig, Kel::Ptr<System::NetConfig> const& netConfig,
    Kel::Ptr<System::NetStatus const> const& netStatus, Kel::Ptr<System::Reload::Config> const& reloadConfig,
    Kel::Ptr<FileReplication::Status const> const& fileReplicationStatus,
    Kel::Ptr<LogMgr::LogConfig> const& sysLoggingConfig,
    Kel::Ptr<RouterAdvt::RaPacketStatus const> const& raPacketStatus);

}  // namespace ZeroTouch
