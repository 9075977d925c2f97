// Threads and clock layer: the kernel's id of the calling thread.
#pragma once

namespace Velk {

// Returns gettid(2), cached per thread to save a system call per line. A forked child gets its own id.
long ThreadId();

}  // namespace Velk
