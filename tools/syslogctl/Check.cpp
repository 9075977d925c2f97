// Tool layer: syslogctl check.
#include <ctype.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "common/InetAddress2.h"
#include "common/IniFile3.h"
#include "common/ServiceNames.h"
#include "tools/syslogctl/Commands.h"
#include "tools/syslogctl/Shown.h"
#include "tools/syslogctl/Text.h"

namespace Ctl {
namespace {

using Velk::SimpleString;

constexpr char kSection[] = "Data";

bool IsBlank(char c) {
  return isspace(static_cast<unsigned char>(c)) != 0;
}

const char* SkipBlanks(const char* text) {
  while (IsBlank(*text)) ++text;
  return text;
}

bool IsSameName(const char* name, const char* known) {
  return strcasecmp(name, known) == 0;
}

// Returns text made safe to print.
SimpleString Printable(const char* text) {
  SimpleString shown;
  AppendPrintable(shown, text);
  return shown;
}

// Splits the file into lines as IniFile3 does. Values come from IniFile3 itself.
class Checker {
 public:
  explicit Checker(const char* path) : m_path(path) {}

  // False: cannot read the file, see errno.
  bool Run();
  bool IsClean() const { return m_findings == 0; }

 private:
  // A variable that the service uses.
  struct Variable {
    const char* name;
    unsigned line;  // where it was last set; 0: not set
  };

  void Report(unsigned line, const char* format, ...) __attribute__((format(printf, 3, 4)));
  void CheckLine(const char* line, size_t length);
  void CheckPiece(char* text);
  void CheckHeader(const char* text);
  void CheckPair(char* text);
  void CheckKey(const char* key);
  bool CheckQuoted(const char* value);
  void CheckBare(const char* value);
  void CheckValues();
  void CheckType(const char* type);
  void CheckAddress(const char* address);

  const char* m_path;
  IniFile3 m_file;
  unsigned m_line = 1;
  unsigned m_findings = 0;
  SimpleString m_section;
  Variable m_type{Velk::kRemoteLogType, 0};
  Variable m_address{Velk::kRemoteLogAddress, 0};
};

void Checker::Report(unsigned line, const char* format, ...) {
  ++m_findings;
  printf("%s:%u: ", m_path, line);
  va_list args;
  va_start(args, format);
  vprintf(format, args);
  va_end(args);
  putchar('\n');
}

void Checker::CheckHeader(const char* text) {
  const char* const end = strchr(text, ']');
  if (end == nullptr) {
    return Report(m_line, "missing ']': the line is skipped, and the lines after it belong to section '%s'",
                  Printable(m_section.Str()).Str());
  }
  const auto length = static_cast<unsigned>(end - text - 1);
  m_section.Empty();
  if (length != 0) m_section.Set(text + 1, length);
  SimpleString trimmed = m_section;
  trimmed.TrimRight();
  if (!IsSameName(m_section.Str(), kSection) && IsSameName(SkipBlanks(trimmed.Str()), kSection)) {
    Report(m_line, "section '%s' has blanks, so it is not section '%s'", m_section.Str(), kSection);
  }
  const char* const rest = SkipBlanks(end + 1);
  if (*rest != '\0' && *rest != '#' && *rest != ';') Report(m_line, "text after ']' is ignored");
}

void Checker::CheckKey(const char* key) {
  const bool isData = IsSameName(m_section.Str(), kSection);
  const size_t length = strlen(key);
  Variable* variable = nullptr;
  SimpleString trimmed(key);
  trimmed.TrimRight();
  for (Variable* const each : {&m_type, &m_address}) {
    if (IsSameName(trimmed.Str(), each->name)) variable = each;
  }
  if (length != 0 && IsBlank(key[length - 1])) {
    Report(m_line, "the blanks before '=' become part of the name '%s': write '%s='", Printable(key).Str(),
           Printable(trimmed.Str()).Str());
  } else if (isData && variable == nullptr) {
    Report(m_line, "the service does not use '%s'", Printable(key).Str());
  } else if (!isData && variable != nullptr) {
    Report(m_line, "'%s' is ignored outside section '%s'", key, kSection);
  } else if (variable != nullptr) {
    if (variable->line != 0) Report(m_line, "'%s' replaces the value from line %u", key, variable->line);
    variable->line = m_line;
  }
}

// False: the service skips the line.
bool Checker::CheckQuoted(const char* value) {
  while (*value != '"' && *value != '\n' && *value != '\0')
    value += *value == '\\' && value[1] != '\0' ? 2 : 1;
  if (*value != '"') {
    Report(m_line, "unclosed quote: the line is skipped");
    return false;
  }
  const char* const rest = SkipBlanks(value + 1);
  if (*rest != '\0' && *rest != '#' && *rest != ';')
    Report(m_line, "text after the closing quote is ignored");
  return true;
}

void Checker::CheckBare(const char* value) {
  const size_t length = strcspn(value, "\n");
  size_t backslashes = 0;
  while (backslashes < length && value[length - 1 - backslashes] == '\\') ++backslashes;
  if (backslashes % 2 != 0 && value[length] == '\n') {
    Report(m_line, "the backslash at the end makes the line feed part of the value");
  } else if (length != 0 && value[length - 1] == '\r') {
    Report(m_line,
           "the carriage return at the end becomes part of the value: end lines with a line feed only");
  } else if (length != 0 && IsBlank(value[length - 1])) {
    Report(m_line, "the blanks at the end become part of the value");
  }
}

void Checker::CheckPair(char* text) {
  char* const equals = strchr(text, '=');
  if (equals == nullptr) return Report(m_line, "missing '=': the line is skipped");
  *equals = '\0';
  const char* const value = SkipBlanks(equals + 1);
  if (*value != '"') CheckBare(value);
  if (*value != '"' || CheckQuoted(value + 1)) CheckKey(text);
}

void Checker::CheckPiece(char* text) {
  static const char kByteOrderMark[] = "\xEF\xBB\xBF";
  if (m_line == 1 && strncmp(text, kByteOrderMark, sizeof kByteOrderMark - 1) == 0) {
    return Report(m_line, "the byte order mark becomes part of the line: remove it");
  }
  while (IsBlank(*text)) ++text;
  // IniFile3 has no ';' comments, but no variable's name begins with ';'.
  if (*text == '\0' || *text == '#' || *text == ';') return;
  if (*text == '[') {
    CheckHeader(text);
  } else {
    CheckPair(text);
  }
}

void Checker::CheckLine(const char* line, size_t length) {
  constexpr size_t kMax = IniFile3::kLineSize - 1;
  if (memchr(line, '\0', length) != nullptr) Report(m_line, "the line ends at a NUL byte");
  if (length > kMax && line[kMax] != '\n') {
    Report(m_line, "the line is longer than %zu bytes and is read as several", kMax);
  }
  for (size_t done = 0; done < length; done += kMax) {
    char piece[kMax + 1];
    const size_t size = length - done < kMax ? length - done : kMax;
    memcpy(piece, line + done, size);
    piece[size] = '\0';
    CheckPiece(piece);
  }
  ++m_line;
}

void Checker::CheckType(const char* type) {
  if (strcmp(type, Velk::kSyslogServerType) == 0) {
    if (m_address.line == 0)
      Report(m_type.line, "missing %s: there is nowhere to forward to", m_address.name);
  } else if (*type != '\0' && strcmp(type, "none") != 0) {
    Report(m_type.line, "unknown type '%s': write exactly '%s' to forward the log, or 'none'",
           Printable(type).Str(), Velk::kSyslogServerType);
  }
}

// Keep in step with InetAddress2::SetAddressString.
void Checker::CheckAddress(const char* address) {
  static const char kNameCharacters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.-_";
  const size_t length = strlen(address);
  const SimpleString shown = Printable(address);
  const unsigned long ip = InetAddress2::StringToIP(address, nullptr);
  const bool isNumeric = strspn(address, "0123456789.") == length;
  if (length == 0) {
    Report(m_address.line, "the address is empty");
  } else if (strchr(address, ':') != nullptr) {
    Report(m_address.line, "'%s' has a colon: the port is always 514, and IPv6 is not supported",
           shown.Str());
  } else if (ip != 0 && !isNumeric) {
    char quad[InetAddress2::kMaxText];
    InetAddress2::IPToString(quad, ip, 0);
    Report(m_address.line, "'%s' is read as the address %s", shown.Str(), quad);
  } else if (ip == 0 &&
             (isNumeric || strspn(address, kNameCharacters) != length || length > InetAddress2::kMaxHost)) {
    Report(m_address.line,
           "invalid address '%s': use an IPv4 address or a host name of at most %u characters", shown.Str(),
           InetAddress2::kMaxHost);
  }
}

void Checker::CheckValues() {
  if (m_type.line != 0) CheckType(m_file.GetString(kSection, m_type.name, ""));
  if (m_address.line == 0) return;
  CheckAddress(m_file.GetString(kSection, m_address.name, ""));
  if (m_type.line == 0) Report(m_address.line, "missing %s: nothing is forwarded", m_type.name);
}

bool Checker::Run() {
  // Load() first: it refuses all but regular files, and fopen() would block on a pipe.
  FILE* const file = m_file.Load(m_path) != 0 ? fopen(m_path, "re") : nullptr;
  if (file == nullptr) return false;
  char* line = nullptr;
  size_t room = 0;
  ssize_t length;
  while ((length = getline(&line, &room, file)) > 0) CheckLine(line, static_cast<size_t>(length));
  free(line);
  fclose(file);
  CheckValues();
  return true;
}

}  // namespace

int RunCheck(const Options& options) {
  const char* const path = options.wordCount != 0 ? options.words[0] : Velk::kConfigPath;
  Checker checker(path);
  errno = 0;
  if (!checker.Run()) {
    if (errno == ENOENT && options.wordCount == 0) {
      if (!options.quiet) printf("%s: missing, so nothing is set\n", path);
      return FlushOutput() ? kDone : kUsage;
    }
    Say("cannot read %s: %s", path, errno != 0 ? strerror(errno) : "not a regular file");
    return kUsage;
  }
  if (checker.IsClean() && !options.quiet) printf("%s: ok\n", path);
  if (!FlushOutput()) return kUsage;
  return checker.IsClean() ? kDone : kNotConfirmed;
}

}  // namespace Ctl
