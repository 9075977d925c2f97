#include "common/DailyLog2.h"

#include <errno.h>
#include <libgen.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <new>

#include "common/AtomicFile.h"
#include "common/Console.h"
#include "common/LogPrinter.h"
#include "common/ScopedLock.h"
#include "common/TextOps.h"
#include "common/TimeStamp.h"

using Velk::ScopedLock;
using Velk::TextOps;

namespace {

constexpr char kTraceWord[] = "Trace: ";
constexpr char kInfoWord[] = "Info: ";
constexpr char kWarningWord[] = "Warning: ";
constexpr char kErrorWord[] = "Error: ";

constexpr unsigned kStampLength = Velk::TimeStamp::kLength + 1;  // with a blank
constexpr unsigned kMaxHeader = 126;       // a module name this long leaves no type word
constexpr unsigned kMaxText = 0x7FFFFFFF;  // so that the length of a line fits in an unsigned

// Copies as much of text as fits before end. Returns the position after it. Null counts as empty.
char* Put(char* at, const char* end, const char* text) {
  if (text == nullptr) return at;
  const size_t length = strnlen(text, static_cast<size_t>(end - at));
  memcpy(at, text, length);
  return at + length;
}

// Returns "module.Type: ", truncated to kMaxHeader bytes, or only the type word if there is no module.
// snprintf(3) would take 23 % more instructions a line.
const char* MakeHeader(char (&buffer)[kMaxHeader + 1], const char* module, const char* typeWord) {
  if (TextOps::IsEmpty(module)) return typeWord;
  const char* const end = buffer + kMaxHeader;
  char* at = Put(buffer, end, module);
  at = Put(at, end, ".");
  *Put(at, end, typeWord) = '\0';
  return buffer;
}

// Facility local0 and the severity as "<n>" (RFC 3164, 4.1.1). Trace is sent as an error: many servers drop
// lower severities, and trace lines only exist if someone enabled them.
const char* Priority(const char* typeWord) {
  switch (typeWord[0]) {
    case 'I':
      return "<134>";
    case 'W':
      return "<132>";
    default:
      return "<131>";
  }
}

// Creates the sync file's directory if it is missing.
void PrepareDirectory(const char* syncPath) {
  char* const copy = TextOps::Strdup(syncPath);  // dirname(3) modifies its argument
  const char* const directory = dirname(copy);
  struct stat info;
  if (stat(directory, &info) == 0) {
    LogPrinter::Instance()->Log(Info, nullptr, "Using file path '%s' for SyncLog\n", directory);
  } else {
    LogPrinter::Instance()->Log(Info, nullptr, "SyncLog path '%s' does not exist, creating..\n", directory);
    CDailyEventLog::MakeDirectories(directory);
  }
  delete[] copy;
}

}  // namespace

unsigned DailyLog2::MessageChunk::AddData(const char* data, unsigned length) {
  const unsigned room = kChunkSize - m_used;
  const unsigned added = length < room ? length : room;
  memcpy(m_data + m_used, data, added);
  m_used += added;
  return added;
}

void DailyLog2::ChunkList::PushBack(MessageChunk* chunk) {
  chunk->SetNext(nullptr);
  if (tail != nullptr) {
    tail->SetNext(chunk);
  } else {
    head = chunk;
  }
  tail = chunk;
  ++count;
}

void DailyLog2::ChunkList::PushFront(MessageChunk* chunk) {
  chunk->SetNext(head);
  head = chunk;
  if (tail == nullptr) tail = chunk;
  ++count;
}

DailyLog2::MessageChunk* DailyLog2::ChunkList::PopFront() {
  MessageChunk* const chunk = head;
  if (chunk == nullptr) return nullptr;
  head = chunk->GetNext();
  if (head == nullptr) tail = nullptr;
  chunk->SetNext(nullptr);
  --count;
  return chunk;
}

DailyLog2::DailyLog2(unsigned int capacity, const char* syncPath)
    : m_capacity(capacity),
      m_slots(new ChunkList[capacity]),
      m_sizes(new unsigned[capacity]()),
      m_syncPath(syncPath) {
  if (!m_syncPath.IsEmpty()) PrepareDirectory(syncPath);
}

DailyLog2::~DailyLog2() {
  for (unsigned slot = 0; slot < m_capacity; ++slot) EmptySlot(slot);
  while (MessageChunk* chunk = m_free.PopFront()) delete chunk;
  for (Watcher* entry = m_watchers.head; entry != nullptr;) {
    Watcher* const next = entry->next.load(std::memory_order_relaxed);
    delete entry;
    entry = next;
  }
  delete[] m_sizes;
  delete[] m_slots;
}

bool DailyLog2::Open(const char* baseName, const char* extension, const char* directory,
                     unsigned long daysToKeep, bool echoToConsole) {
  const ScopedLock lock(m_mutex);
  m_echo = echoToConsole;
  return m_fileLog.Open(baseName, extension, directory, daysToKeep);
}

bool DailyLog2::EnableSyslog(const char* host, unsigned short localPort) {
  InetAddress2 server(0, 0);
  // Without the mutex: the lookup may block on a name server, and it logs to this object.
  if (!server.SetAddressString(host, kSyslogPort)) return false;
  server.SetAddress(static_cast<long>(server.GetIP()), kSyslogPort);

  const ScopedLock lock(m_mutex);
  m_syslogAddress = server;
  m_syslogEnabled = m_syslogSocket.Open();
  // Some servers accept messages only from source port 514. If a collector on this machine has that port, use
  // another: our newer socket would get the collector's datagrams. Our own first socket, m_firstInode, is no
  // collector: the supervisor opened it, and children inherit it.
  if (m_syslogEnabled && localPort != 0 && !UdpSocket3::IsHeldByOthers(localPort, m_firstInode) &&
      m_syslogSocket.Bind(localPort, 0) && m_firstInode == 0)
    m_firstInode = m_syslogSocket.Inode();
  return m_syslogEnabled;
}

void DailyLog2::DisableSyslog() {
  const ScopedLock lock(m_mutex);
  if (!m_syslogEnabled) return;
  m_syslogEnabled = false;
  m_syslogSocket.Close();
}

void DailyLog2::Log(ELogMessageType type, const char* module, const char* text) {
  switch (static_cast<int>(type)) {
    case Trace:
      return LogTrace(module, text);
    case Info:
      return LogInfo(module, text);
    case Warning:
      return LogWarning(module, text);
    case Error:
      return LogError(module, text);
    default:  // peers may send any number
      return;
  }
}

void DailyLog2::LogTrace(const char* module, const char* text) {
  const ScopedLock lock(m_mutex);
  LogMsg(kTraceWord, module, text);
}

void DailyLog2::LogInfo(const char* module, const char* text) {
  const ScopedLock lock(m_mutex);
  LogMsg(kInfoWord, module, text);
}

void DailyLog2::LogWarning(const char* module, const char* text) {
  LogAndNotify(kWarningWord, module, text);
}

void DailyLog2::LogError(const char* module, const char* text) {
  LogAndNotify(kErrorWord, module, text);
}

void DailyLog2::LogAndNotify(const char* typeWord, const char* module, const char* text) {
  Snapshot snapshot;
  const Watcher* entry = nullptr;
  {
    const ScopedLock lock(m_mutex);
    LogMsg(typeWord, module, text);
    // Watchers may log; while they run, no line notifies.
    const bool isOnly = m_notifyDepth.fetch_add(1, std::memory_order_relaxed) == 0;
    if (isOnly && m_watchers.count > 0) {
      TakeSnapshot(snapshot);
      entry = m_watchers.head;
    }
  }
  for (; entry != nullptr; entry = entry->next.load(std::memory_order_acquire)) {
    ILogErrorNotify* const watcher = entry->notify.load(std::memory_order_acquire);
    if (watcher != nullptr) watcher->OnLogError(snapshot.messages, snapshot.count, snapshot.totalBytes);
  }
  m_notifyDepth.fetch_sub(1, std::memory_order_relaxed);
}

// Copies all stored messages, oldest first, since other threads may log while watchers read.
void DailyLog2::TakeSnapshot(Snapshot& snapshot) {
  unsigned chunks = 0;
  for (unsigned slot = 0; slot < m_stored; ++slot) chunks += m_slots[slot].count;
  snapshot.chunks = new MessageChunk[chunks];
  snapshot.messages = new ILogDataBlock*[m_stored];
  snapshot.count = m_stored;
  MessageChunk* copy = snapshot.chunks;
  unsigned slot = OldestSlot();
  for (unsigned i = 0; i < m_stored; ++i, slot = NextSlot(slot)) {
    snapshot.messages[i] = copy;
    snapshot.totalBytes += m_sizes[slot];
    for (MessageChunk* chunk = m_slots[slot].head; chunk != nullptr; chunk = chunk->GetNext(), ++copy) {
      copy->AddData(chunk->GetDataPtr(), chunk->GetDataSize());
      copy->SetNext(chunk->GetNext() != nullptr ? copy + 1 : nullptr);
    }
  }
}

void DailyLog2::LogMsg(const char* typeWord, const char* module, const char* text) {
  text = TextOps::OrEmpty(text);
  char stamp[kStampLength + 1];
  memcpy(Velk::TimeStamp::Put(stamp), " ", 2);
  char headerBuffer[kMaxHeader + 1];
  const char* const header = MakeHeader(headerBuffer, module, typeWord);
  const unsigned headerLength = static_cast<unsigned>(strlen(header));
  const unsigned textLength = static_cast<unsigned>(strnlen(text, kMaxText));

  if (m_fileLog.IsOpen()) {
    m_fileLog.Print(stamp);
    m_fileLog.Print(header);
    m_fileLog.Print(text);
  }
  if (m_echo) {
    const iovec line[] = {TextOps::Piece(stamp, kStampLength), TextOps::Piece(header, headerLength),
                          TextOps::Piece(text, textLength)};
    Velk::Console::WriteLine(line, 3);
  }
  if (m_syslogEnabled) WriteToSyslog({}, typeWord, header, text);
  if (m_capacity > 0) Store(stamp, header, headerLength, text, textLength);
}

void DailyLog2::Store(const char* stamp, const char* header, unsigned headerLength, const char* text,
                      unsigned textLength) {
  EmptySlot(m_writeIndex);
  MessageChunk* chunk = GetMessageChunk();
  if (chunk == nullptr) return;  // cannot happen once the ring is full: EmptySlot() freed a chunk
  if (m_stored < m_capacity) ++m_stored;
  ChunkList& slot = m_slots[m_writeIndex];
  slot.PushBack(chunk);
  chunk->AddData(stamp, kStampLength);
  // Readers expect stamp and header in the first chunk, so a header that does not fit is truncated.
  chunk->AddData(header, headerLength);
  unsigned done = chunk->AddData(text, textLength);
  while (done < textLength) {
    MessageChunk* const next = GetMessageChunk();
    if (next == nullptr) {
      chunk->EndLine();
      break;
    }
    chunk = next;
    slot.PushBack(chunk);
    done += chunk->AddData(text + done, textLength - done);
  }
  m_sizes[m_writeIndex] = kStampLength + headerLength + done;
  m_writeIndex = NextSlot(m_writeIndex);
}

void DailyLog2::EmptySlot(unsigned slot) {
  while (MessageChunk* chunk = m_slots[slot].PopFront()) {
    chunk->ClearData();
    m_free.PushFront(chunk);
  }
}

// Unlike other allocations, this one must not end the process when out of memory: the supervisor logs here
// too, and nothing restarts it.
DailyLog2::MessageChunk* DailyLog2::GetMessageChunk() {
  MessageChunk* const spare = m_free.PopFront();
  return spare != nullptr ? spare : new (std::nothrow_t{}) MessageChunk;
}

bool DailyLog2::WriteToSyslog(const _SYSTEMTIME&, const char* typeWord, const char* header,
                              const char* text) {
  char packet[kMaxPacket];
  const char* const end = packet + sizeof packet;
  char* at = Put(packet, end, Priority(typeWord));
  at = Put(at, end, header);
  at = Put(at, end, text);
  return SendSyslogPacket(packet, static_cast<unsigned>(at - packet));
}

bool DailyLog2::SendSyslogPacket(char* data, unsigned length) {
  return m_syslogSocket.Write(data, static_cast<long>(length), &m_syslogAddress) == static_cast<int>(length);
}

void DailyLog2::SyncLog() {
  if (m_syncPath.IsEmpty() || WriteSyncFile()) return;
  const char* const why = strerror(errno);
  LogPrinter::Instance()->Log(Error, nullptr, "Cannot write %s: %s\n", m_syncPath.Str(), why);
}

// False with errno. Must not wait for the disk: it blocks all other threads that log, including the receive
// thread.
bool DailyLog2::WriteSyncFile() {
  const ScopedLock lock(m_mutex);
  Velk::AtomicFile file;
  FILE* const stream = file.Open(m_syncPath.Str());
  if (stream == nullptr) return false;
  WriteStored(stream);
  return file.CommitAsOwn();
}

void DailyLog2::RemoveLeftovers() {
  if (!m_syncPath.IsEmpty()) Velk::AtomicFile::RemoveLeftovers(m_syncPath.Str());
}

void DailyLog2::WriteStored(FILE* file) {
  unsigned slot = OldestSlot();
  for (unsigned i = 0; i < m_stored; ++i, slot = NextSlot(slot)) {
    for (ILogDataBlock* chunk = m_slots[slot].head; chunk != nullptr; chunk = chunk->GetNext()) {
      fwrite(chunk->GetDataPtr(), 1, chunk->GetDataSize(), file);
    }
  }
}

void DailyLog2::AddErrorNotify(ILogErrorNotify* watcher) {
  const ScopedLock lock(m_mutex);
  if (Watcher* const unused = FindWatcher(nullptr)) {
    unused->notify.store(watcher, std::memory_order_release);
    return;
  }
  Watcher* const entry = new Watcher{{watcher}, {nullptr}};
  if (m_watchers.tail != nullptr) {
    m_watchers.tail->next.store(entry, std::memory_order_release);
  } else {
    m_watchers.head = entry;
  }
  m_watchers.tail = entry;
  ++m_watchers.count;
}

void DailyLog2::RemoveErrorNotify(ILogErrorNotify* watcher) {
  const ScopedLock lock(m_mutex);
  // The entry stays: a notification may be reading it.
  if (Watcher* const entry = FindWatcher(watcher)) entry->notify.store(nullptr, std::memory_order_release);
}

// The first entry for watcher, or null.
DailyLog2::Watcher* DailyLog2::FindWatcher(const ILogErrorNotify* watcher) const {
  Watcher* entry = m_watchers.head;
  while (entry != nullptr && entry->notify.load(std::memory_order_relaxed) != watcher) {
    entry = entry->next.load(std::memory_order_relaxed);
  }
  return entry;
}

bool DailyLog2::EnumerateLogs(bool (*callback)(const char*, const char*, void*), void* context) {
  return m_fileLog.EnumerateLogs(callback, context);
}
