#include "support/thread.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

std::atomic<int> signals_caught{0};
void CountSignal(int) { signals_caught.fetch_add(1); }

// Signals interrupt nanosleep (no SA_RESTART); the rest is slept all the same.
TEST(ThreadTest, SleepForResumesAfterSignalsThreaded) {
  struct sigaction action = {}, previous = {};
  action.sa_handler = CountSignal;
  ASSERT_EQ(sigaction(SIGUSR1, &action, &previous), 0);
  signals_caught = 0;
  std::thread interrupter([sleeper = pthread_self()] {
    for (int i = 0; i < 3; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(40));
      pthread_kill(sleeper, SIGUSR1);
    }
  });
  const auto start = std::chrono::steady_clock::now();
  SleepFor(300000000);
  const auto slept = std::chrono::steady_clock::now() - start;
  interrupter.join();
  sigaction(SIGUSR1, &previous, nullptr);
  EXPECT_EQ(signals_caught.load(), 3);
  EXPECT_GE(slept, std::chrono::milliseconds(300));
}

// A negative span must not be read as a huge unsigned one.
TEST(ThreadTest, SleepForNegativeSpanReturnsAtOnce) { SleepFor(INT64_MIN); }

}  // namespace
