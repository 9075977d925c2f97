// Foundation layer: files that are replaced as a whole or stay as they were.
#pragma once

#include <stdio.h>

#include "common/SimpleString.h"

namespace Velk {

// Writes a new version of a file beside it, in the same directory, and puts it in place by rename(2), so
// that a reader or a power cut finds the old version or the new one. Where no file can be made beside it
// the file is written in place. One thread at a time. Safe in a world-writable directory: opening follows
// no symbolic link in the last part of the path and does not block.
class AtomicFile {
 public:
  AtomicFile() = default;
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  // Without a Commit() before it the file keeps its old content (in place: what was written so far).
  ~AtomicFile() { Discard(); }

  // A stream to write the new content to; the caller must not close it. The file keeps its permissions; a
  // missing one is made, empty until Commit(). Null: path is no regular file or not writable, errno says
  // why; the file is as it was.
  FILE* Open(const char* path);

  // Puts the new content in place. False: some of it could not be written, or the rename failed; see
  // ~AtomicFile() for what is there then.
  bool Commit();

 private:
  void Discard();

  FILE* m_file = nullptr;
  SimpleString m_path;
  SimpleString m_temp;  // empty: written in place
};

}  // namespace Velk
