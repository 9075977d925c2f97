// Foundation layer: replaces files atomically.
#pragma once

#include <stdio.h>

#include "common/SimpleString.h"

namespace Velk {

// Collects the new content in memory, writes it to a temporary file in the same directory and renames that
// over the old file. Readers find either the old or the new version, even after a crash or on a full disk.
//
// If the directory does not allow that (not writable, no room in the name for a suffix, file is a mount
// point), overwrites the old file. Writes the bytes beyond its old end first, so that a full disk is noticed
// while the old content is intact. A power cut or device error while it overwrites can leave a mix of both
// versions.
//
// Safe in a world-writable directory: does not follow a symbolic link in the last part of the path, does not
// block on a pipe or device, and does not overwrite a file with several hard links. One thread at a time.
class AtomicFile {
 public:
  AtomicFile() = default;
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  // Without a commit, the file stays as it was.
  ~AtomicFile() { Discard(); }

  // Returns a stream for the new content; the caller must not close it. Does not touch the file. Null: path
  // is null, or out of memory.
  FILE* Open(const char* path);

  // Replaces the file. Unless it has to overwrite, waits for fsync(2): the new file is complete even after a
  // power cut. Keeps the permissions; creates a missing file. False: not a regular file, not writable, or no
  // space. If there was no file, an empty one may remain.
  bool Commit();

  // For directories where others may create files: replaces anything of that name, except a directory, with a
  // new file owned by the caller, mode 0644 regardless of the umask. If the directory does not allow that,
  // overwrites the old file, but only if the caller owns it. Does not wait for the disk. False with errno.
  bool CommitAsOwn();

  // Removes the temporary files for path that killed processes left, if the caller's user owns them. No
  // commit to path may be running.
  static void RemoveLeftovers(const char* path);

 private:
  bool Finish();

  void Discard();

  SimpleString m_path;
  FILE* m_stream = nullptr;
  char* m_data = nullptr;  // the stream's content, valid once it is closed; from malloc(3)
  size_t m_size = 0;
};

}  // namespace Velk
