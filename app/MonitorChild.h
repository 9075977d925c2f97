// Application layer: the supervisor.
#pragma once

// Forks the serving child and starts the next one whenever it ends, without limit: on a device no one would
// do it by hand. At once, but for a child that ended by itself before ReportServing(): after that one it
// pauses, from 10 ms doubling to a second. Call it once, before any thread exists.
//
// Returns true in each child, which goes on to serve, and false in the supervising process when fork(2)
// fails. Otherwise the supervising process never returns: should waitpid(2) fail, it ends with exit status 1.
// A wait that a signal interrupts goes on. The child is killed when the supervisor ends, for whatever reason.
bool MonitorChild();

// Called in a child that has served a peer.
void ReportServing();
