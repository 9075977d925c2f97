// Application layer: the supervisor.
#pragma once

// Forks the serving child and restarts it whenever it ends, without limit: a device has no one to restart it.
// A child that was killed from outside (not by a crash) or has called ReportServing() is replaced at once.
// After any other, the supervisor pauses first, for 10 ms, doubling up to one second. Call MonitorChild()
// once, before any thread exists.
//
// Returns true in each child, and false in the supervisor if fork(2) fails. Otherwise it never returns in the
// supervisor, which exits with status 1 if waitpid(2) fails. The kernel kills the child when the supervisor
// ends.
bool MonitorChild();

// Call it in the child after it has received a datagram.
void ReportServing();
