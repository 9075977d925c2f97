// Foundation layer: files that are replaced as a whole or stay as they were.
#pragma once

#include <stdio.h>

#include "common/SimpleString.h"

namespace Velk {

// Collects the new version of a file in memory, writes it to a file beside the old one and puts it in place
// by rename(2): a reader, also after a crash, finds all of the old version or all of the new
// one. A full disk leaves the old one.
//
// Only where the directory refuses (not writable, a name too long, a file mounted on its own) the old file is
// written over, new bytes beyond its end first, so that a lack of room is found while it is whole. A power
// cut or a failing device in the middle of that leaves a mix.
//
// Safe in a world-writable directory: follows no symbolic link in the last part of the path, waits for no
// pipe or device, writes over no file that has a second name. One thread at a time.
class AtomicFile {
 public:
  AtomicFile() = default;
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  // Without a Commit() before it the file is as it was.
  ~AtomicFile() { Discard(); }

  // A stream to write the new content to; the caller must not close it. Touches no file. Null: no path, no
  // memory.
  FILE* Open(const char* path);

  // Puts the new content in place, and waits for fsync(2): all of one version is found after a power cut,
  // too. The file keeps its permissions; a missing one is made. False: path is no regular file, not writable,
  // or has no room for the content; a file just made stays empty then.
  bool Commit();

  // For a path in a directory where others may make files: puts a new file there, the caller's own and
  // readable by all (mode 0644 whatever umask(2) says), in place of whatever has the name but a directory.
  // Where the directory refuses that, it writes over the old file, but only over the caller's own. Waits for
  // no disk. False with errno.
  bool CommitAsOwn();

  // Removes what a process left that was killed within a Commit() to path: files of ours with a name as those
  // have that are to be renamed.
  static void RemoveLeftovers(const char* path);

 private:
  bool Finish();

  void Discard();

  SimpleString m_path;
  FILE* m_stream = nullptr;
  char* m_data = nullptr;  // what the stream collected, up to date once that is closed; from malloc(3)
  size_t m_size = 0;
};

}  // namespace Velk
