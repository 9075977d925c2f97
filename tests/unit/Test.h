// Shared by most tests.
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

// Polls until condition() is true. False: not within 20 seconds.
template <class Condition>
bool WaitFor(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (; !condition(); usleep(200)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
  }
  return true;
}

// Runs action(0) to action(count - 1) at the same time, each on its own thread.
template <class Action>
void InThreads(unsigned count, Action action) {
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < count; ++i) threads.emplace_back(action, i);
  for (std::thread& thread : threads) thread.join();
}
