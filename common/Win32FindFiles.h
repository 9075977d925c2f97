// Logging layer: lists the files of a directory.
#pragma once

// Does not enter subdirectories. Any thread may call.
class Win32FindFiles {
 public:
  // fullPath is the directory, "/" and name, in a buffer that is valid during the call only. Returns false to
  // stop.
  using Callback = bool (*)(const char* name, char* fullPath, bool isDirectory, void* context);

  // Longest full path, with the NUL. Entries with a longer one are skipped.
  static constexpr unsigned kMaxPath = 4096;

  // Reports all regular files, directories (also "." and "..") and symbolic links to these, in the order of
  // readdir(3). False: the directory cannot be opened, or the callback returned false.
  static bool EnumAll(const char* directory, Callback callback, void* context);

  // The same for files and directories whose name matches pattern without regard to case, see DosMatch2().
  static bool EnumFiles(const char* directory, const char* pattern, Callback callback, void* context);
};
