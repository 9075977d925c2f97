// Application layer: what a peer's calls do.
#pragma once

#include "common/GDO.h"
#include "common/IArgsList.h"

// The target of every peer's call. Call names match without regard to case; the handlers run on the worker
// thread, one at a time, which alone makes their use of the lock-free AppData safe. False rejects a call:
// wrong number of arguments.
class RemoteMessages : public Velk::GDO<RemoteMessages> {
 public:
  RemoteMessages();

  // (name, value): sets a configuration variable in memory.
  bool SetVar(const Velk::IArgsList* args);

  // Takes over changed remote syslog variables; does nothing when neither changed since start-up.
  bool SyncVar(const Velk::IArgsList* args);

  // (type, module, text): one line of the log, with type a number of ELogMessageType.
  bool LogMsg(const Velk::IArgsList* args);

  // Writes the stored lines to the sync file.
  bool SyncLog(const Velk::IArgsList* args);
};
