// Tool layer: the file to which the service writes its most recent lines.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <cstddef>

#include "tools/syslogctl/Session.h"

namespace Ctl {

// The file's content when Get() last read it.
class SyncFile {
 public:
  SyncFile() = default;
  SyncFile(const SyncFile&) = delete;
  SyncFile& operator=(const SyncFile&) = delete;
  ~SyncFile();

  // Makes the service write the file, and reads it. kDone: it is new and not empty. Any other result: it
  // failed and printed why. If waits is true, there is no timeout, and kDone can also mean an interrupt:
  // check Session::IsInterrupted().
  int Get(const Options& options, Session& session, bool waits);

  const char* Begin() const { return m_bytes; }
  const char* End() const { return m_bytes + m_size; }

 private:
  // Identifies a file and its last change.
  struct Version {
    dev_t device = 0;
    ino_t inode = 0;  // 0: no file
    timespec changed{};

    Version() = default;
    explicit Version(const struct stat& status);
    bool operator!=(const Version& other) const;
  };

  static Version VersionNow();
  bool Read();
  bool ReadOpen(int fd);
  bool IsOfService(const Options& options) const;

  Version m_version;
  uid_t m_owner = 0;
  mode_t m_mode = 0;
  char* m_bytes = nullptr;
  size_t m_size = 0;
};

}  // namespace Ctl
