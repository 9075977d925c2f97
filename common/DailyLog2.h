// Logging layer: keeps the most recent lines in a ring, writes them out on request, forwards to syslog.
#pragma once

#include <atomic>

#include "common/CDailyEventLog.h"
#include "common/IDailyLog2.h"
#include "common/InetAddress2.h"
#include "common/Mutex.h"
#include "common/SimpleString.h"
#include "common/UdpSocket3.h"

// A parameter of WriteToSyslog(). Empty, as the syslog server adds the time.
struct _SYSTEMTIME {};

// The sink of LogPrinter. Formats each message as "[HH:MM:SS.mmm] module.Type: text" for the daily file and
// the console (if Open() enabled them), the syslog server (without the time) and the ring. Any thread may
// call unless noted; one mutex serialises them. Without watchers, once the ring is full, messages of the
// usual length need no allocation. Failures to write or send are not reported, except by SyncLog().
class DailyLog2 : public IDailyLog2 {
 public:
  // Destination port of every syslog datagram.
  static constexpr unsigned short kSyslogPort = 514;
  // Longest syslog datagram in bytes; longer ones are truncated (RFC 3164, 4.1).
  static constexpr unsigned kMaxPacket = 1024;
  // Bytes in one chunk of a stored message.
  static constexpr unsigned kChunkSize = 128;

  class MessageChunk final : public ILogDataBlock {
   public:
    const char* GetDataPtr() override { return m_data; }
    unsigned GetDataSize() override { return m_used; }
    MessageChunk* GetNext() override { return m_next; }

    // Appends as much as fits and returns how many bytes that was.
    unsigned AddData(const char* data, unsigned length);
    // Replaces the last byte by a line feed.
    void EndLine() { m_data[m_used - 1] = '\n'; }
    void ClearData() { m_used = 0; }
    void SetNext(MessageChunk* next) { m_next = next; }

   private:
    MessageChunk* m_next = nullptr;
    unsigned m_used = 0;
    char m_data[kChunkSize];
  };

  // Keeps the newest messages, at most capacity; 0: keeps none. Creates the directory of syncPath if it is
  // missing. syncPath null or empty: no sync file.
  DailyLog2(unsigned int capacity, const char* syncPath);
  ~DailyLog2() override;
  DailyLog2(const DailyLog2&) = delete;
  DailyLog2& operator=(const DailyLog2&) = delete;

  // Starts the daily files, see CDailyEventLog::Open(). echoToConsole: also print every line to standard
  // output, even if Open() fails.
  bool Open(const char* baseName, const char* extension, const char* directory, unsigned long daysToKeep,
            bool echoToConsole);

  // See IDailyLog2. Ignores a port in host, as in "name:99", but fails if that parses as 0. Resolves host
  // without the mutex, so other threads can log. If host does not resolve, nothing changes; if no socket can
  // be opened, syslog is off.
  bool EnableSyslog(const char* host, unsigned short localPort) override;
  void DisableSyslog() override;
  void Log(ELogMessageType type, const char* module, const char* text) override;
  // Replaces the sync file, see AtomicFile::CommitAsOwn(). Unless it must be written in place, readers keep
  // the version that they have open. A failure is logged.
  void SyncLog() override;
  // Removes the temporary files of processes that were killed during SyncLog().
  void RemoveLeftovers();
  // A warning or error logged during a notification, on any thread, is stored, but watchers are not told.
  // Watchers get a copy of the ring, which is made even if every watcher has been removed.
  void AddErrorNotify(ILogErrorNotify* watcher) override;
  // May return while another thread is still in the watcher's OnLogError().
  void RemoveErrorNotify(ILogErrorNotify* watcher) override;
  // These two do not lock, since the callback may log. Do not call them while another thread is in Open().
  const char* GetLogPath() override NO_THREAD_SAFETY_ANALYSIS { return m_fileLog.GetLogPath(); }
  bool EnumerateLogs(bool (*callback)(const char*, const char*, void*),
                     void* context) override NO_THREAD_SAFETY_ANALYSIS;

  // Log() for each type. The last two notify the watchers.
  void LogTrace(const char* module, const char* text);
  void LogInfo(const char* module, const char* text);
  void LogWarning(const char* module, const char* text);
  void LogError(const char* module, const char* text);

  // typeWord is "Info: " or the like, with the blank.
  void LogMsg(const char* typeWord, const char* module, const char* text) REQUIRES(m_mutex);
  // Null: out of memory. The message is then dropped or truncated.
  MessageChunk* GetMessageChunk() REQUIRES(m_mutex);
  // Sends header and text as one datagram. The first letter of typeWord selects the severity.
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

  // Atomic: a notification walks the list without the mutex while other threads add and remove.
  struct Watcher {
    std::atomic<ILogErrorNotify*> notify;
    std::atomic<Watcher*> next;
  };

  struct WatcherList {
    Watcher* head = nullptr;
    Watcher* tail = nullptr;
    unsigned count = 0;  // including removed entries, whose notify is null
  };

  // The copy of the ring that watchers get.
  struct Snapshot {
    Snapshot() = default;
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;
    ~Snapshot() {
      delete[] messages;
      delete[] chunks;
    }

    MessageChunk* chunks = nullptr;
    ILogDataBlock** messages = nullptr;  // the first chunk of each
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
  unsigned* const m_sizes PT_GUARDED_BY(m_mutex);   // line lengths; more than stored if a header was cut
  std::atomic<unsigned> m_notifyDepth{0};
  const Velk::SimpleString m_syncPath;
  ChunkList m_free GUARDED_BY(m_mutex);
  WatcherList m_watchers GUARDED_BY(m_mutex);
  Velk::Mutex m_mutex;
  bool m_syslogEnabled GUARDED_BY(m_mutex) = false;
  unsigned long m_firstInode GUARDED_BY(m_mutex) = 0;  // inode of the first socket bound; 0: none
  InetAddress2 m_syslogAddress GUARDED_BY(m_mutex){0, 0};
  UdpSocket3 m_syslogSocket GUARDED_BY(m_mutex);
};
