#include "zerotouch/sm/ZeroTouchSm.h"

#include "zerotouch/dhcp/DhcpClient.h"
#include "zerotouch/dhcp/Results.h"
#include "zerotouch/identity/KelIpIntfStatus.h"
#include "zerotouch/intf/Ports.h"
#include "zerotouch/sm/Reactors.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

Kel::TraceFacility traceZeroTouchSm("ZeroTouchSm");

ZeroTouchSm::ZeroTouchSm(
    Kel::Ptr<Config> config, Kel::Ptr<Status> status, Kel::Ptr<DhcpStatus const> dhcpStatus,
    Kel::Ptr<Interface::AllEthPhyIntfConfigDir> epicd,
    Kel::Ptr<Interface::AllEthPhyIntfStatusDir const> episd, Kel::Ptr<Interface::VlanIntfConfigDir> vicd,
    Kel::Ptr<Interface::VlanIntfStatusDir const> visd, Kel::Ptr<Interface::AllIntfStatusDir const> aisd,
    Kel::Ptr<Interface::EthLagIntfStatusDir> elisd, Kel::Ptr<EntityMib::Status const> entityMibStatus,
    Kel::Ptr<Ip::Config> ipConfig, Kel::Ptr<L3::Intf::ConfigDir> l3ConfigDir,
    Kel::Ptr<Ip::Status const> ipStatus, Kel::Ptr<Ip6::Config> ip6Config,
    Kel::Ptr<Ip6::Status const> ip6Status, Kel::Ptr<Routing::Config> routingConfig,
    Kel::Ptr<System::NetConfig> netConfig, Kel::Ptr<System::NetStatus const> netStatus,
    Kel::Ptr<System::Reload::Config> reloadConfig,
    Kel::Ptr<FileReplication::Status const> fileReplicationStatus,
    Kel::Ptr<LogMgr::LogConfig> sysLoggingConfig, Kel::Ptr<RouterAdvt::RaPacketStatus const> raPacketStatus,
    Kel::Ptr<Interface::EthDevPamCollection const> ethDevPamCollection,
    Kel::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir, Kel::Ptr<Kel::Clock const> clock,
    Kel::Ptr<Kel::Clock const> stateTransitionClock)
    : ZeroTouchSmModel(
          std::move(config), std::move(status), std::move(dhcpStatus), std::move(epicd), std::move(episd),
          std::move(vicd), std::move(visd), std::move(aisd), std::move(elisd), std::move(entityMibStatus),
          std::move(ipConfig), std::move(l3ConfigDir), std::move(ipStatus), std::move(ip6Config),
          std::move(ip6Status), std::move(routingConfig), std::move(netConfig), std::move(netStatus),
          std::move(reloadConfig), std::move(fileReplicationStatus), std::move(sysLoggingConfig),
          std::move(raPacketStatus), std::move(ethDevPamCollection), std::move(pamDesiredIntfDir)),
      kelConfig_(Kel::makePtr<KelConfig>(this->config(), *this)),
      kelDhcpStatus_(Kel::makePtr<KelDhcpStatus>(this->dhcpStatus(), *this)),
      kelIpStatus_(Kel::makePtr<KelIpStatus>(this->ipStatus(), *this)),
      kelIp6Status_(Kel::makePtr<KelIp6Status>(this->ip6Status(), *this)),
      kelEpisd_(Kel::makePtr<KelEpisd>(this->episd(), *this)),
      kelElisd_(Kel::makePtr<KelElisd>(this->elisd(), *this)),
      kelEthDevPamCollection_(Kel::makePtr<KelEthDevPamCollection>(this->ethDevPamCollection(), *this)),
      kelEntityMibStatus_(Kel::makePtr<KelEntityMibStatus>(this->entityMibStatus(), *this)),
      clock_(Kel::makePtr<KelClock>(clock, *this)),
      stateTransitionClock_(Kel::makePtr<KelStateTransitionClock>(stateTransitionClock, *this)),
      ports_(std::make_unique<Ports>(*this)),
      portConfig_(std::make_unique<PortConfig>(*this)),
      dhcpClients_(std::make_unique<DhcpClients>(*this)),
      dhcpResults_(std::make_unique<DhcpResults>()) {
  for (auto const& name : this->dhcpStatus()->intfDhcpStatus().keys()) intfDhcpStatusIs(name);
  for (auto const& name : this->dhcpStatus()->intfDhcp6Status().keys()) intfDhcp6StatusIs(name);
  for (auto const& intfId : this->episd()->intfStatus().keys()) ports_->ethPhyIntfStatusIs(intfId);
  for (auto const& intfId : this->elisd()->intfStatus().keys()) ports_->ethLagIntfStatusIs(intfId);
  for (auto const& intfId : this->ipStatus()->ipIntfStatus().keys()) ipIntfStatusIs(intfId);
  for (auto const& intfId : this->ip6Status()->intf().keys()) ip6IntfStatusIs(intfId);
  handleTimer();
  handleStateTransitionClock();
  handleInitialized();
}

// Children are the owner's: none is left behind when the agent goes.
ZeroTouchSm::~ZeroTouchSm() {
  doStopDhclient();
  doStopDhclient6();
  doStopDhclient6Stateless();
  doCurlShutdown();
  doKillRunningScript();
}

}  // namespace ZeroTouch
