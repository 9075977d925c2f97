#include "common/CDailyEventLog.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/SimpleString.h"
#include "common/TextOps.h"
#include "common/Win32FindFiles.h"

using Velk::TextOps;

namespace {

constexpr char kStdout[] = "stdout";
constexpr unsigned kDateLength = 10;  // "YYYY-MM-DD"

// Creates one directory if it does not exist.
bool MakeDirectory(const char* path) {
  struct stat info;
  if (stat(path, &info) != 0) return mkdir(path, 0777) == 0;
  if (S_ISDIR(info.st_mode)) return true;
  errno = ENOTDIR;
  return false;
}

time_t NextMidnight(tm day) {
  // Not 86,400 seconds later: a day is longer or shorter when daylight saving time starts or ends.
  ++day.tm_mday;
  day.tm_hour = day.tm_min = day.tm_sec = 0;
  day.tm_isdst = -1;
  return mktime(&day);
}

bool EnumLogFiles(const char* name, char* fullPath, bool isDirectory, void* context) {
  if (isDirectory) return true;
  // Passes EnumContext, not the caller's context: callbacks read theirs from its second member.
  return static_cast<CDailyEventLog::EnumContext*>(context)->callback(name, fullPath, context);
}

}  // namespace

CDailyEventLog::CDailyEventLog() : m_path(new char[kPathSize]) {
  m_path[0] = '\0';
}

CDailyEventLog::~CDailyEventLog() {
  Close();
  delete[] m_path;
  delete[] m_pattern;
  delete[] m_directory;
}

bool CDailyEventLog::Open(const char* baseName, const char* extension, const char* directory,
                          unsigned long daysToKeep) {
  Close();
  // Not checked: opening a file there would fail too.
  if (directory != nullptr) MakeDirectories(directory);
  if (baseName != nullptr && strcmp(baseName, kStdout) == 0) {
    memcpy(m_path, kStdout, sizeof kStdout);
    m_nextRollover = 0;
    return OpenTodaysFile();
  }
  m_daysToKeep = daysToKeep != 0 ? daysToKeep : 1;
  return SetNames(baseName, extension, directory) && OpenTodaysFile();
}

bool CDailyEventLog::SetNames(const char* baseName, const char* extension, const char* directory) {
  char workingDirectory[kPathSize];
  if (directory == nullptr) directory = getcwd(workingDirectory, sizeof workingDirectory);
  if (TextOps::IsEmpty(directory)) return false;
  if (TextOps::IsEmpty(extension)) extension = ".log";
  const char* const dot = extension[0] == '.' ? "" : ".";

  Velk::SimpleString path(directory);
  if (directory[strlen(directory) - 1] != '/') path.Append('/');
  const Velk::SimpleString logDirectory = path;
  path.Append(baseName);
  const unsigned dateAt = path.Length();
  path.Append("YYYY-MM-DD").Append(dot).Append(extension);
  if (path.Length() >= kPathSize) return false;
  Velk::SimpleString pattern(baseName);
  pattern.Append('*').Append(dot).Append(extension);

  memcpy(m_path, path.Str(), path.Length() + 1);
  m_dateAt = m_path + dateAt;
  StrAlloc(m_directory, logDirectory.Str());
  StrAlloc(m_pattern, pattern.Str());
  return true;
}

bool CDailyEventLog::OpenTodaysFile() {
  Close();
  if (strcmp(m_path, kStdout) == 0) {
    m_file = stdout;
    return true;
  }
  if (m_dateAt == nullptr) return false;
  const time_t now = Now();
  tm today{};
  tzset();
  if (localtime_r(&now, &today) == nullptr) return false;
  char date[40];
  snprintf(date, sizeof date, "%4.4d-%2.2d-%2.2d", today.tm_year + 1900, today.tm_mon + 1, today.tm_mday);
  memcpy(m_dateAt, date, kDateLength);

  // O_NONBLOCK: a pipe at this path must not block every thread that logs.
  const int fd = open(m_path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666);
  if (fd < 0) return false;
  struct stat info;
  m_file = fstat(fd, &info) == 0 ? fdopen(fd, "a") : nullptr;
  if (m_file == nullptr) {
    close(fd);
    return false;
  }
  m_currentSize = static_cast<unsigned long>(info.st_size);
  m_nextRollover = NextMidnight(today);
  return true;
}

void CDailyEventLog::Print(const char* text) {
  if (m_file == nullptr || text == nullptr) return;
  // If the new day's file cannot be opened, the log stays closed: retrying a full or missing device for each
  // line would slow down every thread that logs. The owner can call OpenTodaysFile() later.
  if (m_nextRollover != 0 && Now() >= m_nextRollover && !OpenTodaysFile()) return;
  const unsigned long length = strlen(text);
  if (m_spaceLimit != 0 && (length >= m_spaceLimit || m_currentSize >= m_spaceLimit - length)) {
    if (m_limitReached) return;
    fprintf(m_file, "\nWARNING: File size limit of %lu bytes reached! Logging stopped until next day.\n\n",
            m_spaceLimit);
    fflush(m_file);
    m_limitReached = true;
    m_currentSize = m_spaceLimit;
    return;
  }
  m_currentSize += length;
  fputs(text, m_file);
  fflush(m_file);
}

time_t CDailyEventLog::Now() const {
  return time(nullptr);
}

void CDailyEventLog::Close() {
  if (m_file != nullptr && m_file != stdout) fclose(m_file);
  m_file = nullptr;
  m_currentSize = 0;
  m_limitReached = false;
}

bool CDailyEventLog::EnumerateLogs(EnumCallback callback, void* context) {
  EnumContext record{callback, context};
  return Win32FindFiles::EnumFiles(m_directory, m_pattern, EnumLogFiles, &record);
}

bool CDailyEventLog::MakeDirectories(const char* path) {
  char* const prefix = Strdup(path);
  if (prefix == nullptr) return false;
  bool made = true;
  for (char* slash = strchr(prefix, '/'); made && slash != nullptr; slash = strchr(slash + 1, '/')) {
    // There is no name before a leading slash or between two slashes.
    if (slash == prefix || slash[-1] == '/') continue;
    *slash = '\0';
    made = MakeDirectory(prefix);
    *slash = '/';
  }
  made = made && MakeDirectory(prefix);
  delete[] prefix;
  return made;
}

char* CDailyEventLog::Strdup(const char* text) {
  return TextOps::Strdup(text);
}

void CDailyEventLog::StrAlloc(char*& target, const char* text) {
  char* const copy = Strdup(text);
  delete[] target;
  target = copy;
}
