// Foundation layer: atomic counters.
#pragma once

// Adds 1 to *counter and returns the new value. Any thread may call. Sequentially consistent.
inline long InterlockedIncrement(long* counter) {
  return __atomic_add_fetch(counter, 1, __ATOMIC_SEQ_CST);
}

// Subtracts 1 from *counter and returns the new value. Any thread may call. Sequentially consistent: the
// thread that gets 0 sees all earlier writes of the others.
inline long InterlockedDecrement(long* counter) {
  return __atomic_sub_fetch(counter, 1, __ATOMIC_SEQ_CST);
}
