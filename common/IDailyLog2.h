// Logging layer: what the log printer needs of a log store. Interfaces only.
#pragma once

// Type of a log message; the numbers travel in "LogMsg" calls, where a peer may send any int.
enum ELogMessageType : int { Trace = 0, Info = 1, Warning = 2, Error = 3 };

// A store of log messages: the sink of LogPrinter. Implementations lock for themselves, so any
// thread may call.
class IDailyLog2 {
 public:
  // Read-only view of one piece of a stored message.
  class ILogDataBlock {
   public:
    // The bytes of the piece, not NUL-terminated.
    virtual const char* GetDataPtr() = 0;
    // How many bytes GetDataPtr() points at.
    virtual unsigned GetDataSize() = 0;
    // The next piece of the same message, or null after the last.
    virtual ILogDataBlock* GetNext() = 0;

   protected:
    ~ILogDataBlock() = default;  // views are never deleted through this interface
  };

  // Told about every warning and error, after it was stored.
  class ILogErrorNotify {
   public:
    // Keeps its place in the slot order; the daily log never calls it.
    virtual void OnLogEvent() {}
    // messages: per stored message, oldest first, its first piece; count of them; totalBytes: the sum of
    // their formatted lengths. The array is the caller's and lives only during the call. Runs on the
    // thread that logged, outside the log's mutex.
    virtual void OnLogError(ILogDataBlock** messages, unsigned count, unsigned totalBytes) = 0;

   protected:
    ~ILogErrorNotify() = default;  // the log does not own its watchers
  };

  // Forwards every later message to the syslog server host (name or address), UDP port 514. A localPort
  // other than 0 is bound as the source port where it is free. False: host not resolved or no socket.
  // May block in name resolution.
  virtual bool EnableSyslog(const char* host, unsigned short localPort) = 0;
  virtual void DisableSyslog() = 0;
  // Stores one message; module may be null or empty, text carries its own line end. Types outside
  // ELogMessageType are ignored.
  virtual void Log(ELogMessageType type, const char* module, const char* text) = 0;
  // Writes the stored messages to the sync file, oldest first.
  virtual void SyncLog() = 0;
  // The watcher must stay alive until it is removed. Adding twice notifies twice.
  virtual void AddErrorNotify(ILogErrorNotify* watcher) = 0;
  // Removes one registration of the watcher.
  virtual void RemoveErrorNotify(ILogErrorNotify* watcher) = 0;
  // Directory of the per-day files with a trailing "/", or null when none was opened.
  virtual const char* GetLogPath() = 0;
  // Calls back with name and full path of each per-day file until it returns false.
  virtual bool EnumerateLogs(bool (*callback)(const char*, const char*, void*), void* context) = 0;
  virtual ~IDailyLog2() = default;
};
