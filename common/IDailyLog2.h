// Logging layer: interface of a log store, as LogPrinter uses it.
#pragma once

// Type of a log message. "LogMsg" calls carry the number; a peer may send any int.
enum ELogMessageType : int { Trace = 0, Info = 1, Warning = 2, Error = 3 };

// A store of log messages: the sink of LogPrinter. Any thread may call.
class IDailyLog2 {
 public:
  // Read-only view of one chunk of a stored message.
  class ILogDataBlock {
   public:
    // The bytes of the chunk, not NUL-terminated.
    virtual const char* GetDataPtr() = 0;
    // The number of bytes at GetDataPtr().
    virtual unsigned GetDataSize() = 0;
    // The next chunk of the same message; null after the last.
    virtual ILogDataBlock* GetNext() = 0;

   protected:
    ~ILogDataBlock() = default;  // views are never deleted through this interface
  };

  // A watcher: is notified of each warning and error after it is stored, except those that any thread logs
  // during a notification.
  class ILogErrorNotify {
   public:
    // Never called; keeps its slot in the virtual table.
    virtual void OnLogEvent() {}
    // messages: an array of `count` pointers to the first chunks of all stored messages, of any type, oldest
    // first. totalBytes: the length of the messages; a "module.Type: " that was cut counts in full. Array and
    // chunks are valid during the call only. Runs on the thread that logged, without the log's mutex.
    virtual void OnLogError(ILogDataBlock** messages, unsigned count, unsigned totalBytes) = 0;

   protected:
    ~ILogErrorNotify() = default;  // watchers are not owned
  };

  // Forwards all later messages to the syslog server host (name or address), UDP port 514. Tries to bind to
  // localPort unless it is 0. May block while resolving host. False: host does not resolve, or no socket.
  virtual bool EnableSyslog(const char* host, unsigned short localPort) = 0;
  virtual void DisableSyslog() = 0;
  // Stores one message. module may be null or empty; text includes its line feed. Drops unknown types.
  virtual void Log(ELogMessageType type, const char* module, const char* text) = 0;
  // Writes the stored messages, oldest first, to the sync file: one file, replaced each time.
  virtual void SyncLog() = 0;
  // The watcher must stay valid until removed. One that is added twice is notified twice.
  virtual void AddErrorNotify(ILogErrorNotify* watcher) = 0;
  // Removes one registration of the watcher.
  virtual void RemoveErrorNotify(ILogErrorNotify* watcher) = 0;
  // Directory of the daily files with a trailing "/"; null if none was opened.
  virtual const char* GetLogPath() = 0;
  // Calls callback for each daily file until it returns false. See CDailyEventLog::EnumerateLogs().
  virtual bool EnumerateLogs(bool (*callback)(const char*, const char*, void*), void* context) = 0;
  virtual ~IDailyLog2() = default;
};
