// Tool layer: severities of syslog(3) as the service's types.
#pragma once

#include "common/IDailyLog2.h"

namespace Ctl {

constexpr unsigned kMaxSeverity = 7;

// severity: 0 to kMaxSeverity.
inline ELogMessageType TypeOfSeverity(unsigned severity) {
  constexpr ELogMessageType kTypes[] = {Error, Error, Error, Error, Warning, Info, Info, Trace};
  return kTypes[severity];
}

}  // namespace Ctl
