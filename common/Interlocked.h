// Foundation layer: atomic counters.
#pragma once

// Adds one to *counter and returns the new value. Any thread may call; sequentially consistent.
inline long InterlockedIncrement(long* counter) {
  return __atomic_add_fetch(counter, 1, __ATOMIC_SEQ_CST);
}

// Subtracts one from *counter and returns the new value. Any thread may call; sequentially consistent, so
// whoever sees the last holder leave also sees all that the others wrote.
inline long InterlockedDecrement(long* counter) {
  return __atomic_sub_fetch(counter, 1, __ATOMIC_SEQ_CST);
}
