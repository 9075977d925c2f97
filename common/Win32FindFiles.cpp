#include "common/Win32FindFiles.h"

#include <dirent.h>
#include <string.h>
#include <sys/stat.h>

#include "common/DosMatch2.h"

namespace {

struct Filter {
  const char* pattern;
  Win32FindFiles::Callback callback;
  void* context;
};

bool EnumFilesFilter(const char* name, char* fullPath, bool isDirectory, void* context) {
  const Filter* filter = static_cast<const Filter*>(context);
  if (!Velk::DosMatch2(name, filter->pattern, false)) return true;
  return filter->callback(name, fullPath, isDirectory, filter->context);
}

}  // namespace

bool Win32FindFiles::EnumAll(const char* directory, Callback callback, void* context) {
  if (directory == nullptr) return false;
  const size_t directoryLength = strlen(directory);
  if (directoryLength + 1 >= kMaxPath) return false;
  DIR* dir = opendir(directory);
  if (dir == nullptr) return false;
  char path[kMaxPath];
  memcpy(path, directory, directoryLength);
  // The path is always directory, "/" and name, even if directory ends in a slash.
  path[directoryLength] = '/';
  char* const nameAt = path + directoryLength + 1;
  const size_t room = kMaxPath - directoryLength - 1;

  bool goOn = true;
  while (goOn) {
    const dirent* entry = readdir(dir);
    if (entry == nullptr) break;
    const size_t nameSize = strlen(entry->d_name) + 1;
    if (nameSize > room) continue;
    memcpy(nameAt, entry->d_name, nameSize);
    struct stat info;
    if (stat(path, &info) != 0 || !(S_ISREG(info.st_mode) || S_ISDIR(info.st_mode))) continue;
    goOn = callback(entry->d_name, path, S_ISDIR(info.st_mode), context);
  }
  closedir(dir);
  return goOn;
}

bool Win32FindFiles::EnumFiles(const char* directory, const char* pattern, Callback callback, void* context) {
  Filter filter{pattern, callback, context};
  return EnumAll(directory, EnumFilesFilter, &filter);
}
