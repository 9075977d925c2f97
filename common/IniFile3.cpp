#include "common/IniFile3.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <float.h>
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/AtomicFile.h"
#include "common/TextOps.h"

namespace {

constexpr char kBrackets[] = "[]";

const char* StoredName(const char* section) {
  return section != nullptr && section[0] == '\0' ? kBrackets : section;
}

bool IsSameName(const char* a, const char* b) {
  if (a == nullptr || b == nullptr) return a == b;
  return strcasecmp(a, b) == 0;
}

}  // namespace

void IniFile3::StrValue::Set(const char* text) {
  if (text == m_text) return;
  char* const copy = Velk::TextOps::Strdup(text);
  delete[] m_text;
  m_text = copy;
}

void IniFile3::ClearAll() {
  ClearSections();
  m_path[0] = '\0';
}

void IniFile3::ClearSections() {
  while (SectNode* section = m_sections.m_next) {
    while (ValNode* value = section->m_values.m_next) {
      section->m_values.m_next = value->m_next;
      delete value;
    }
    m_sections.m_next = section->m_next;
    delete section;
  }
}

bool IniFile3::StorePath(const char* path) {
  const size_t length = strlen(path);
  if (length >= kPathSize) {
    errno = ENAMETOOLONG;
    return false;
  }
  memmove(m_path, path, length + 1);  // path may be m_path
  return true;
}

namespace {

// Returns the link to the key's node, or the link at the end of the list, where a new node belongs.
IniFile3::ValNode** FindLink(IniFile3::SectNode* section, const char* key) {
  IniFile3::ValNode** link = &section->m_values.m_next;
  while (*link != nullptr && !IsSameName((*link)->m_key.Str(), key)) link = &(*link)->m_next;
  return link;
}

IniFile3::ValNode* AddValue(IniFile3::SectNode* section, const char* key, const char* value) {
  IniFile3::ValNode** link = FindLink(section, key);
  if (*link == nullptr) {
    *link = new IniFile3::ValNode;
    (*link)->m_key = key;
  }
  (*link)->m_value = value;
  return *link;
}

char* SkipBlanks(char* text) {
  while (isspace(static_cast<unsigned char>(*text)) != 0) ++text;
  return text;
}

// Extracts the name from "[name]" in place. Null: not a header.
const char* ParseHeader(char* text) {
  char* end = strchr(text, ']');
  if (end == nullptr) return nullptr;
  *end = '\0';
  return text + 1;
}

// Unescapes a value in place, up to the stop character or the end of the line. False: the line ended first.
bool Unescape(char* text, char stop) {
  char* out = text;
  const char* in = text;
  for (; *in != stop && *in != '\n' && *in != '\0'; ++in) {
    if (*in == '\\' && in[1] != '\0') ++in;  // an escaped line feed is part of the value
    *out++ = *in;
  }
  const bool isStopped = *in == stop;
  *out = '\0';
  return isStopped;
}

// Splits "key=value" in place and returns the value. Null: no "=", or no closing quote.
const char* ParsePair(char* text) {
  char* equals = strchr(text, '=');
  if (equals == nullptr) return nullptr;
  *equals = '\0';
  char* value = SkipBlanks(equals + 1);
  if (*value == '"') return Unescape(++value, '"') ? value : nullptr;
  Unescape(value, '\n');
  return value;
}

}  // namespace

int IniFile3::Load(const char* path) {
  const bool isStored = path != nullptr && StorePath(path);  // path may be a value that is deleted below
  ClearSections();
  if (!isStored) m_path[0] = '\0';
  const int fd = isStored ? open(m_path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC) : -1;
  if (fd < 0) return 0;
  if (ReadFrom(fd)) return 1;
  ClearSections();
  return 0;
}

bool IniFile3::ReadFrom(int fd) {
  struct stat status {};
  const bool isRegular = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
  FILE* file = isRegular ? fdopen(fd, "r") : nullptr;
  if (file == nullptr) {
    close(fd);
    return false;
  }
  SectNode* section = nullptr;
  char line[kLineSize];
  // Not beyond the initial size: a file that grows as fast as it is read would never end.
  while (ftello(file) < status.st_size && fgets(line, sizeof line, file) != nullptr) {
    char* text = SkipBlanks(line);
    if (*text == '#') continue;
    if (*text == '[') {
      const char* name = ParseHeader(text);
      if (name != nullptr) section = AddSectNode(name);
    } else if (const char* value = ParsePair(text)) {
      if (section == nullptr) section = AddSectNode(nullptr);
      AddValue(section, text, value);
    }
  }
  const bool isComplete = ferror(file) == 0;
  fclose(file);
  return isComplete;
}

namespace {

// Quotes only values with a space; the format is fixed.
void WriteValue(FILE* file, const char* value) {
  const bool isQuoted = strchr(value, ' ') != nullptr;
  if (isQuoted) fputc('"', file);
  for (; *value != '\0'; ++value) {
    if (*value == '\\' || (isQuoted && *value == '"')) fputc('\\', file);
    fputc(*value, file);
  }
  if (isQuoted) fputc('"', file);
}

void WriteSection(FILE* file, const IniFile3::SectNode* section) {
  const char* name = section->m_name.Str();
  if (name != nullptr) fprintf(file, strcmp(name, kBrackets) == 0 ? "%s\n" : "[%s]\n", name);
  for (const auto* value = section->m_values.m_next; value != nullptr; value = value->m_next) {
    fprintf(file, "%s=", value->m_key.Str());
    if (value->m_value.Str() != nullptr) WriteValue(file, value->m_value.Str());
    fputc('\n', file);
  }
}

void WriteSections(FILE* file, const IniFile3::SectNode* first) {
  for (; first != nullptr; first = first->m_next) WriteSection(file, first);
}

// Opens a pipe or device. Neither open(2) nor later writes block. Null: not writable.
FILE* OpenSpecial(const char* path, mode_t mode) {
  // With O_RDWR a pipe needs no reader, see fifo(7).
  const int access = S_ISFIFO(mode) ? O_RDWR : O_WRONLY;
  const int fd = open(path, access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  FILE* file = fd >= 0 ? fdopen(fd, "w") : nullptr;
  if (file == nullptr && fd >= 0) close(fd);
  return file;
}

}  // namespace

int IniFile3::Save(const char* path) {
  if (path != nullptr && !StorePath(path)) return 0;
  struct stat status {};
  if (stat(m_path, &status) == 0 && !S_ISREG(status.st_mode)) {
    FILE* special = OpenSpecial(m_path, status.st_mode);
    if (special == nullptr) return 0;
    WriteSections(special, m_sections.m_next);
    fclose(special);  // data that does not fit is lost
    return 1;
  }
  char target[PATH_MAX];
  Velk::AtomicFile output;
  FILE* file = output.Open(realpath(m_path, target) != nullptr ? target : m_path);
  if (file == nullptr) return 0;
  WriteSections(file, m_sections.m_next);
  return output.Commit() ? 1 : 0;
}

const char* IniFile3::GetString(const char* section, const char* key, const char* def) const {
  const ValNode* node = FindNode(section, key);
  return node != nullptr && node->m_value.Str() != nullptr ? node->m_value.Str() : def;
}

const char* IniFile3::GetString(const char* section, const char* key, char* buf, unsigned size,
                                const char* def) const {
  if (size == 0) return nullptr;
  const char* value = GetString(section, key, nullptr);
  if (value == nullptr) return def;
  strncpy(buf, value, size);
  buf[size - 1] = '\0';
  return buf;
}

int IniFile3::GetInt(const char* section, const char* key, int def) const {
  const char* value = GetString(section, key, nullptr);
  if (value == nullptr) return def;
  const long number = strtol(value, nullptr, 10);
  if (number > INT_MAX) return INT_MAX;
  return number < INT_MIN ? INT_MIN : static_cast<int>(number);
}

double IniFile3::GetDouble(const char* section, const char* key, double def) const {
  const char* value = GetString(section, key, nullptr);
  return value != nullptr ? strtod(value, nullptr) : def;
}

bool IniFile3::GetBool(const char* section, const char* key, bool def) const {
  const char* value = GetString(section, key, nullptr);
  if (value == nullptr) return def;
  return value[0] != '\0' && strchr("TtYy1", value[0]) != nullptr;
}

void IniFile3::SetInt(const char* section, const char* key, int value) {
  char text[16];
  snprintf(text, sizeof text, "%d", value);
  SetString(section, key, text);
}

void IniFile3::SetDouble(const char* section, const char* key, double value) {
  constexpr double kSmallest = 1e-9;
  char text[DBL_MAX_10_EXP + 16];  // sign, digits of the largest double, point, six decimals, NUL
  snprintf(text, sizeof text, "%lf", fabs(value) < kSmallest ? 0.0 : value);
  SetString(section, key, text);
}

void IniFile3::SetBool(const char* section, const char* key, bool value) {
  SetString(section, key, value ? "true" : "false");
}

bool IniFile3::EnumSections(SectionCallback callback, void* user) const {
  for (const SectNode* section = m_sections.m_next; section != nullptr; section = section->m_next) {
    if (!callback(section->m_name.Str(), user)) return false;
  }
  return true;
}

bool IniFile3::EnumValues(const char* section, ValueCallback callback, void* user) const {
  return EnumValues2(FindSectNode(section), callback, user);
}

bool IniFile3::EnumValues2(const SectNode* section, ValueCallback callback, void* user) const {
  if (section == nullptr) return true;
  for (const ValNode* value = section->m_values.m_next; value != nullptr; value = value->m_next) {
    if (!callback(section->m_name.Str(), value->m_key.Str(), value->m_value.Str(), user)) return false;
  }
  return true;
}

bool IniFile3::EnumAllValues(ValueCallback callback, void* user) const {
  for (const SectNode* section = m_sections.m_next; section != nullptr; section = section->m_next) {
    if (!EnumValues2(section, callback, user)) return false;
  }
  return true;
}

IniFile3::SectNode* IniFile3::FindSectNode(const char* section) const {
  SectNode* node = m_sections.m_next;
  while (node != nullptr && !IsSameName(node->m_name.Str(), StoredName(section))) node = node->m_next;
  return node;
}

IniFile3::ValNode* IniFile3::FindNode(const char* section, const char* key) const {
  SectNode* node = FindSectNode(section);
  return node != nullptr && key != nullptr ? *FindLink(node, key) : nullptr;
}

IniFile3::SectNode* IniFile3::AddSectNode(const char* section) {
  const char* name = StoredName(section);
  SectNode** link = &m_sections.m_next;
  while (*link != nullptr && !IsSameName((*link)->m_name.Str(), name)) link = &(*link)->m_next;
  if (*link != nullptr) return *link;
  // Keys without a section have no header, so they must come first in the file.
  if (name == nullptr) link = &m_sections.m_next;
  auto* node = new SectNode;
  node->m_name = name;
  node->m_next = *link;
  *link = node;
  return node;
}

IniFile3::ValNode* IniFile3::AddValNode(const char* section, const char* key, const char* value) {
  return key != nullptr ? AddValue(AddSectNode(section), key, value) : nullptr;
}
