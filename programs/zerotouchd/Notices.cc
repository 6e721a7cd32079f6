#include "programs/zerotouchd/Notices.h"

Kel::LogHandle provisioningOff("PROVISIONING_OFF", 6, "Provisioning is off: %s",
                               "The agent stands by and does nothing. This is what a switch does at every "
                               "boot once it has its configuration; "
                               "nobody has cancelled anything, whatever ZTP_CANCEL says right before.",
                               "None, unless the switch is to be provisioned: then remove the startup "
                               "configuration and reload, or say zerotouch "
                               "enable.",
                               0, 1, 0);
