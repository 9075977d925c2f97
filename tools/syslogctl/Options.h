// Tool layer: the command line, and what the tool says to who typed it.
#pragma once

#include <cstddef>

#include "common/IDailyLog2.h"
#include "common/ServiceNames.h"

namespace Ctl {

// Exit values, as the manual has them.
enum ExitValue {
  kDone = 0,
  kNotConfirmed = 1,  // in time, or refused; also a wrong password, after which nothing ever is
  kUsage = 2,         // also files, sockets and outputs that can't be used
  kNoAnswer = 3,
};

struct Options {
  static constexpr size_t kMaxModule = 48;

  // Of all commands.
  const char* server = Velk::kServiceHere;
  const char* password = Velk::kServicePassword;
  const char* passwordFile = nullptr;  // which password is read from; null: none
  unsigned timeoutMs = 5000;
  bool quiet = false;

  static constexpr int kNoLevel = -1;
  int level = kNoLevel;             // log: an ELogMessageType; dump, watch: the least that is shown
  const char* module = nullptr;     // log; dump, watch: the only one that is shown
  bool json = false;                // dump, watch
  bool all = false;                 // dump
  bool follow = false;              // dump
  unsigned long count = 0;          // dump, watch, ping; 0: all of them
  unsigned intervalMs = 1000;       // ping
  const char* socket = "/dev/log";  // bridge
  const char* udp = nullptr;        // bridge
  bool kmsg = false;                // bridge

  // What follows the options; words[wordCount] is null.
  char** words = nullptr;
  int wordCount = 0;
};

struct Command {
  const char* name;
  const char* allowed;  // short names of its own options
  int minWords;
  int maxWords;
  const char* form;  // its options and words
  const char* summary;
  const char* details;  // whole lines, as "syslogctl help" prints them
  int (*run)(const Options& options);
};

// Reads the command line: options, a command of the list (which a null name ends), its options and words.
// Null: it ends here, *exitValue says how; what there was to say has been said.
const Command* ParseCommandLine(int argc, char** argv, const Command* commands, Options* options,
                                int* exitValue);

// Writes "syslogctl: ..." and a line feed to standard error.
void Say(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Shows a line on the terminal that is standard error, until the next one or message; "" takes it away.
void ShowProgress(const char* text);

}  // namespace Ctl
