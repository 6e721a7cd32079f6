// The event catalogue: every externally visible step of a run. Each handle is raised by name with the values
// for the placeholders of its format. The texts are part of what operators see and search for; they are kept
// as they are. The warnings at the end are the system's own.
#pragma once

#include "platform/kel/Log.h"

namespace ZeroTouch {

extern Kel::LogHandle ZTP_INIT;
extern Kel::LogHandle ZTP_DHCPv4_QUERY;            // interface
extern Kel::LogHandle ZTP_DHCPv6_QUERY;            // interface
extern Kel::LogHandle ZTP_STATELESS_DHCPv6_QUERY;  // interface
extern Kel::LogHandle ZTP_DHCPv4_QUERY_FAIL;
extern Kel::LogHandle ZTP_DHCPv6_QUERY_FAIL;
extern Kel::LogHandle ZTP_STATELESS_DHCPv6_QUERY_FAIL;
extern Kel::LogHandle ZTP_DHCPv4_SUCCESS;            // what was applied
extern Kel::LogHandle ZTP_DHCPv6_SUCCESS;            // what was applied
extern Kel::LogHandle ZTP_STATELESS_DHCPv6_SUCCESS;  // what was applied
extern Kel::LogHandle ZTP_CONFIG_DOWNLOAD;           // URL
extern Kel::LogHandle ZTP_CONFIG_DOWNLOAD_FAIL;      // URL, error text
extern Kel::LogHandle ZTP_CONFIG_DOWNLOAD_TIMEOUT;   // URL, seconds
extern Kel::LogHandle ZTP_CONFIG_DOWNLOAD_SUCCESS;   // what was downloaded, URL
extern Kel::LogHandle ZTP_EXEC_SCRIPT;
extern Kel::LogHandle ZTP_EXEC_SCRIPT_TIMEOUT;  // seconds
extern Kel::LogHandle ZTP_STARTUP_FILE_SYNC_TIMEOUT;
extern Kel::LogHandle ZTP_STARTUP_FILE_SYNC_FAIL;
extern Kel::LogHandle ZTP_EXEC_SCRIPT_FAIL;      // exit code as text
extern Kel::LogHandle ZTP_EXEC_SCRIPT_SIGNALED;  // signal as text
extern Kel::LogHandle ZTP_EXEC_SCRIPT_SUCCESS;
extern Kel::LogHandle ZTP_RELOAD;
extern Kel::LogHandle ZTP_RETRY;  // retry count
extern Kel::LogHandle ZTP_CANCEL;
extern Kel::LogHandle ZTP_INTERFACE_SPEED;  // speed, interfaces

extern Kel::LogHandle downloadImpossible;  // reason
extern Kel::LogHandle saveFileIgnored;     // value, reason
extern Kel::LogHandle settingsNotWritten;  // what failed, with path and reason
extern Kel::LogHandle downloadNotUsable;   // what failed, with path and reason
extern Kel::LogHandle flashNotFlushed;     // reason
extern Kel::LogHandle configDoubtful;      // URL, why it is hardly meant
extern Kel::LogHandle dhclientConfigCut;   // path
extern Kel::LogHandle dhcpNotAsked;        // reason
extern Kel::LogHandle dhcpResultsLeft;
extern Kel::LogHandle addressNotActive;  // address and port
extern Kel::LogHandle addressGone;       // address and port
extern Kel::LogHandle bootFileUnusable;  // its name, reason

extern Kel::LogHandle httpsServerVerified;  // URL, authorities
extern Kel::LogHandle bootFileSigned;       // URL, signer, fingerprint
extern Kel::LogHandle datesNotChecked;      // the time that the clock shows

}  // namespace ZeroTouch
