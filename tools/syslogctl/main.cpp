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

const Ctl::Command kCommands[] = {
    {"log", "ltC", 0, INT_MAX, "[-l LEVEL] [-t MODULE] [TEXT...]", Ctl::RunLog},
    {"set", "", 2, 2, "NAME VALUE", Ctl::RunSet},
    {"remote", "", 1, 2, "on HOST, or: syslogctl remote off", Ctl::RunRemote},
    {"dump", "", 0, 0, "(no arguments)", Ctl::RunDump},
    {"watch", "Jn", 0, 0, "[--json] [-n COUNT]", Ctl::RunWatch},
    {"ping", "ni", 0, 0, "[-n COUNT] [-i SECONDS]", Ctl::RunPing},
    {"call", "", 1, 1 + kMostArguments, "NAME [ARGUMENT...], at most 29 arguments", Ctl::RunCall},
    {"bridge", "SK", 0, 0, "[--socket PATH] [--kmsg]", Ctl::RunBridge},
    {nullptr, nullptr, 0, 0, nullptr, nullptr},
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
