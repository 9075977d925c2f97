// Application layer: assembles and runs the service.
#pragma once

// Runs the service: sets up the log, forks the serving child and supervises it. Logs trace messages too if
// the only argument is "debug", in upper or lower case. Call it on the first thread, before there are others.
//
// Returns 1 in the supervisor if fork(2) fails, and in a child if its worker thread cannot be created.
// Otherwise the child calls _exit() with 1 if the UDP server cannot be opened, with 0 if it stops receiving.
int RunService(int argc, char** argv);
