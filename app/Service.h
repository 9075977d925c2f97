// Application layer: the assembly of the whole service.
#pragma once

#include "common/ServiceNames.h"

// The fixed values of the service. The defaults are what every device runs with; tests change them.
struct ServiceValues {
  const char* configPath = Velk::kConfigPath;
  const char* syncPath = Velk::kSyncPath;
  unsigned ringCapacity = 500;  // messages
  const char* password = Velk::kServicePassword;
  unsigned short port = Velk::kServicePort;  // UDP, on every interface
};

// Runs the service: sets the log up, forks the serving child and supervises it. argv[1] equal to "debug" in
// any case, as the only argument, keeps trace messages too. Call it on the process's first thread, before any
// other exists.
//
// Returns in the supervisor with 1 when it can't fork, and in a child with 1 when its queue thread can't
// start. A child that got further ends its process itself: with 1 when its UDP server can't start, with 0
// when the receive loop ends.
int RunService(const ServiceValues& values, int argc, char** argv);
