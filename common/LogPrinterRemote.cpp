// The remote step of LogPrinter: the one thing in the logging layer that reaches up to the transport.
#include "common/LogPrinter.h"

void LogPrinter::SendRemote(ELogMessageType, const char*, const char*) {}
