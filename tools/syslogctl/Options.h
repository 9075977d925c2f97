// Tool layer: the command line, and messages to the user.
#pragma once

#include <cstddef>

#include "common/IDailyLog2.h"
#include "common/ServiceNames.h"

namespace Ctl {

// Exit values, documented in syslogctl(1).
enum ExitValue {
  kDone = 0,
  kNotConfirmed = 1,  // calls late or refused, a wrong password, or "check" found mistakes
  kUsage = 2,         // also files, sockets and outputs that cannot be used
  kNoAnswer = 3,
};

struct Options {
  static constexpr size_t kMaxModule = 48;

  // For all commands.
  const char* server = Velk::kServiceHere;
  const char* password = Velk::kServicePassword;
  const char* passwordFile = nullptr;  // source of password; null: the default above
  unsigned timeoutMs = 5000;
  bool quiet = false;

  static constexpr int kNoLevel = -1;
  int level = kNoLevel;             // log: an ELogMessageType; dump, watch: the lowest shown
  const char* module = nullptr;     // log: the lines' module; dump, watch: the only one shown
  bool json = false;                // dump, watch
  bool all = false;                 // dump
  bool follow = false;              // dump
  unsigned long count = 0;          // dump, watch, ping; 0: no limit
  unsigned intervalMs = 1000;       // ping
  const char* socket = "/dev/log";  // bridge
  const char* udp = nullptr;        // bridge
  bool kmsg = false;                // bridge

  // The command's arguments, without its name and options; words[wordCount] is null.
  char** words = nullptr;
  int wordCount = 0;
};

struct Command {
  const char* name;
  const char* allowed;  // letters of its own options
  int minWords;
  int maxWords;
  const char* form;  // usage after the command's name
  const char* summary;
  const char* details;  // whole lines for "syslogctl help COMMAND"
  int (*run)(const Options& options);
};

// Parses the command line. A null name ends the list of commands. Returns null if it printed help or an
// error: the program then exits with *exitValue.
const Command* ParseCommandLine(int argc, char** argv, const Command* commands, Options* options,
                                int* exitValue);

// Writes "syslogctl: ..." and a line feed to standard error.
void Say(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Shows a line on the terminal until the next ShowProgress() or Say(); "" removes it.
void ShowProgress(const char* text);

}  // namespace Ctl
