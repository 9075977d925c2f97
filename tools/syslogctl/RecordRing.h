// Tool layer: what the bridge keeps while the service is slower than the programs.
#pragma once

#include <cstddef>

namespace Ctl {

// Records in the order of their arrival, 256 KiB of them at most. What comes while it is full is dropped and
// counted; a record that says so takes the place of what was dropped. One thread.
class RecordRing {
 public:
  // Longest record; longer ones are cut. More than syslog(3) and /dev/kmsg hand out at once.
  static constexpr size_t kMaxRecord = 8192;

  struct Record {
    const char* text;
    size_t length;
    bool isKernel;        // of /dev/kmsg, else of syslog(3)
    unsigned sender = 0;  // IPv4 address in host byte order; 0: this machine
  };

  void Add(const Record& record);
  // Counts a loss that happened before the record reached us.
  void AddLoss(unsigned long long count) { m_dropped += count; }

  // The oldest record, valid until Pop() or Add(). False: there is none.
  bool Front(Record* record);
  void Pop();

  // A record of any length can be added.
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
