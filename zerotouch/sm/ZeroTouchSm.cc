#include "zerotouch/sm/ZeroTouchSm.h"

#include "zerotouch/dhcp/DhcpClient.h"
#include "zerotouch/dhcp/LateLinks.h"
#include "zerotouch/dhcp/Offers.h"
#include "zerotouch/dhcp/Results.h"
#include "zerotouch/intf/Ports.h"
#include "zerotouch/sm/Pacing.h"

namespace ZeroTouch {

ZeroTouchSm::ZeroTouchSm(PASSED_HANDLE_PARAMETERS,
                         Kel::Ptr<Interface::EthDevPamCollection const> ethDevPamCollection,
                         Kel::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir,
                         Kel::Ptr<Kel::Clock const> const& clock,
                         Kel::Ptr<Kel::Clock const> const& stateTransitionClock)
    : ZeroTouchSmModel(PASSED_HANDLES, std::move(ethDevPamCollection), std::move(pamDesiredIntfDir)),
      clock_(clock),
      stateTransitionClock_(stateTransitionClock),
      timerAlarm_([this] { handleTimer(); }, clock),
      stateTransitionAlarm_([this] { handleStateTransitionClock(); }, stateTransitionClock),
      ports_(std::make_unique<Ports>(*this)),
      portConfig_(std::make_unique<PortConfig>(*this)),
      dhcpClients_(std::make_unique<DhcpClients>(*this)),
      dhcpResults_(std::make_unique<DhcpResults>()),
      lateLinks_(std::make_unique<LateLinks>(*this)),
      offers_(std::make_unique<Offers>(*this)),
      pacing_(std::make_unique<Pacing>()) {
  watchPlatform();
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

void ZeroTouchSm::watchPlatform() {
  auto const watch = [this](auto const& entity, auto hook, auto call) {
    if (entity) reactors_.emplace_back(entity, hook, call);
  };
  using ConfigHooks = Config::NotifieeConst;
  watch(config(), &ConfigHooks::onEnabled, [this] { handleEnabled(); });
  watch(config(), &ConfigHooks::onCancelled, [this] { handleCancelled(); });
  watch(config(), &ConfigHooks::onScriptExecTimeout, [this] { handleScriptExecTimeoutValue(); });
  using DhcpHooks = DhcpStatus::NotifieeConst;
  watch(dhcpStatus(), &DhcpHooks::onIntfDhcpStatus,
        [this](Kel::Name const& name) { handleIntfDhcpStatus(name); });
  watch(dhcpStatus(), &DhcpHooks::onIntfDhcp6Status,
        [this](Kel::Name const& name) { handleIntfDhcp6Status(name); });
  using Id = Wire::IntfId;
  watch(ipStatus(), &Ip::Status::NotifieeConst::onIpIntfStatus, [this](Id const& id) { ipIntfStatusIs(id); });
  watch(ip6Status(), &Ip6::Status::NotifieeConst::onIntf, [this](Id const& id) { ip6IntfStatusIs(id); });
  watch(episd(), &Interface::AllEthPhyIntfStatusDir::NotifieeConst::onIntfStatus, [this](Id const& id) {
    ports_->ethPhyIntfStatusIs(id);
    handleEthPhyIntfStatus(id);
  });
  watch(elisd(), &Interface::EthLagIntfStatusDir::NotifieeConst::onIntfStatus, [this](Id const& id) {
    ports_->ethLagIntfStatusIs(id);
    handleEthLagIntfStatus(id);
  });
  watch(ethDevPamCollection(), &Interface::EthDevPamCollection::NotifieeConst::onIntfPam,
        [this](Id const& id) { handleEthDevPam(id); });
  watch(entityMibStatus(), &EntityMib::Status::NotifieeConst::onRoot, [this] { handleEntityMibRoot(); });
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
