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

  enum class Durability {
    kSurvivesPowerCut,  // waits for fsync(2), then all of one version is found after a power cut too
    kSurvivesCrash      // waits for no disk
  };

  // Puts the new content in place. The file keeps its permissions; a missing one is made. False: path is no
  // regular file, not writable, or has no room for the content; a file just made stays empty then.
  bool Commit(Durability durability);

 private:
  void Discard();

  SimpleString m_path;
  FILE* m_stream = nullptr;
  char* m_data = nullptr;  // what the stream collected, up to date once that is closed; from malloc(3)
  size_t m_size = 0;
};

}  // namespace Velk
