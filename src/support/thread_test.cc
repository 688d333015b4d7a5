#include "support/thread.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

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
  SleepFor(INT64_MIN);  // a negative span must not be read as a huge unsigned one
  const auto start = std::chrono::steady_clock::now();
  SleepFor(1100000000);
  const auto slept = std::chrono::steady_clock::now() - start;
  interrupter.join();
  sigaction(SIGUSR1, &previous, nullptr);
  EXPECT_EQ(signals_caught.load(), 3);
  EXPECT_GE(slept, std::chrono::milliseconds(1100));
}

TEST(ThreadTest, RoundRobinHeights) {
  const int heights[][4] = {{1, 1, 99, 66}, {2, 1, 99, 74}, {3, 1, 99, 99}, {1, 0, 10, 6},
                            {2, 0, 10, 7},  {0, 1, 99, -1}, {4, 1, 99, -1}, {-1, 1, 99, -1}};
  for (const auto& h : heights) EXPECT_EQ(RoundRobinHeight(h[0], h[1], h[2]), h[3]) << h[0];
}

// A null name leaves the name alone; the id is the kernel's, the process id on the main
// thread. SetThreadPriority's true reports a refused pthread_setschedparam, false a change.
TEST(ThreadTest, NameIdAndPriorityThreaded) {
  EXPECT_EQ(CurrentThreadId(), static_cast<int>(getpid()));
  std::thread([] {
    char name[32] = {};
    SetThreadName("import-worker");
    SetThreadName(nullptr);
    pthread_getname_np(pthread_self(), name, sizeof name);
    EXPECT_STREQ(name, "import-worker");
    EXPECT_GT(CurrentThreadId(), 0);
    EXPECT_NE(CurrentThreadId(), static_cast<int>(getpid()));
    pthread_t self = pthread_self();
    int policy = -1, policy_before = -1;
    sched_param param{};
    ASSERT_EQ(pthread_getschedparam(self, &policy_before, &param), 0);
    EXPECT_TRUE(SetThreadPriority(self, 0));
    EXPECT_FALSE(SetThreadPriority(self, 4));
    const bool refused = SetThreadPriority(self, 1);
    ASSERT_EQ(pthread_getschedparam(self, &policy, &param), 0);
    EXPECT_EQ(policy, refused ? policy_before : SCHED_RR);
    param.sched_priority = 66;
    EXPECT_EQ(refused, pthread_setschedparam(self, SCHED_RR, &param) != 0);
  }).join();
}

}  // namespace
