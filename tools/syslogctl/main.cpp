// Tool layer: the entry, and which commands there are.
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include "common/GDQ.h"
#include "common/LogPrinter.h"
#include "tools/syslogctl/Commands.h"

namespace {

// Of a call, so that the service reads them beside the client, the number and the name that go with it.
constexpr int kMostArguments = 29;
static_assert(kMostArguments + 3 == Velk::GDQ::kMaxArgs, "the service reads as many as are sent");

#define SHOWN_OPTIONS                                                             \
  "  -l, --level LEVEL   only lines of this level and worse ones; see help log\n" \
  "  -t, --tag MODULE    only lines of this module\n"                             \
  "      --json          one JSON object a line\n"

const Ctl::Command kCommands[] = {
    {"log", "ltC", 0, INT_MAX, "[-l LEVEL] [-t MODULE] [TEXT...]",
     "logs TEXT, or each line of standard input",
     "\n"
     "  -l, --level LEVEL   trace, info (the default), warning or error; also a name\n"
     "                      or number of syslog(3): 7 is trace, 6 and 5 info,\n"
     "                      4 warning, 3 to 0 error\n"
     "  -t, --tag MODULE    the line's module; else syslogctl\n",
     Ctl::RunLog},
    {"set", "", 2, 2, "NAME VALUE", "sets a configuration variable, until the service restarts",
     "By itself this has no effect; to switch forwarding use remote.\n", Ctl::RunSet},
    {"remote", "", 1, 2, "on HOST | off", "forwards the log to the syslog server HOST, or stops that",
     "It lasts until the service restarts, which does what its configuration says.\n", Ctl::RunRemote},
    {"dump", "fnltJA", 0, 0, "[-f] [-n COUNT] [-l LEVEL] [-t MODULE] [--json] [--all]",
     "prints the last 500 lines (on the service's machine)",
     "\n"
     "  -f, --follow        goes on with those that come, looking every second\n"
     "  -n, --count COUNT   only the last ones\n" SHOWN_OPTIONS
     "      --all           also what the service logs when a program joins\n",
     Ctl::RunDump},
    {"watch", "nltJ", 0, 0, "[-n COUNT] [-l LEVEL] [-t MODULE] [--json]", "prints what all programs call",
     "\n"
     "  -n, --count COUNT   ends after so many calls\n" SHOWN_OPTIONS,
     Ctl::RunWatch},
    {"status", "", 0, 0, "", "tells whether the service serves, since when, and more",
     "\n"
     "Since when it runs, restarts, where it forwards to, dropped datagrams and memory\n"
     "are known on its own machine only. The exit value is 0 if it serves; --quiet\n"
     "leaves it at that.\n",
     Ctl::RunStatus},
    {"check", "", 0, 1, "[FILE]", "says what the service would not do as a configuration file means",
     "Without FILE it is the service's own. Needs no service.\n"
     "The exit value is 1 if it found something.\n",
     Ctl::RunCheck},
    {"ping", "ni", 0, 0, "[-n COUNT] [-i SECONDS]", "measures how fast calls are answered",
     "\n"
     "  -n, -c, --count COUNT    ends after so many calls; else when interrupted\n"
     "  -i, --interval SECONDS   from one call to the next; else 1\n",
     Ctl::RunPing},
    {"call", "", 1, 1 + kMostArguments, "NAME [ARGUMENT...]", "makes any call, with at most 29 arguments",
     "Arguments that begin with a dash go after --.\n", Ctl::RunCall},
    {"bridge", "SKU", 0, 0, "[--socket PATH] [--kmsg] [--udp [ADDRESS:]PORT]",
     "logs what programs write to /dev/log",
     "\n"
     "      --socket PATH           in place of /dev/log\n"
     "      --kmsg                  logs also what the kernel says\n"
     "      --udp [ADDRESS:]PORT    logs also what other machines send there as syslog\n"
     "                              datagrams; without ADDRESS, on all interfaces\n",
     Ctl::RunBridge},
    {nullptr, nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr},
};

// A standard descriptor that is closed would be given to the next socket. Opened the wrong way round it stays
// as unusable as it was: what needs it gets EBADF, and says so.
void OccupyStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace

int main(int argc, char** argv) {
  OccupyStandardDescriptors();
  signal(SIGPIPE, SIG_IGN);
  // The library's own messages would mix with the tool's output; the tool has words of its own for them.
  LogPrinter::Instance()->m_consoleEnabled = false;
  Ctl::Options options;
  int exitValue = 0;
  const Ctl::Command* const command = Ctl::ParseCommandLine(argc, argv, kCommands, &options, &exitValue);
  return command != nullptr ? command->run(options) : exitValue;
}
