// Logging layer: the log store. Keeps the most recent lines, writes them out on request, forwards to syslog.
#pragma once

#include <atomic>

#include "common/CDailyEventLog.h"
#include "common/IDailyLog2.h"
#include "common/InetAddress2.h"
#include "common/Mutex.h"
#include "common/SimpleString.h"
#include "common/UdpSocket3.h"

// The time of an event, which WriteToSyslog ignores: the server stamps what it receives.
struct _SYSTEMTIME {};

// The sink of LogPrinter. Each message becomes one line "[HH:MM:SS.mmm] module.Type: text" that goes to
// the daily file and the console (where Open asked for them), to the syslog server and into a ring of the
// most recent messages. Any thread may call, unless noted otherwise; one mutex orders them. Without
// watchers nothing is allocated once the ring is full of messages of the usual length. Of failures to write
// or send only that of SyncLog is reported.
class DailyLog2 : public IDailyLog2 {
 public:
  // Destination port of every syslog datagram.
  static constexpr unsigned short kSyslogPort = 514;
  // Longest syslog payload in bytes; longer ones are cut (RFC 3164, 4.1).
  static constexpr unsigned kMaxPacket = 1024;
  // Bytes in one piece of a stored message.
  static constexpr unsigned kChunkSize = 128;

  class MessageChunk final : public ILogDataBlock {
   public:
    const char* GetDataPtr() override { return m_data; }
    unsigned GetDataSize() override { return m_used; }
    MessageChunk* GetNext() override { return m_next; }

    // Takes as much as still fits and returns how many bytes that was.
    unsigned AddData(const char* data, unsigned length);
    // Makes a line feed of the last byte.
    void EndLine() { m_data[m_used - 1] = '\n'; }
    void ClearData() { m_used = 0; }
    void SetNext(MessageChunk* next) { m_next = next; }

   private:
    MessageChunk* m_next = nullptr;
    unsigned m_used = 0;
    char m_data[kChunkSize];
  };

  // Keeps the last capacity messages; with 0 messages pass through and none is kept. Makes the directory of
  // syncPath if it is missing. Null or empty: no sync file.
  DailyLog2(unsigned int capacity, const char* syncPath);
  ~DailyLog2() override;
  DailyLog2(const DailyLog2&) = delete;
  DailyLog2& operator=(const DailyLog2&) = delete;

  // Starts the daily files, see CDailyEventLog::Open. echoToConsole: print every line to standard output too,
  // whatever the result.
  bool Open(const char* baseName, const char* extension, const char* directory, unsigned long daysToKeep,
            bool echoToConsole);

  // See IDailyLog2. A port in host is not used, but a port 0 is an error. The name is looked up before the
  // mutex is taken, so that logging goes on meanwhile; a host that does not resolve leaves everything as it
  // was, a socket that cannot be had leaves syslog off.
  bool EnableSyslog(const char* host, unsigned short localPort) override;
  void DisableSyslog() override;
  void Log(ELogMessageType type, const char* module, const char* text) override;
  // Replaces the sync file as a whole, see AtomicFile::CommitAsOwn: a reader that opens the path finds the
  // old version or the new one, and one that holds the old version open keeps that. A failure is logged.
  void SyncLog() override;
  // Removes what an earlier process left that was killed within SyncLog().
  void RemoveLeftovers();
  // A warning or error logged while another one is being told of is stored but not told of. What is shown to
  // a watcher is a copy, made while there is any entry for a watcher, removed ones included.
  void AddErrorNotify(ILogErrorNotify* watcher) override;
  // May return while another thread is still in the watcher's OnLogError.
  void RemoveErrorNotify(ILogErrorNotify* watcher) override;
  // Neither locks, since the callback may log. So neither may run while another thread is in Open.
  const char* GetLogPath() override NO_THREAD_SAFETY_ANALYSIS { return m_fileLog.GetLogPath(); }
  bool EnumerateLogs(bool (*callback)(const char*, const char*, void*),
                     void* context) override NO_THREAD_SAFETY_ANALYSIS;

  // What Log does for each type. The last two tell the watchers.
  void LogTrace(const char* module, const char* text);
  void LogInfo(const char* module, const char* text);
  void LogWarning(const char* module, const char* text);
  void LogError(const char* module, const char* text);

  // typeWord is "Info: " or the like, its blank included.
  void LogMsg(const char* typeWord, const char* module, const char* text) REQUIRES(m_mutex);
  // Null: no memory. A message that finds none is not kept, or cut.
  MessageChunk* GetMessageChunk() REQUIRES(m_mutex);
  // Sends one datagram of header and text. The first letter of typeWord gives the severity.
  bool WriteToSyslog(const _SYSTEMTIME& time, const char* typeWord, const char* header, const char* text)
      REQUIRES(m_mutex);
  bool SendSyslogPacket(char* data, unsigned length) REQUIRES(m_mutex);

 private:
  struct ChunkList {
    MessageChunk* head = nullptr;
    MessageChunk* tail = nullptr;
    unsigned count = 0;

    void PushBack(MessageChunk* chunk);
    void PushFront(MessageChunk* chunk);
    MessageChunk* PopFront();
  };

  // Atomic, because a notification walks the list outside the mutex while others add and remove.
  struct Watcher {
    std::atomic<ILogErrorNotify*> notify;
    std::atomic<Watcher*> next;
  };

  struct WatcherList {
    Watcher* head = nullptr;
    Watcher* tail = nullptr;
    unsigned count = 0;  // entries, those without a watcher included
  };

  // What the watchers are shown.
  struct Snapshot {
    Snapshot() = default;
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;
    ~Snapshot() {
      delete[] messages;
      delete[] pieces;
    }

    MessageChunk* pieces = nullptr;
    ILogDataBlock** messages = nullptr;  // the first piece of each
    unsigned count = 0;
    unsigned totalBytes = 0;
  };

  void LogAndNotify(const char* typeWord, const char* module, const char* text) EXCLUDES(m_mutex);
  void Store(const char* stamp, const char* header, unsigned headerLength, const char* text,
             unsigned textLength) REQUIRES(m_mutex);
  void EmptySlot(unsigned slot) REQUIRES(m_mutex);
  bool WriteSyncFile() EXCLUDES(m_mutex);
  void WriteStored(FILE* file) REQUIRES(m_mutex);
  Watcher* FindWatcher(const ILogErrorNotify* watcher) const REQUIRES(m_mutex);
  void TakeSnapshot(Snapshot& snapshot) REQUIRES(m_mutex);
  unsigned OldestSlot() const REQUIRES(m_mutex) { return m_stored == m_capacity ? m_writeIndex : 0; }
  unsigned NextSlot(unsigned slot) const { return slot + 1 == m_capacity ? 0 : slot + 1; }

  CDailyEventLog m_fileLog GUARDED_BY(m_mutex);
  bool m_echo GUARDED_BY(m_mutex) = false;
  const unsigned m_capacity;                        // messages
  unsigned m_stored GUARDED_BY(m_mutex) = 0;        // 0 to m_capacity
  unsigned m_writeIndex GUARDED_BY(m_mutex) = 0;    // slot of the next message
  ChunkList* const m_slots PT_GUARDED_BY(m_mutex);  // m_capacity of them
  unsigned* const m_sizes PT_GUARDED_BY(m_mutex);   // of the lines in the slots, before any cut of the header
  std::atomic<unsigned> m_notifyDepth{0};
  const Velk::SimpleString m_syncPath;
  ChunkList m_free GUARDED_BY(m_mutex);
  WatcherList m_watchers GUARDED_BY(m_mutex);
  Velk::Mutex m_mutex;
  bool m_syslogEnabled GUARDED_BY(m_mutex) = false;
  unsigned long m_firstSocket GUARDED_BY(m_mutex) = 0;  // the first that got the local port, 0: none
  InetAddress2 m_syslogAddress GUARDED_BY(m_mutex){0, 0};
  UdpSocket3 m_syslogSocket GUARDED_BY(m_mutex);
};
