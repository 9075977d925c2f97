// Application layer: switching remote syslog on, at start-up and on a peer's word.
#pragma once

#include "common/IDailyLog2.h"

// Announces and enables forwarding to address. A failure is logged: forwarding stays as it was when the host
// does not resolve, and is off when there is no socket.
void UseSyslogServer(IDailyLog2* log, const char* address);
