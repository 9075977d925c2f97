// Tool layer: the commands. Each prints its own messages and returns an ExitValue.
#pragma once

#include "tools/syslogctl/Options.h"

namespace Ctl {

int RunLog(const Options& options);
int RunSet(const Options& options);
int RunRemote(const Options& options);
int RunStatus(const Options& options);
int RunCheck(const Options& options);
int RunDump(const Options& options);
int RunWatch(const Options& options);
int RunPing(const Options& options);
int RunCall(const Options& options);
int RunBridge(const Options& options);

}  // namespace Ctl
