// Tool layer: main() and the table of commands.
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include "common/GDQ.h"
#include "common/LogPrinter.h"
#include "tools/syslogctl/Commands.h"

namespace {

// The service's limit includes three more arguments: the client's name, the number and the call's name.
constexpr int kMostArguments = 29;
static_assert(kMostArguments + 3 == Velk::GDQ::kMaxArgs, "the service must be able to read all of them");

#define SHOWN_OPTIONS                                                         \
  "  -l, --level LEVEL   only lines of this level or worse; see 'help log'\n" \
  "  -t, --tag MODULE    only lines of this module\n"                         \
  "      --json          one JSON object per line\n"

const Ctl::Command kCommands[] = {
    {"log", "ltC", 0, INT_MAX, "[-l LEVEL] [-t MODULE] [TEXT...]", "Log TEXT, or each line of standard input",
     "\n"
     "  -l, --level LEVEL   trace, info (the default), warning or error; also a name\n"
     "                      or number of syslog(3): 7 is trace, 6 and 5 info,\n"
     "                      4 warning, 3 to 0 error\n"
     "  -t, --tag MODULE    the line's module (default syslogctl)\n",
     Ctl::RunLog},
    {"set", "", 2, 2, "NAME VALUE", "Set a configuration variable until the service restarts",
     "To apply it: syslogctl call SyncVar. To change forwarding, use remote.\n", Ctl::RunSet},
    {"remote", "", 1, 2, "on HOST | off", "Forward the log to the syslog server HOST, or stop forwarding",
     "Lasts until the service or its child restarts: then it forwards as configured.\n", Ctl::RunRemote},
    {"dump", "fnltJA", 0, 0, "[-f] [-n COUNT] [-l LEVEL] [-t MODULE] [--json] [--all]",
     "Print the last 500 lines (only on the service's machine)",
     "\n"
     "  -f, --follow        then print new lines, once a second\n"
     "  -n, --count COUNT   only the last COUNT lines\n" SHOWN_OPTIONS
     "      --all           also the lines logged when a program joins\n",
     Ctl::RunDump},
    {"watch", "nltJ", 0, 0, "[-n COUNT] [-l LEVEL] [-t MODULE] [--json]", "Print the calls of all programs",
     "\n"
     "  -n, --count COUNT   stop after COUNT calls\n" SHOWN_OPTIONS,
     Ctl::RunWatch},
    {"status", "", 0, 0, "", "Show whether the service serves, since when, and more",
     "\n"
     "Start time, restarts, forwarding, dropped datagrams and memory are shown only on\n"
     "the service's machine. The exit status is 0 if it serves. With --quiet only errors\n"
     "are printed.\n",
     Ctl::RunStatus},
    {"check", "", 0, 1, "[FILE]", "Find mistakes in a configuration file",
     "Without FILE, checks the service's own file. The service need not run.\n"
     "The exit status is 1 if there are mistakes.\n",
     Ctl::RunCheck},
    {"ping", "ni", 0, 0, "[-n COUNT] [-i SECONDS]", "Measure how fast calls are answered",
     "\n"
     "  -n, -c, --count COUNT    stop after COUNT calls; otherwise when interrupted\n"
     "  -i, --interval SECONDS   between calls (default 1)\n",
     Ctl::RunPing},
    {"call", "", 1, 1 + kMostArguments, "NAME [ARGUMENT...]", "Make any call, with at most 29 arguments",
     "Put -- before arguments that begin with a dash.\n", Ctl::RunCall},
    {"bridge", "SKU", 0, 0, "[--socket PATH] [--kmsg] [--udp [ADDRESS:]PORT]",
     "Log what programs write to /dev/log",
     "\n"
     "      --socket PATH           instead of /dev/log\n"
     "      --kmsg                  also log the kernel's messages\n"
     "      --udp [ADDRESS:]PORT    also log syslog datagrams from other machines;\n"
     "                              without ADDRESS, on all interfaces\n",
     Ctl::RunBridge},
    {nullptr, nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr},
};

// If a standard descriptor is closed, the next socket would get its number, so /dev/null gets it. It is
// opened for the wrong direction, so that reading or writing still fails with EBADF.
void OccupyStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace

int main(int argc, char** argv) {
  OccupyStandardDescriptors();
  signal(SIGPIPE, SIG_IGN);
  // The library's messages would mix with the tool's output. The tool reports errors itself.
  LogPrinter::Instance()->m_consoleEnabled = false;
  Ctl::Options options;
  int exitValue = 0;
  const Ctl::Command* const command = Ctl::ParseCommandLine(argc, argv, kCommands, &options, &exitValue);
  return command != nullptr ? command->run(options) : exitValue;
}
