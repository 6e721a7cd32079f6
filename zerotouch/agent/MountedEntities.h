// The 25 entities that the agent is given, made fresh: what a host mounts into its state tree, and a test
// hands over.
#pragma once

#include "zerotouch/agent/ZeroTouchAgent.h"

namespace ZeroTouch {

// In the order in which the factory takes them.
struct MountedEntities {
  Kel::Ptr<Config> config = Kel::makePtr<Config>();
  Kel::Ptr<Status> status = Kel::makePtr<Status>();
  Kel::Ptr<DhcpStatus> dhcpStatus = Kel::makePtr<DhcpStatus>();
  Kel::Ptr<Interface::AllEthPhyIntfConfigDir> epicd = Kel::makePtr<Interface::AllEthPhyIntfConfigDir>();
  Kel::Ptr<Interface::AllEthPhyIntfStatusDir> episd = Kel::makePtr<Interface::AllEthPhyIntfStatusDir>();
  Kel::Ptr<Interface::VlanIntfConfigDir> vicd = Kel::makePtr<Interface::VlanIntfConfigDir>();
  Kel::Ptr<Interface::VlanIntfStatusDir> visd = Kel::makePtr<Interface::VlanIntfStatusDir>();
  Kel::Ptr<Interface::AllIntfStatusDir> aisd = Kel::makePtr<Interface::AllIntfStatusDir>();
  Kel::Ptr<Interface::AllIntfStatusLocalDir> aisld = Kel::makePtr<Interface::AllIntfStatusLocalDir>();
  Kel::Ptr<KernelNetInfo::Status> kernelNetInfo = Kel::makePtr<KernelNetInfo::Status>();
  Kel::Ptr<Interface::EthLagIntfStatusDir> elisd = Kel::makePtr<Interface::EthLagIntfStatusDir>();
  Kel::Ptr<Interface::EthIntfStatusDir> eisd = Kel::makePtr<Interface::EthIntfStatusDir>();
  Kel::Ptr<EntityMib::Status> entityMib = Kel::makePtr<EntityMib::Status>();
  Kel::Ptr<Ip::Config> ipConfig = Kel::makePtr<Ip::Config>();
  Kel::Ptr<L3::Intf::ConfigDir> l3ConfigDir = Kel::makePtr<L3::Intf::ConfigDir>();
  Kel::Ptr<Ip::Status> ipStatus = Kel::makePtr<Ip::Status>();
  Kel::Ptr<Ip6::Config> ip6Config = Kel::makePtr<Ip6::Config>();
  Kel::Ptr<Ip6::Status> ip6Status = Kel::makePtr<Ip6::Status>();
  Kel::Ptr<Routing::Config> routingConfig = Kel::makePtr<Routing::Config>();
  Kel::Ptr<System::NetConfig> netConfig = Kel::makePtr<System::NetConfig>();
  Kel::Ptr<System::NetStatus> netStatus = Kel::makePtr<System::NetStatus>();
  Kel::Ptr<System::Reload::Config> reloadConfig = Kel::makePtr<System::Reload::Config>();
  Kel::Ptr<FileReplication::Status> fileReplication = Kel::makePtr<FileReplication::Status>();
  Kel::Ptr<LogMgr::LogConfig> logConfig = Kel::makePtr<LogMgr::LogConfig>();
  Kel::Ptr<RouterAdvt::RaPacketStatus> raPacketStatus = Kel::makePtr<RouterAdvt::RaPacketStatus>();

  Kel::Ptr<AgentCreator> createAgent(decltype(&agentCreatorFactory) factory) const {
    return factory(config, status, dhcpStatus, epicd, episd, vicd, visd, aisd, aisld, kernelNetInfo, elisd,
                   eisd, entityMib, ipConfig, l3ConfigDir, ipStatus, ip6Config, ip6Status, routingConfig,
                   netConfig, netStatus, reloadConfig, fileReplication, logConfig, raPacketStatus);
  }
};

}  // namespace ZeroTouch
