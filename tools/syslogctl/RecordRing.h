// Tool layer: the bridge's buffer for when programs log faster than the service takes lines.
#pragma once

#include <cstddef>

namespace Ctl {

// Up to 256 KiB of records in order of arrival. While it is full, new records are dropped and counted, and
// one record in their place reports how many. One thread.
class RecordRing {
 public:
  // Longer records are cut. Those of /dev/kmsg are never longer, those of syslog(3) seldom.
  static constexpr size_t kMaxRecord = 8192;

  struct Record {
    const char* text;
    size_t length;
    bool isKernel;        // from /dev/kmsg; else from a program
    unsigned sender = 0;  // IPv4 address in host byte order; 0: this machine
  };

  void Add(const Record& record);
  // Counts records lost before they reached us.
  void AddLoss(unsigned long long count) { m_dropped += count; }

  // The oldest record, valid until Pop() or Add(). False: the ring is empty.
  bool Front(Record* record);
  void Pop();

  // Whether a record of any length fits, and a report with it.
  bool HasRoom() const { return kSize - (m_end - m_begin) >= 2 * (sizeof(Header) + kMaxRecord); }

 private:
  static constexpr size_t kSize = 262144;

  struct Header {
    unsigned length;
    bool isKernel;
    unsigned sender;
  };

  bool Put(const Record& record);
  void PutReport();

  unsigned long long m_dropped = 0;  // not yet reported
  size_t m_begin = 0;
  size_t m_end = 0;
  char m_bytes[kSize];  // m_begin to m_end: each record after its header
};

}  // namespace Ctl
