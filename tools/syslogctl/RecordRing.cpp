#include "tools/syslogctl/RecordRing.h"

#include <stdio.h>
#include <string.h>

namespace Ctl {

bool RecordRing::Put(const Record& record) {
  const Header header{static_cast<unsigned>(record.length), record.isKernel, record.sender};
  const size_t need = sizeof header + record.length;
  if (need > kSize - (m_end - m_begin)) return false;
  if (need > kSize - m_end) {
    memmove(m_bytes, m_bytes + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
  }
  memcpy(m_bytes + m_end, &header, sizeof header);
  memcpy(m_bytes + m_end + sizeof header, record.text, record.length);
  m_end += need;
  return true;
}

// Written as a program's record, so that it is logged like one: facility syslog, severity warning.
void RecordRing::PutReport() {
  char report[96];
  const int length =
      snprintf(report, sizeof report, "<44>syslogctl: %llu messages were lost here", m_dropped);
  if (Put({report, static_cast<size_t>(length), false})) m_dropped = 0;
}

void RecordRing::Add(const Record& record) {
  const Record cut{record.text, record.length < kMaxRecord ? record.length : kMaxRecord, record.isKernel,
                   record.sender};
  // Waits for enough room before it reports, otherwise every other record would be a report.
  if (m_dropped != 0 && HasRoom()) PutReport();
  if (m_dropped != 0 || !Put(cut)) ++m_dropped;
}

bool RecordRing::Front(Record* record) {
  if (m_begin == m_end && m_dropped != 0) PutReport();
  if (m_begin == m_end) return false;
  Header header;
  memcpy(&header, m_bytes + m_begin, sizeof header);
  *record = {m_bytes + m_begin + sizeof header, header.length, header.isKernel, header.sender};
  return true;
}

void RecordRing::Pop() {
  Header header;
  memcpy(&header, m_bytes + m_begin, sizeof header);
  m_begin += sizeof header + header.length;
}

}  // namespace Ctl
