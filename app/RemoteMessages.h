// Application layer: the handlers of peers' calls.
#pragma once

#include "common/GDO.h"
#include "common/IArgsList.h"

// The target of all peers' calls but "WithAck". Names match without regard to case. All handlers run on the
// worker thread: AppData has no lock. SetVar() and LogMsg() return false for a wrong number of arguments.
class RemoteMessages : public Velk::GDO<RemoteMessages> {
 public:
  RemoteMessages();

  // (name, value): sets a configuration variable in memory.
  bool SetVar(const Velk::IArgsList* args);

  // Applies the remote syslog variables, if one of them has changed since start-up.
  bool SyncVar(const Velk::IArgsList* args);

  // (type, module, text): logs one line. type is a number of ELogMessageType.
  bool LogMsg(const Velk::IArgsList* args);

  // Writes the ring to the sync file.
  bool SyncLog(const Velk::IArgsList* args);
};
