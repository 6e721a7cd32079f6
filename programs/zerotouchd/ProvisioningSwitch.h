// Whether provisioning is switched on when the system has booted.
#pragma once

#include "platform/kel/Types.h"

struct ProvisioningSwitch {
  bool on;
  Kel::String reason;  // for people
};

Kel::String stringValue(ProvisioningSwitch const& provisioning);  // for people too

// Off when there is a startup configuration on flash, and off for one boot when the settings file says
// DISABLE=NextReload. That entry is consumed here; a mark in `runDirectory`, which names this boot, keeps
// provisioning off when the host is started again within it.
ProvisioningSwitch provisioningAtBoot(Kel::String const& runDirectory);
