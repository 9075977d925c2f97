// Tool layer: syslogctl bridge.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "client/LogCall.h"
#include "tools/syslogctl/Commands.h"
#include "tools/syslogctl/LogSocket.h"
#include "tools/syslogctl/NetworkLog.h"
#include "tools/syslogctl/RecordRing.h"
#include "tools/syslogctl/Session.h"
#include "tools/syslogctl/SyslogLine.h"
#include "tools/syslogctl/Text.h"

namespace Ctl {
namespace {

constexpr unsigned kHeldLines = 8192;  // while the service is away; 2 MiB
constexpr int kReadsAtOnce = 128;      // then the lines are handed on

// The kernel's log: one record per read, oldest first. See the kernel's Documentation/ABI/testing/dev-kmsg.
class KernelLog {
 public:
  KernelLog() = default;
  KernelLog(const KernelLog&) = delete;
  KernelLog& operator=(const KernelLog&) = delete;
  ~KernelLog() {
    if (m_fd >= 0) close(m_fd);
  }

  // False: it failed and printed why.
  bool Open();
  void ReadInto(RecordRing& ring);
  int Descriptor() const { return m_fd; }

 private:
  void GiveUp(ssize_t result);
  void CountLoss(const char* record, size_t length, RecordRing& ring);

  int m_fd = -1;
  unsigned long long m_next = 0;  // expected sequence number; 0: unknown
};

bool KernelLog::Open() {
  m_fd = open("/dev/kmsg", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (m_fd >= 0) return true;
  Say("cannot read the kernel's log /dev/kmsg: %s; %somit --kmsg", strerror(errno),
      errno == EPERM || errno == EACCES ? "run as root, or " : "");
  return false;
}

void KernelLog::ReadInto(RecordRing& ring) {
  char record[RecordRing::kMaxRecord];
  for (int i = 0; i < kReadsAtOnce && ring.HasRoom(); ++i) {
    const ssize_t length = read(m_fd, record, sizeof record);
    if (length < 0 && errno == EPIPE) continue;  // records were overwritten; CountLoss() counts them
    if (length < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (length <= 0) return GiveUp(length);
    CountLoss(record, static_cast<size_t>(length), ring);
    ring.Add({record, static_cast<size_t>(length), true});
  }
}

// In a container /dev/kmsg can be any file. One that is always readable would keep us busy.
void KernelLog::GiveUp(ssize_t result) {
  Say("cannot read the kernel's log /dev/kmsg: %s; continuing without it",
      result == 0 ? "end of file, so it is not the kernel's log" : strerror(errno));
  close(m_fd);
  m_fd = -1;
}

void KernelLog::CountLoss(const char* record, size_t length, RecordRing& ring) {
  SyslogLine line;
  unsigned long long number = 0;
  if (!ParseKmsg(record, length, &line, &number)) return;
  if (m_next != 0 && number > m_next) ring.AddLoss(number - m_next);
  m_next = number + 1;
}

class Bridge {
 public:
  explicit Bridge(const Options& options) : m_session(options), m_options(options) {}

  int Run();

 private:
  int Open();
  void WaitAndRead();
  bool ReadSocket();
  bool ReadNetwork();
  void HandOn();
  bool HandOnRecord(const RecordRing::Record& record);
  bool HandOnLine(const SyslogLine& line, unsigned sender);
  void BeginLine(unsigned sender);
  int Finish();

  Session m_session;
  const Options& m_options;
  LogSocket m_socket;
  NetworkLog m_network;
  KernelLog m_kernel;
  RecordRing m_ring;
  unsigned m_callsTaken = 0;  // how many calls of the oldest record the client has accepted
  Velk::SimpleString m_module{64, 64};
  Velk::SimpleString m_text{1024, 1024};
};

int Bridge::Open() {
  if (!m_socket.Open(m_options.socket)) return kUsage;
  if (m_options.udp != nullptr && !m_network.Open(m_options.udp)) return kUsage;
  if (m_options.kmsg && !m_kernel.Open()) return kUsage;
  return m_session.Open(Holding(kHeldLines));
}

// Ends a cut record with a note of how many bytes are missing. Returns its new length.
size_t MarkCut(char* record, size_t wholeLength) {
  constexpr size_t kMarkRoom = 40;
  const size_t kept = RecordRing::kMaxRecord - kMarkRoom;
  const int mark = snprintf(record + kept, kMarkRoom, " (%zu bytes cut)", wholeLength - kept);
  return kept + static_cast<size_t>(mark);
}

// True: all was read.
bool Bridge::ReadSocket() {
  char record[RecordRing::kMaxRecord];
  for (int i = 0; i < kReadsAtOnce; ++i) {
    const ssize_t received = recv(m_socket.Descriptor(), record, sizeof record, MSG_TRUNC);
    if (received < 0) return true;
    const auto length = static_cast<size_t>(received);
    m_ring.Add({record, length > sizeof record ? MarkCut(record, length) : length, false});
  }
  return false;
}

// True: all was read.
bool Bridge::ReadNetwork() {
  char record[RecordRing::kMaxRecord];
  unsigned sender = 0;
  if (m_network.Descriptor() < 0) return true;
  for (int i = 0; i < kReadsAtOnce; ++i) {
    const ssize_t received = m_network.Receive(record, sizeof record, &sender);
    if (received < 0) return true;
    const auto length = static_cast<size_t>(received);
    m_ring.Add({record, length > sizeof record ? MarkCut(record, length) : length, false, sender});
  }
  return false;
}

void Bridge::WaitAndRead() {
  // While the ring is full the kernel keeps its messages. But programs would block if we did not read theirs.
  const int kernel = m_ring.HasRoom() ? m_kernel.Descriptor() : -1;
  // poll(2) ignores negative descriptors.
  pollfd inputs[] = {
      {m_socket.Descriptor(), POLLIN, 0}, {m_network.Descriptor(), POLLIN, 0}, {kernel, POLLIN, 0}};
  m_session.Wait(inputs, 3, Velk::GDQUdpClient::kForever);
  if (inputs[0].revents != 0) ReadSocket();
  if (inputs[1].revents != 0) ReadNetwork();
  if (inputs[2].revents != 0) m_kernel.ReadInto(m_ring);
}

void AppendPart(Velk::SimpleString& out, const char* before, const RecordPart& part, const char* after) {
  if (part.length == 0) return;
  out.Append(before);
  AppendEscapingControls(out, part.begin, part.length);
  out.Append(after);
}

// Another machine can use any module's name, so each line begins with the sender's address.
void Bridge::BeginLine(unsigned sender) {
  m_text.Empty();
  if (sender == 0) return;
  char address[InetAddress2::kMaxText];
  InetAddress2::IPToString(address, sender, 0);
  m_text.Append(address).Append(' ');
}

// False: the client has no room. When the record is tried again, m_callsTaken skips what the client took.
bool Bridge::HandOnLine(const SyslogLine& line, unsigned sender) {
  m_module.Empty();
  AppendEscapingControls(m_module, line.module, strlen(line.module));
  BeginLine(sender);
  AppendPart(m_text, "[", line.pid, "] ");
  AppendPart(m_text, "", line.id, " ");
  AppendPart(m_text, "", line.data, " ");
  const char* rest = line.text.begin;
  size_t left = line.text.length;
  const char* part = "";
  size_t length = 0;
  unsigned calls = 0;
  // Runs at least once: an empty text is a line too.
  for (TakeLine(&rest, &left, &part, &length);; BeginLine(sender)) {
    if (length > 0 && part[length - 1] == '\r') --length;
    // Other carriage returns and cursor controls could overwrite the line's head on a terminal.
    AppendEscapingControls(m_text, part, length);
    Velk::LogCall call(line.type, m_module.Str(), m_text.Str());
    while (const char* const text = call.Next()) {
      if (calls++ < m_callsTaken) continue;
      if (!m_session.Client().SendMsg(text)) return false;
      ++m_callsTaken;
    }
    if (!TakeLine(&rest, &left, &part, &length)) return true;
  }
}

bool Bridge::HandOnRecord(const RecordRing::Record& record) {
  const unsigned sender = record.sender;
  if (!record.isKernel) return HandOnLine(ParseSyslog(record.text, record.length, sender != 0), sender);
  SyslogLine line;
  unsigned long long number = 0;
  return !ParseKmsg(record.text, record.length, &line, &number) || HandOnLine(line, 0);
}

void Bridge::HandOn() {
  RecordRing::Record record;
  while (m_ring.Front(&record) && HandOnRecord(record)) {
    m_ring.Pop();
    m_callsTaken = 0;
  }
}

// Reads and delivers what programs have written, as long as the timeout allows.
int Bridge::Finish() {
  const unsigned long long begin = NowMs();
  RecordRing::Record record;
  bool isAllRead = false;
  do {
    if (!isAllRead) {
      const bool isSocketRead = ReadSocket();
      isAllRead = ReadNetwork() && isSocketRead;
    }
    HandOn();
    if (m_ring.Front(&record)) m_session.Wait(m_options.timeoutMs);
  } while ((!isAllRead || m_ring.Front(&record)) && NowMs() - begin < m_options.timeoutMs);
  const int result = m_session.Finish();
  unsigned unsent = 0;
  for (; m_ring.Front(&record); m_ring.Pop()) ++unsent;
  if (unsent == 0) return result;
  Say("messages not sent: %u", unsent);
  return kNotConfirmed;
}

int Bridge::Run() {
  const int opened = Open();
  if (opened != kDone) return opened;
  while (!Session::IsInterrupted()) {
    WaitAndRead();
    HandOn();
    m_session.TellChanges();
  }
  return Finish();
}

}  // namespace

int RunBridge(const Options& options) {
  // The bridge's ring of 256 KiB may not fit on a small device's stack.
  auto* const bridge = new Bridge(options);
  const int result = bridge->Run();
  delete bridge;
  return result;
}

}  // namespace Ctl
