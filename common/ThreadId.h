// Threads and clock layer: the kernel's id of the calling thread.
#pragma once

namespace Velk {

// The id that gettid(2) gives. Kept per thread, which saves a system call a line; asked for again after
// fork(2).
long ThreadId();

}  // namespace Velk
