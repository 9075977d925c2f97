// Logging layer: text files, one per calendar day.
#pragma once

#include <stdio.h>
#include <time.h>

// Appends text to the file of the current local date and moves on to a new file at local midnight. Every
// write is flushed at once, so that nothing is lost when the process dies. Every failure is silent: results
// are false, texts are dropped. One thread at a time: the owner locks.
class CDailyEventLog {
 public:
  // Room for the full path of a day's file and its NUL. Names that need more are refused, never cut.
  static constexpr unsigned kPathSize = 256;

  using EnumCallback = bool (*)(const char* name, const char* fullPath, void* context);

  // What EnumerateLogs hands to its callback as context: a pointer to one of these, not the caller's own.
  struct EnumContext {
    EnumCallback callback;
    void* context;  // the caller's own
  };

  // Closed, without a name.
  CDailyEventLog();
  CDailyEventLog(const CDailyEventLog&) = delete;
  CDailyEventLog& operator=(const CDailyEventLog&) = delete;
  virtual ~CDailyEventLog();

  // Names the files directory + "/" + baseName + "YYYY-MM-DD" + extension and opens today's. Null or empty:
  // no base name, extension ".log"; null: the working directory. The extension's dot may be left out. Makes
  // a missing directory. The base name "stdout" means standard output, which is never replaced and
  // never closed. False: closed; a name that does not fit or has no directory leaves the earlier naming.
  bool Open(const char* baseName, const char* extension, const char* directory, unsigned long daysToKeep);

  // Closes the current file and opens the one of the current local date.
  bool OpenTodaysFile();

  // Appends text as it is; the caller gives the line end. Once the space limit is reached, texts are dropped
  // until the next day. A new day's file that cannot be opened leaves the object closed.
  void Print(const char* text);

  // Keeps the naming, so that OpenTodaysFile goes on.
  void Close();

  bool IsOpen() const { return m_file != nullptr; }

  // Limit in bytes for one day's file; 0: none. A text that would make the file exactly that large is
  // dropped too; the warning that tells of it is not counted.
  void LimitSpaceUsedBytes(unsigned long bytes) { m_spaceLimit = bytes; }

  // Removes nothing, however many days Open was told.
  void DeleteOldLogs(long) {}

  // The directory with a "/" at its end; null before Open.
  const char* GetLogPath() const { return m_directory; }

  // Calls back for every file in the log directory that is named like this log's, today's or not. See
  // EnumContext. False: no directory, or the callback stopped.
  bool EnumerateLogs(EnumCallback callback, void* context);

  // Makes path and all its missing parents, mode 0777 less the umask. False: errno says why; ENOTDIR when
  // something else is in the way. What was made until then stays.
  static bool MakeDirectories(const char* path);

  // A copy to be freed with delete[]; null for null.
  static char* Strdup(const char* text);
  // Replaces what target owns with a copy of text.
  static void StrAlloc(char*& target, const char* text);

 protected:
  // time(2)'s. A test has its own.
  virtual time_t Now() const;

 private:
  bool SetNames(const char* baseName, const char* extension, const char* directory);

  char* m_directory = nullptr;  // ends in "/"
  char* m_pattern = nullptr;    // wildcards for the names of this log's files
  char* m_path;                 // kPathSize bytes: the current file, or "stdout"
  char* m_dateAt = nullptr;     // into m_path; null: no naming yet
  FILE* m_file = nullptr;
  time_t m_nextRollover = 0;  // 0: never
  unsigned long m_daysToKeep = 0;
  unsigned long m_spaceLimit = 0;   // bytes; 0: none
  unsigned long m_currentSize = 0;  // bytes
  bool m_limitReached = false;
};
