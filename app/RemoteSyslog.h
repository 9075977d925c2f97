// Application layer: enables remote syslog, at start-up and for SyncVar.
#pragma once

#include "common/IDailyLog2.h"

// Enables forwarding to address and logs that. A failure is logged too: if the host does not resolve,
// forwarding stays as it was; if no socket can be opened, it is off.
void UseSyslogServer(IDailyLog2* log, const char* address);
