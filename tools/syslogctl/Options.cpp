#include "tools/syslogctl/Options.h"

#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "common/InetAddress2.h"
#include "common/Timer64x.h"

namespace Ctl {
namespace {

// One screen: 24 lines of 80 characters.
constexpr char kHelp[] =
    "Usage: syslogctl [OPTION]... COMMAND [ARGUMENT]...\n"
    "\n"
    "  log [-l LEVEL] [-t MODULE] [TEXT...]\n"
    "                     logs TEXT, or each line of standard input; LEVEL is info,\n"
    "                     warning, error or trace\n"
    "  set NAME VALUE     sets a configuration variable, until the service restarts\n"
    "  remote on HOST     forwards the log to the syslog server HOST\n"
    "  remote off         stops that\n"
    "  dump               prints the last 500 lines (on the service's machine)\n"
    "  watch [--json] [-n COUNT]         prints what all programs call\n"
    "  ping [-n COUNT] [-i SECONDS]      measures how fast calls are answered\n"
    "  call NAME [ARGUMENT...]           makes any call\n"
    "  bridge [--socket PATH] [--kmsg]   logs what programs write to /dev/log, and\n"
    "                                    with --kmsg what the kernel says\n"
    "\n"
    "  -s, --server HOST[:PORT]   where the service is; else 127.0.0.1:11001\n"
    "      --password-file FILE   its first line is the password; else the usual one\n"
    "      --timeout SECONDS      how long to wait for the service; else 5\n"
    "  -q, --quiet                says nothing but errors\n"
    "  -h, --help    -V, --version\n"
    "\n"
    "Exit value: 0 done, 1 not confirmed, 2 wrong usage, 3 no answer.\n";

// Options without a short form.
enum LongOnly { kPasswordFile = 256, kTimeout };

// All commands' options in one table; a command's allowed letters say which are its own.
constexpr char kShortOptions[] = "+:s:qhVl:t:n:i:";
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
    {"count", required_argument, nullptr, 'n'},
    {"interval", required_argument, nullptr, 'i'},
    {"socket", required_argument, nullptr, 'S'},
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
    return Refuse("'%s' names no server: a host's name or IPv4 address", text);
  if (!InetAddress2::HasValidPort(text))
    return Refuse("'%s' is no port: 1 to 65535, after the host's name or IPv4 address", colon + 1);
  options->server = text;
  return true;
}

// Reads until there is a whole line, as far as there is room. A pipe or a terminal may bring it in pieces, or
// never. -1: errno.
ssize_t ReadFirstLine(int fd, char* buffer, size_t size, unsigned timeoutMs) {
  const unsigned long long endUs = Velk::NowUs() + 1000ULL * timeoutMs;
  pollfd input = {fd, POLLIN, 0};
  size_t held = 0;
  while (held < size && memchr(buffer, '\n', held) == nullptr) {
    const unsigned long long nowUs = Velk::NowUs();
    // To read(2) alone, a pipe that no one has opened for writing yet is one that has ended.
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
        error == ETIMEDOUT ? "; --timeout waits longer" : "");
    return false;
  }
  const auto* const end = static_cast<const char*>(memchr(s_password, '\n', static_cast<size_t>(size)));
  size_t length = end != nullptr ? static_cast<size_t>(end - s_password) : static_cast<size_t>(size);
  if (length > 0 && s_password[length - 1] == '\r') --length;  // of a system that ends lines with CR LF
  if (length > kMaxPassword) {
    Say("the password in %s is longer than %u bytes", path, kMaxPassword);
    return false;
  }
  s_password[length] = '\0';
  options->password = s_password;
  return true;
}

// Takes "2" and "0.5", from a millisecond to a day.
bool SetSeconds(const char* name, const char* text, unsigned* milliseconds) {
  constexpr double kLongest = 86400;
  char* end = nullptr;
  const double seconds = strtod(text, &end);
  if (end == text || *end != '\0' || !(seconds >= 0.001 && seconds <= kLongest)) {
    return Refuse("'%s' is no %s: seconds, 0.001 to 86400", text, name);
  }
  *milliseconds = static_cast<unsigned>(seconds * 1000);
  return true;
}

bool SetCount(const char* text, Options* options) {
  errno = 0;
  char* end = nullptr;
  options->count = strtoul(text, &end, 10);
  if (*text >= '1' && *text <= '9' && *end == '\0' && errno == 0) return true;
  return Refuse("'%s' is no count: 1 or more", text);
}

bool SetLevel(const char* text, Options* options) {
  static const char* const kNames[] = {"trace", "info", "warning", "error"};
  for (int level = Trace; level <= Error; ++level) {
    if (strcmp(text, kNames[level]) != 0) continue;
    options->level = static_cast<ELogMessageType>(level);
    return true;
  }
  return Refuse("'%s' is no level: info, warning, error or trace", text);
}

bool SetModule(const char* text, Options* options) {
  const size_t length = strlen(text);
  if (length == 0 || length > Options::kMaxModule) {
    return Refuse("a module's name has 1 to %zu bytes", Options::kMaxModule);
  }
  for (size_t i = 0; i < length; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < ' ' || c == 0x7F) return Refuse("a module's name has no control characters");
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
    case 'q':
      return options->quiet = true;
    case 'C':
      return true;  // log always confirms now; scripts still say so
    case 'J':
      return options->json = true;
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

Outcome EndAfter(const char* text) {
  if (fputs(text, stdout) >= 0 && fflush(stdout) == 0) return kEndWell;
  Say("cannot write to standard output: %s", strerror(errno));
  return kEndBadly;
}

// The options up to the first word. own: letters that are allowed beside the common ones; null: the command
// isn't known yet.
Outcome ParseOptions(int argc, char** argv, const Command* command, Options* options) {
  optind = 0;  // restarts it, in every C library for Linux
  opterr = 0;
  int letter;
  while ((letter = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1) {
    if (letter == 'h') return EndAfter(kHelp);
    if (letter == 'V') return EndAfter("syslogctl " VELK_VERSION "\n");
    if (letter == '?' || letter == ':') {
      Refuse(letter == '?' ? "unknown option '%s'" : "option '%s' needs a value", argv[optind - 1]);
      return kEndBadly;
    }
    const bool isCommon = letter == 's' || letter == 'q' || letter >= kPasswordFile;
    if (!isCommon && (command == nullptr || strchr(command->allowed, letter) == nullptr)) {
      Refuse("option --%s is not one of %s", LongName(letter),
             command != nullptr ? command->name : "all commands: write it after its command");
      return kEndBadly;
    }
    if (!Apply(letter, optarg, options)) return kEndBadly;
  }
  return kGoOn;
}

const Command* FindCommand(const Command* commands, const char* name) {
  while (commands->name != nullptr && strcmp(commands->name, name) != 0) ++commands;
  return commands->name != nullptr ? commands : nullptr;
}

Outcome Parse(int argc, char** argv, const Command* commands, Options* options, const Command** command) {
  *command = nullptr;
  Outcome outcome = ParseOptions(argc, argv, nullptr, options);
  if (outcome != kGoOn) return outcome;
  argc -= optind;
  argv += optind;
  if (argc == 0) {
    Refuse("a command is missing");
    return kEndBadly;
  }
  *command = FindCommand(commands, argv[0]);
  if (*command == nullptr) {
    Refuse("unknown command '%s'", argv[0]);
    return kEndBadly;
  }
  outcome = ParseOptions(argc, argv, *command, options);
  if (outcome != kGoOn) return outcome;
  options->words = argv + optind;
  options->wordCount = argc - optind;
  if (options->wordCount < (*command)->minWords || options->wordCount > (*command)->maxWords) {
    Refuse("usage: syslogctl %s %s", (*command)->name, (*command)->form);
    return kEndBadly;
  }
  return options->passwordFile == nullptr || ReadPassword(options) ? kGoOn : kEndBadly;
}

}  // namespace

const Command* ParseCommandLine(int argc, char** argv, const Command* commands, Options* options,
                                int* exitValue) {
  const Command* command = nullptr;
  const Outcome outcome = Parse(argc, argv, commands, options, &command);
  *exitValue = outcome == kEndWell ? kDone : kUsage;
  return outcome == kGoOn ? command : nullptr;
}

}  // namespace Ctl
