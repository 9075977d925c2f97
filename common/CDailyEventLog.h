// Logging layer: text files, one per calendar day.
#pragma once

#include <stdio.h>
#include <time.h>

// Appends text to the file of the current local date and changes to a new file at local midnight. Flushes
// every write, so nothing is lost if the process is killed. Failures are not logged: operations return false,
// texts are dropped. One thread at a time; the owner locks.
class CDailyEventLog {
 public:
  // Longest path of a day's file, with the NUL. Longer ones are refused.
  static constexpr unsigned kPathSize = 256;

  // context is not the caller's: it points to an EnumContext made of EnumerateLogs()'s arguments. False:
  // stop.
  using EnumCallback = bool (*)(const char* name, const char* fullPath, void* context);

  struct EnumContext {
    EnumCallback callback;
    void* context;
  };

  // Starts closed.
  CDailyEventLog();
  CDailyEventLog(const CDailyEventLog&) = delete;
  CDailyEventLog& operator=(const CDailyEventLog&) = delete;
  virtual ~CDailyEventLog();

  // Opens today's file, named directory + "/" + baseName + "YYYY-MM-DD" + extension. Creates a missing
  // directory.
  // - baseName: null counts as empty. "stdout" means standard output, which is never closed or rotated.
  // - extension: null and empty count as ".log". The dot is optional.
  // - directory: null means the working directory. An empty one fails.
  // If it returns false, the log is closed; if it refused the names, the previous ones stay.
  bool Open(const char* baseName, const char* extension, const char* directory, unsigned long daysToKeep);

  // Closes the current file and opens the one of the current local date.
  bool OpenTodaysFile();

  // Appends text; the caller supplies the line feed. Once the space limit is reached, drops texts until the
  // next day. If a new day's file cannot be opened, the log is closed.
  void Print(const char* text);

  // Keeps the names, so that OpenTodaysFile() can open the log again.
  void Close();

  bool IsOpen() const { return m_file != nullptr; }

  // Limit in bytes for one day's file; 0: none. A text that would just reach the limit is dropped too. The
  // warning written in its place does not count.
  void LimitSpaceUsedBytes(unsigned long bytes) { m_spaceLimit = bytes; }

  // Does nothing, like Open()'s daysToKeep.
  void DeleteOldLogs(long) {}

  // The directory with a "/" at its end; null until Open() accepted names other than "stdout".
  const char* GetLogPath() const { return m_directory; }

  // Calls back for every file of this log in the directory, see EnumCallback. False: the directory cannot be
  // read, or the callback returned false.
  bool EnumerateLogs(EnumCallback callback, void* context);

  // Creates path and its missing parents, with mode 0777 and the umask. False with errno; ENOTDIR: a part of
  // path is not a directory. Parents already created stay.
  static bool MakeDirectories(const char* path);

  // Returns a copy, to be freed with delete[]; null for null.
  static char* Strdup(const char* text);
  // Frees target and sets it to a copy of text.
  static void StrAlloc(char*& target, const char* text);

 protected:
  // time(2). Tests override it.
  virtual time_t Now() const;

 private:
  bool SetNames(const char* baseName, const char* extension, const char* directory);

  char* m_directory = nullptr;  // ends in "/"
  char* m_pattern = nullptr;    // matches the names of this log's files
  char* m_path;                 // kPathSize bytes: the current file, or "stdout"
  char* m_dateAt = nullptr;     // the date in m_path; null: no names yet
  FILE* m_file = nullptr;
  time_t m_nextRollover = 0;  // 0: never
  unsigned long m_daysToKeep = 0;
  unsigned long m_spaceLimit = 0;   // bytes; 0: none
  unsigned long m_currentSize = 0;  // bytes
  bool m_limitReached = false;
};
