// Tool layer: syslogctl set, remote and call.
#include <ctype.h>
#include <string.h>
#include <strings.h>

#include "common/InetAddress2.h"
#include "tools/syslogctl/Commands.h"
#include "tools/syslogctl/Machine.h"
#include "tools/syslogctl/Session.h"

namespace Ctl {
namespace {

int SetVariable(Session& session, const char* name, const char* value) {
  CallText call;
  (call << "SetVar" << name << value).CallObj();
  return session.Send(call);
}

}  // namespace

int RunSet(const Options& options) {
  if (*options.words[0] == '\0') {
    Say("the variable's name is empty");
    return kUsage;
  }
  Session session(options);
  int result = session.Join(Holding(kFewLines));
  if (result == kDone) result = SetVariable(session, options.words[0], options.words[1]);
  return result == kDone ? session.Finish() : result;
}

namespace {

constexpr char kOff[] = "none";

// SyncVar does nothing until a SetVar has changed the type or the address. Setting the type to "" and
// then to another value is always a change.
int SendForwarding(Session& session, const char* host) {
  CallText sync;
  (sync << "SyncVar").CallObj();
  int result = SetVariable(session, Velk::kRemoteLogType, "");
  if (result == kDone && host != nullptr) result = SetVariable(session, Velk::kRemoteLogAddress, host);
  if (result == kDone)
    result = SetVariable(session, Velk::kRemoteLogType, host != nullptr ? Velk::kSyslogServerType : kOff);
  if (result == kDone) result = session.Send(sync);
  return result == kDone ? session.Finish() : result;
}

// A restart between the calls loses the variables set so far, so all are set again.
int SetForwarding(const Options& options, const char* host) {
  constexpr int kTries = 5;
  Session session(options);
  int result = session.Join(Holding(kFewLines));
  for (int i = 0; i < kTries && result == kDone; ++i) {
    const unsigned forgotten = session.Status().forgotten;
    result = SendForwarding(session, host);
    if (session.Status().forgotten == forgotten) return result;
  }
  if (result != kDone) return result;
  Say("the service keeps restarting: see its console");
  return kNotConfirmed;
}

bool IsHost(const char* host) {
  const size_t length = strlen(host);
  if (length == 0 || length > InetAddress2::kMaxHost || strpbrk(host, " \t\r\n") != nullptr) {
    Say("invalid host '%s': give a name or an IPv4 address, 1 to %u characters", host,
        InetAddress2::kMaxHost);
    return false;
  }
  if (strchr(host, ':') == nullptr) return true;
  Say("'%s' has a ':': omit the port (514); IPv6 is unsupported", host);
  return false;
}

// The service acknowledges SyncVar even if it cannot resolve the host, and reports that in its log only.
int CheckHost(const Options& options, const char* host) {
  if (CanResolve(host)) return kDone;
  const bool isSameMachine = IsThisMachine(options.server);
  Say("cannot resolve '%s' on this machine%s", host,
      isSameMachine ? ", where the service runs: forwarding is unchanged" : "; the service may be able to");
  Say("look for 'Cannot connect to syslog server at UDP %s:514' in the service's log (syslogctl dump)", host);
  return isSameMachine ? kNotConfirmed : kDone;
}

}  // namespace

int RunRemote(const Options& options) {
  const bool isOn = strcmp(options.words[0], "on") == 0 && options.wordCount == 2;
  const bool isOff = strcmp(options.words[0], "off") == 0 && options.wordCount == 1;
  if (isOff) return SetForwarding(options, nullptr);
  if (!isOn) {
    Say("usage: syslogctl remote on HOST, or: syslogctl remote off");
    return kUsage;
  }
  const char* const host = options.words[1];
  if (!IsHost(host)) return kUsage;
  const int result = SetForwarding(options, host);
  return result == kDone ? CheckHost(options, host) : result;
}

namespace {

bool IsCallName(const char* name) {
  if (*name == '\0') return false;
  while (*name != '\0' && isspace(static_cast<unsigned char>(*name)) == 0) ++name;
  return *name == '\0';
}

void WarnIfUnterminated(const Options& options) {
  if (strcasecmp(options.words[0], "LogMsg") != 0 || options.wordCount != 4) return;
  const char* const text = options.words[3];
  const size_t length = strlen(text);
  if (length != 0 && text[length - 1] == '\n') return;
  Say("the text has no line feed at its end, so the next line is joined to it; 'syslogctl log' needs none");
}

}  // namespace

int RunCall(const Options& options) {
  if (!IsCallName(options.words[0])) {
    Say("invalid call name '%s': it is empty or has white space", options.words[0]);
    return kUsage;
  }
  CallText text;
  Velk::ArgsBuilder2 call = text << options.words[0];
  for (int i = 1; i < options.wordCount; ++i) call << options.words[i];
  call.CallObj();

  if (!options.quiet) WarnIfUnterminated(options);
  Session session(options);
  int result = session.Join(Holding(kFewLines));
  if (result == kDone) result = session.Send(text);
  return result == kDone ? session.Finish() : result;
}

}  // namespace Ctl
