// Logging layer: what a directory holds.
#pragma once

// Walks one directory, never into its subdirectories. Keeps no state: any thread may call.
class Win32FindFiles {
 public:
  // name is the entry's name; fullPath, the directory with "/" and the name, is the walk's own buffer and
  // lives only during the call. Returns true to go on, false to stop.
  using Callback = bool (*)(const char* name, char* fullPath, bool isDirectory, void* context);

  // Room for a full path and its NUL. Entries whose path would be longer are skipped.
  static constexpr unsigned kMaxPath = 4096;

  // Reports every regular file and directory, "." and ".." included, in the order that readdir(3) gives;
  // links count as what they point at, anything else is skipped. False: the directory cannot be opened or
  // the callback stopped the walk.
  static bool EnumAll(const char* directory, Callback callback, void* context);

  // The same for names that match pattern without regard to case, see DosMatch2. Directories match like
  // files.
  static bool EnumFiles(const char* directory, const char* pattern, Callback callback, void* context);
};
