#include "tools/syslogctl/Options.h"

#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <limits.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "common/InetAddress2.h"
#include "common/Timer64x.h"
#include "tools/syslogctl/Severity.h"

namespace Ctl {
namespace {

// With the usage and a line per command, this is what --help prints. It must fit a screen: 24 lines of 80
// characters.
constexpr char kCommonOptions[] =
    "\n"
    "  -s, --server HOST[:PORT]   where the service is (default 127.0.0.1:11001)\n"
    "      --password-file FILE   read the password from the first line of FILE\n"
    "      --timeout SECONDS      how long to wait for the service (default 5)\n"
    "  -q, --quiet                print only results and errors\n"
    "  -h, --help    -V, --version\n"
    "\n"
    "Exit status: 0 done, 1 not confirmed, 2 wrong usage, 3 no answer.\n";

// Common options that have no letter.
enum NoLetter { kPasswordFile = 256, kTimeout };

// Every command's options; Command::allowed says which ones a command takes.
constexpr char kShortOptions[] = "+:s:qhVl:t:n:c:i:f";  // "+": stop at the first word
const option kLongOptions[] = {
    {"server", required_argument, nullptr, 's'},
    {"password-file", required_argument, nullptr, kPasswordFile},
    {"timeout", required_argument, nullptr, kTimeout},
    {"quiet", no_argument, nullptr, 'q'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {"level", required_argument, nullptr, 'l'},
    {"tag", required_argument, nullptr, 't'},
    {"confirm", no_argument, nullptr, 'C'},
    {"json", no_argument, nullptr, 'J'},
    {"all", no_argument, nullptr, 'A'},
    {"follow", no_argument, nullptr, 'f'},
    {"count", required_argument, nullptr, 'n'},
    {"interval", required_argument, nullptr, 'i'},
    {"socket", required_argument, nullptr, 'S'},
    {"udp", required_argument, nullptr, 'U'},
    {"kmsg", no_argument, nullptr, 'K'},
    {nullptr, 0, nullptr, 0},
};

bool s_isProgressShown = false;

}  // namespace

void ShowProgress(const char* text) {
  if (*text == '\0' && !s_isProgressShown) return;
  s_isProgressShown = *text != '\0';
  fprintf(stderr, "\r%s\033[K", text);
}

void Say(const char* format, ...) {
  ShowProgress("");
  va_list args;
  va_start(args, format);
  fputs("syslogctl: ", stderr);
  vfprintf(stderr, format, args);
  fputc('\n', stderr);
  va_end(args);
}

namespace {

__attribute__((format(printf, 1, 2))) bool Refuse(const char* format, ...) {
  va_list args;
  va_start(args, format);
  fputs("syslogctl: ", stderr);
  vfprintf(stderr, format, args);
  fputs("\nTry 'syslogctl --help'.\n", stderr);
  va_end(args);
  return false;
}

bool SetServer(const char* text, Options* options) {
  const char* const colon = strchr(text, ':');
  if (colon == text || *text == '\0')
    return Refuse("invalid server '%s': give a host name or an IPv4 address", text);
  if (!InetAddress2::HasValidPort(text))
    return Refuse("invalid port '%s': give 1 to 65535 after the host", colon + 1);
  options->server = text;
  return true;
}

// Reads until a line is complete, the input ends or the buffer is full. A pipe or a terminal may deliver the
// line in pieces, or never. -1: see errno.
ssize_t ReadFirstLine(int fd, char* buffer, size_t size, unsigned timeoutMs) {
  const unsigned long long endUs = Velk::NowUs() + 1000ULL * timeoutMs;
  pollfd input = {fd, POLLIN, 0};
  size_t held = 0;
  while (held < size && memchr(buffer, '\n', held) == nullptr) {
    const unsigned long long nowUs = Velk::NowUs();
    // poll(2) first: until a pipe has a writer, read(2) returns 0, as at its end.
    const int ready = poll(&input, 1, nowUs < endUs ? static_cast<int>((endUs - nowUs + 999) / 1000) : 0);
    if (ready == 0) errno = ETIMEDOUT;
    const ssize_t count = ready > 0 ? read(fd, buffer + held, size - held) : -1;
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (count < 0) return -1;
    if (count == 0) break;
    held += static_cast<size_t>(count);
  }
  return static_cast<ssize_t>(held);
}

constexpr unsigned kMaxPassword = 255;

bool ReadPassword(Options* options) {
  static char s_password[kMaxPassword + 1];
  const char* const path = options->passwordFile;
  const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  const ssize_t size = fd >= 0 ? ReadFirstLine(fd, s_password, sizeof s_password, options->timeoutMs) : -1;
  const int error = errno;
  if (fd >= 0) close(fd);
  if (size < 0) {
    Say("cannot read the password file %s: %s%s", path, strerror(error),
        error == ETIMEDOUT ? "; use --timeout to wait longer" : "");
    return false;
  }
  const auto* const end = static_cast<const char*>(memchr(s_password, '\n', static_cast<size_t>(size)));
  size_t length = end != nullptr ? static_cast<size_t>(end - s_password) : static_cast<size_t>(size);
  if (length > 0 && s_password[length - 1] == '\r') --length;  // a file with CR LF line ends
  if (length > kMaxPassword) {
    Say("the password in %s is longer than %u bytes", path, kMaxPassword);
    return false;
  }
  s_password[length] = '\0';
  options->password = s_password;
  return true;
}

// Accepts "2" and "0.5", from a millisecond to a day.
bool SetSeconds(const char* name, const char* text, unsigned* milliseconds) {
  constexpr double kLongest = 86400;
  char* end = nullptr;
  const double seconds = strtod(text, &end);
  if (end == text || *end != '\0' || !(seconds >= 0.001 && seconds <= kLongest)) {
    return Refuse("invalid %s '%s': give seconds, 0.001 to 86400", name, text);
  }
  *milliseconds = static_cast<unsigned>(seconds * 1000);
  return true;
}

bool SetCount(const char* text, Options* options) {
  errno = 0;
  char* end = nullptr;
  options->count = strtoul(text, &end, 10);
  if (*text >= '1' && *text <= '9' && *end == '\0' && errno == 0) return true;
  return Refuse("invalid count '%s': give 1 or more", text);
}

// Our names and those of syslog(3). Not from <syslog.h>: in musl its table does not compile as C++.
const struct {
  const char* name;
  ELogMessageType type;
} kLevelNames[] = {
    {"trace", Trace},     {"debug", Trace},  {"info", Info},   {"notice", Info},
    {"warning", Warning}, {"warn", Warning}, {"error", Error}, {"err", Error},
    {"crit", Error},      {"alert", Error},  {"emerg", Error}, {"panic", Error},
};

bool SetLevel(const char* text, Options* options) {
  if (*text >= '0' && *text <= '7' && text[1] == '\0') {
    options->level = TypeOfSeverity(static_cast<unsigned>(*text - '0'));
    return true;
  }
  for (const auto& known : kLevelNames) {
    if (strcmp(text, known.name) != 0) continue;
    options->level = known.type;
    return true;
  }
  return Refuse("invalid level '%s': use trace, info, warning, error, or a name or number of syslog(3)",
                text);
}

bool SetModule(const char* text, Options* options) {
  const size_t length = strlen(text);
  if (length == 0 || length > Options::kMaxModule) {
    return Refuse("invalid module name '%s': use 1 to %zu bytes", text, Options::kMaxModule);
  }
  for (size_t i = 0; i < length; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < ' ' || c == 0x7F) return Refuse("a module name must not have control characters");
  }
  options->module = text;
  return true;
}

bool Apply(int letter, const char* value, Options* options) {
  switch (letter) {
    case 's':
      return SetServer(value, options);
    case kPasswordFile:
      options->passwordFile = value;
      return true;
    case kTimeout:
      return SetSeconds("timeout", value, &options->timeoutMs);
    case 'l':
      return SetLevel(value, options);
    case 't':
      return SetModule(value, options);
    case 'n':
      return SetCount(value, options);
    case 'i':
      return SetSeconds("interval", value, &options->intervalMs);
    case 'S':
      options->socket = value;
      return true;
    case 'U':
      options->udp = value;
      return true;
    case 'q':
      return options->quiet = true;
    case 'C':
      return true;  // "log" always confirms; older scripts still pass the option
    case 'J':
      return options->json = true;
    case 'A':
      return options->all = true;
    case 'f':
      return options->follow = true;
    default:  // 'K'
      return options->kmsg = true;
  }
}

const char* LongName(int letter) {
  const option* entry = kLongOptions;
  while (entry->name != nullptr && entry->val != letter) ++entry;
  return entry->name;
}

enum Outcome { kGoOn, kEndWell, kEndBadly };

Outcome FlushAndEnd() {
  if (fflush(stdout) == 0 && ferror(stdout) == 0) return kEndWell;
  Say("cannot write to standard output: %s", strerror(errno));
  return kEndBadly;
}

Outcome PrintHelp(const Command* commands) {
  printf("Usage: syslogctl COMMAND [OPTION]... [ARGUMENT]...\n\n");
  for (; commands->name != nullptr; ++commands) printf("  %-8s %s\n", commands->name, commands->summary);
  printf("  help     Print this, or more about COMMAND\n%s", kCommonOptions);
  return FlushAndEnd();
}

Outcome PrintHelpOf(const Command& command) {
  printf("Usage: syslogctl %s %s\n\n%s.\n%s\nOptions of all commands: syslogctl help\n", command.name,
         command.form, command.summary, command.details);
  return FlushAndEnd();
}

const Command* FindCommand(const Command* commands, const char* name) {
  while (commands->name != nullptr && strcmp(commands->name, name) != 0) ++commands;
  if (commands->name != nullptr) return commands;
  Refuse("unknown command '%s'", name);
  return nullptr;
}

class Parser {
 public:
  Parser(const Command* commands, Options* options) : m_commands(commands), m_options(options) {}

  Outcome Parse(int argc, char** argv, const Command** command);

 private:
  Outcome ParseOptions(int argc, char** argv, const char* letters);
  Outcome Help(const char* name);
  bool AreAllowed(const Command& command) const;

  const Command* m_commands;
  Options* m_options;
  bool m_isHelp = false;
  bool m_given[CHAR_MAX + 1] = {};  // index: option letter
};

// optopt is the option's letter, or 0 for an unknown long option.
Outcome RefuseOption(int problem, const char* word) {
  const char letter[] = {'-', static_cast<char>(optopt), '\0'};
  const bool isLong = optopt == 0 || (LongName(optopt) != nullptr && word[0] == '-' && word[1] == '-');
  const char* const name = isLong ? word : letter;
  if (problem == ':') {
    Refuse("option '%s' needs a value", name);
  } else {
    Refuse("invalid option '%s'; put -- before words that begin with a dash", name);
  }
  return kEndBadly;
}

Outcome Parser::ParseOptions(int argc, char** argv, const char* letters) {
  optind = 0;  // restarts getopt, in every C library for Linux
  opterr = 0;
  int letter;
  while ((letter = getopt_long(argc, argv, letters, kLongOptions, nullptr)) != -1) {
    if (letter == 'V') {
      fputs("syslogctl " VELK_VERSION "\n", stdout);
      return FlushAndEnd();
    }
    // If a value is missing at the end, optind is argc + 1 in musl.
    if (letter == '?' || letter == ':') return RefuseOption(letter, argv[std::min(optind, argc) - 1]);
    if (letter == 'c') letter = 'n';  // ping(8) calls it -c
    if (letter == 'h') {
      m_isHelp = true;
    } else if (!Apply(letter, optarg, m_options)) {
      return kEndBadly;
    }
    if (letter <= CHAR_MAX) m_given[letter] = true;
  }
  return kGoOn;
}

bool Parser::AreAllowed(const Command& command) const {
  constexpr char kCommon[] = "sqh";
  for (int letter = 1; letter <= CHAR_MAX; ++letter) {
    if (!m_given[letter] || strchr(kCommon, letter) != nullptr || strchr(command.allowed, letter) != nullptr)
      continue;
    return Refuse("option --%s does not apply to %s", LongName(letter), command.name);
  }
  return true;
}

// name: a command's, or null.
Outcome Parser::Help(const char* name) {
  if (name == nullptr || strcmp(name, "help") == 0) return PrintHelp(m_commands);
  const Command* const command = FindCommand(m_commands, name);
  return command != nullptr ? PrintHelpOf(*command) : kEndBadly;
}

Outcome Parser::Parse(int argc, char** argv, const Command** command) {
  Outcome outcome = ParseOptions(argc, argv, kShortOptions);
  if (outcome != kGoOn) return outcome;
  argc -= optind;
  argv += optind;
  if (argc == 0 && !m_isHelp) {
    Refuse("missing command");
    return kEndBadly;
  }
  // getopt(3) skips argv[0], now the command's name.
  outcome = argc != 0 ? ParseOptions(argc, argv, kShortOptions + 1) : kGoOn;
  if (outcome != kGoOn) return outcome;
  if (argc == 0 || strcmp(argv[0], "help") == 0) return Help(argc != 0 ? argv[optind] : nullptr);
  if (m_isHelp) return Help(argv[0]);
  *command = FindCommand(m_commands, argv[0]);
  if (*command == nullptr || !AreAllowed(**command)) return kEndBadly;
  m_options->words = argv + optind;
  m_options->wordCount = argc - optind;
  if (m_options->wordCount < (*command)->minWords || m_options->wordCount > (*command)->maxWords) {
    Refuse("usage: syslogctl %s %s", (*command)->name, (*command)->form);
    return kEndBadly;
  }
  return m_options->passwordFile == nullptr || ReadPassword(m_options) ? kGoOn : kEndBadly;
}

}  // namespace

const Command* ParseCommandLine(int argc, char** argv, const Command* commands, Options* options,
                                int* exitValue) {
  const Command* command = nullptr;
  const Outcome outcome = Parser(commands, options).Parse(argc, argv, &command);
  *exitValue = outcome == kEndWell ? kDone : kUsage;
  return outcome == kGoOn ? command : nullptr;
}

}  // namespace Ctl
