#include "tools/syslogctl/Process.h"

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace Ctl {
namespace {

constexpr size_t kPathSize = 64;
constexpr char kServiceName[] = "syslog";

// False: the file is missing, not readable, or empty.
bool ReadHead(const char* path, char* text, size_t size) {
  FILE* const file = fopen(path, "re");
  if (file == nullptr) return false;
  const size_t length = fread(text, 1, size - 1, file);
  text[length] = '\0';
  fclose(file);
  return length != 0;
}

bool ReadStat(pid_t pid, char* text, size_t size) {
  char path[kPathSize];
  snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  return ReadHead(path, text, size);
}

bool HasServiceName(pid_t pid) {
  char text[512];
  if (!ReadStat(pid, text, sizeof text)) return false;
  const char* const name = strchr(text, '(');
  constexpr size_t kLength = sizeof kServiceName - 1;
  return name != nullptr && strncmp(name + 1, kServiceName, kLength) == 0 && name[1 + kLength] == ')';
}

bool HasSocket(pid_t pid, const char* target) {
  char path[kPathSize];
  snprintf(path, sizeof path, "/proc/%d/fd", static_cast<int>(pid));
  DIR* const folder = opendir(path);
  if (folder == nullptr) return false;
  bool isFound = false;
  while (const dirent* const entry = isFound ? nullptr : readdir(folder)) {
    char link[kPathSize];
    const ssize_t length = readlinkat(dirfd(folder), entry->d_name, link, sizeof link - 1);
    if (length < 0) continue;
    link[length] = '\0';
    isFound = strcmp(link, target) == 0;
  }
  closedir(folder);
  return isFound;
}

// 0: no process matches.
template <typename Matches>
pid_t FindProcess(Matches matches) {
  DIR* const folder = opendir("/proc");
  if (folder == nullptr) return 0;
  pid_t found = 0;
  while (const dirent* const entry = found == 0 ? readdir(folder) : nullptr) {
    const auto pid = static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));
    if (pid > 0 && matches(pid)) found = pid;
  }
  closedir(folder);
  return found;
}

// The number after the name, or 0.
unsigned long FieldOf(const char* text, const char* name) {
  const char* const field = strstr(text, name);
  return field != nullptr ? strtoul(field + strlen(name), nullptr, 10) : 0;
}

}  // namespace

bool ReadProcess(pid_t pid, Process* process) {
  char text[512];
  const char* const nameEnd = ReadStat(pid, text, sizeof text) ? strrchr(text, ')') : nullptr;
  if (nameEnd == nullptr) return false;
  int parent = 0;
  unsigned long minor = 0;
  unsigned long major = 0;
  unsigned long long ticks = 0;
  // After the name: parent, page faults of ended children (0: none has ended), start time. See proc(5).
  constexpr char kForm[] =
      ") %*c %d %*d %*d %*d %*d %*u %*u %lu %*u %lu %*u %*u %*d %*d %*d %*d %*d %*d %llu";
  if (sscanf(nameEnd, kForm, &parent, &minor, &major, &ticks) != 4) return false;
  timespec sinceBoot{};
  clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
  const auto started = static_cast<time_t>(ticks / static_cast<unsigned long long>(sysconf(_SC_CLK_TCK)));
  *process = {pid, parent, time(nullptr) - (sinceBoot.tv_sec - started), minor + major != 0};
  return true;
}

bool FindServing(unsigned long socketInode, Process* process) {
  char target[kPathSize];
  snprintf(target, sizeof target, "socket:[%lu]", socketInode);
  pid_t pid = FindProcess([&](pid_t each) { return HasSocket(each, target); });
  const auto isServiceChild = [](pid_t each) {
    Process child{};
    return HasServiceName(each) && ReadProcess(each, &child) && HasServiceName(child.parent);
  };
  if (pid == 0) pid = FindProcess(isServiceChild);
  return pid != 0 && ReadProcess(pid, process);
}

bool ReadMemory(pid_t pid, unsigned long* pss, unsigned long* rss) {
  char path[kPathSize];
  char text[2048];
  snprintf(path, sizeof path, "/proc/%d/smaps_rollup", static_cast<int>(pid));
  *pss = ReadHead(path, text, sizeof text) ? FieldOf(text, "\nPss:") : 0;
  snprintf(path, sizeof path, "/proc/%d/status", static_cast<int>(pid));
  *rss = ReadHead(path, text, sizeof text) ? FieldOf(text, "\nVmRSS:") : 0;
  return *rss != 0;
}

}  // namespace Ctl
