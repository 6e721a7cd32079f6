// The entities that the adapter keeps true to the kernel (status), and those whose contents it brings there
// (configuration). All are set.
#pragma once

#include "platform/model/entitymib.h"
#include "platform/model/interface.h"
#include "platform/model/ip.h"
#include "platform/model/ip6.h"
#include "platform/model/kernelnetinfo.h"
#include "platform/model/l3.h"
#include "platform/model/logmgr.h"
#include "platform/model/reload.h"
#include "platform/model/routeradvt.h"
#include "platform/model/routing.h"
#include "platform/model/system.h"

namespace Linux {

struct Entities {
  // Filled by the adapter. A port's record is complete before it is announced, and is announced by the
  // directory of its kind last.
  Kel::Ptr<Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatusDir;
  Kel::Ptr<Interface::EthLagIntfStatusDir> ethLagIntfStatusDir;
  Kel::Ptr<Interface::VlanIntfStatusDir> vlanIntfStatusDir;
  Kel::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir;
  Kel::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir;
  Kel::Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir;
  Kel::Ptr<KernelNetInfo::Status> kernelNetInfoStatus;
  Kel::Ptr<Ip::Status> ipStatus;
  Kel::Ptr<Ip6::Status> ip6Status;
  Kel::Ptr<RouterAdvt::RaPacketStatus> raPacketStatus;
  Kel::Ptr<EntityMib::Status> entityMibStatus;
  Kel::Ptr<System::NetStatus> netStatus;

  // Followed by the adapter. In these two it makes a record for each port and VLAN interface, and removes it
  // with the device.
  Kel::Ptr<Interface::AllEthPhyIntfConfigDir> ethPhyIntfConfigDir;
  Kel::Ptr<Interface::VlanIntfConfigDir> vlanIntfConfigDir;
  Kel::Ptr<L3::Intf::ConfigDir> l3IntfConfigDir;
  Kel::Ptr<Ip::Config> ipConfig;
  Kel::Ptr<Ip6::Config> ip6Config;
  Kel::Ptr<Routing::Config> routingConfig;
  Kel::Ptr<System::NetConfig> netConfig;
  Kel::Ptr<LogMgr::LogConfig> logConfig;
  Kel::Ptr<System::Reload::Config> reloadConfig;
};

}  // namespace Linux
