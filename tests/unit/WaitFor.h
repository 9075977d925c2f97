// Waits for what another thread brings about, with a deadline instead of luck.
#pragma once

#include <unistd.h>

#include <chrono>

// False when 20 seconds have not made condition true.
template <class Condition>
bool WaitFor(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    usleep(200);
  }
  return true;
}
