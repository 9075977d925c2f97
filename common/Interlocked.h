// Foundation layer: atomic counters.
#pragma once

// Adds one to *counter and returns the new value. Any thread may call; sequentially consistent.
inline long InterlockedIncrement(long* counter) {
  return __atomic_add_fetch(counter, 1, __ATOMIC_SEQ_CST);
}

// Subtracts one from *counter and returns the new value. Any thread may call; sequentially consistent, so the
// thread that gets 0 sees all that the others wrote before.
inline long InterlockedDecrement(long* counter) {
  return __atomic_sub_fetch(counter, 1, __ATOMIC_SEQ_CST);
}
