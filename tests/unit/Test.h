// What most tests use.
#pragma once

#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

using Lines = std::vector<std::string>;

// Waits for what another thread brings about. False when 20 seconds have not made condition true.
template <class Condition>
bool WaitFor(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    usleep(200);
  }
  return true;
}
