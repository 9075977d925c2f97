// Threads and clock layer: the kernel's id of the calling thread.
#pragma once

namespace Velk {

// The id that gettid(2) gives, asked of the kernel once per thread and again after fork(2).
long ThreadId();

}  // namespace Velk
