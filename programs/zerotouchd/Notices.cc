#include "programs/zerotouchd/Notices.h"

Kel::LogHandle hostRestarted(
    "HOST_RESTARTED", 4, "The host was started for the %u. time in this boot, since the last one %s",
    "The host of the agent has ended without being asked to. It was started again, has undone what the last "
    "one left, and begins the run anew.",
    "If this happens again and again, send the output of zerotouch report and the journal of zerotouchd to "
    "your support representative.",
    0, 0, 0);

Kel::LogHandle provisioningOff("PROVISIONING_OFF", 6, "Provisioning is off: %s",
                               "The agent stands by and does nothing. This is what a switch does at every "
                               "boot once it has its configuration; "
                               "nobody has cancelled anything, whatever ZTP_CANCEL says right before.",
                               "None, unless the switch is to be provisioned: then remove the startup "
                               "configuration and reload, or say zerotouch "
                               "enable.",
                               0, 1, 0);
