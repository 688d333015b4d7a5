#include "support/thread.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace {

std::string ThreadName() {
  char name[32] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

TEST(ThreadTest, SetThreadNameThreaded) {
  std::thread([] {
    SetThreadName("import-worker");
    EXPECT_EQ(ThreadName(), "import-worker");
    SetThreadName(nullptr);
    EXPECT_EQ(ThreadName(), "import-worker");
    SetThreadName("sixteen-chars-xx");  // over the platform's limit: refused
    EXPECT_EQ(ThreadName(), "import-worker");
  }).join();
}

TEST(ThreadTest, SleepForWholeSecondsRestAndNothing) {
  SleepFor(0);
  SleepFor(-1);  // a negative span must not be read as a huge unsigned one
  SleepFor(INT64_MIN);
  const auto start = std::chrono::steady_clock::now();
  SleepFor(1100000000);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::nanoseconds(1100000000));
}

std::atomic<int> signals_caught{0};
void CountSignal(int) { signals_caught.fetch_add(1); }

TEST(ThreadTest, SleepForResumesAfterSignalsThreaded) {
  struct sigaction action = {};
  action.sa_handler = CountSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: nanosleep returns EINTR
  struct sigaction previous = {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, &previous), 0);
  signals_caught = 0;

  const pthread_t sleeper = pthread_self();
  std::atomic<bool> done{false};
  std::thread interrupter([&] {
    for (int i = 0; i < 3 && !done; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(40));
      if (!done) pthread_kill(sleeper, SIGUSR1);
    }
  });
  const auto start = std::chrono::steady_clock::now();
  SleepFor(400000000);
  const auto slept = std::chrono::steady_clock::now() - start;
  done = true;
  interrupter.join();
  sigaction(SIGUSR1, &previous, nullptr);

  EXPECT_EQ(signals_caught.load(), 3);
  EXPECT_GE(slept, std::chrono::milliseconds(400));
}

TEST(ThreadTest, RoundRobinHeights) {
  EXPECT_EQ(RoundRobinHeight(1, 1, 99), 66);
  EXPECT_EQ(RoundRobinHeight(2, 1, 99), 74);
  EXPECT_EQ(RoundRobinHeight(3, 1, 99), 99);
  EXPECT_EQ(RoundRobinHeight(1, 0, 10), 6);
  EXPECT_EQ(RoundRobinHeight(2, 0, 10), 7);
  EXPECT_EQ(RoundRobinHeight(0, 1, 99), -1);
  EXPECT_EQ(RoundRobinHeight(4, 1, 99), -1);
  EXPECT_EQ(RoundRobinHeight(-1, 1, 99), -1);
  // Linux bounds of the policy, which the heights above assume.
  EXPECT_EQ(sched_get_priority_min(SCHED_RR), 1);
  EXPECT_EQ(sched_get_priority_max(SCHED_RR), 99);
}

TEST(ThreadTest, SetThreadPriorityInvertedResultThreaded) {
  std::thread([] {
    pthread_t self = pthread_self();
    int policy = -1;
    sched_param before{};
    ASSERT_EQ(pthread_getschedparam(self, &policy, &before), 0);
    const int policy_before = policy;

    EXPECT_TRUE(SetThreadPriority(self, 0));
    EXPECT_FALSE(SetThreadPriority(self, 4));
    EXPECT_FALSE(SetThreadPriority(self, -2));
    sched_param param{};
    ASSERT_EQ(pthread_getschedparam(self, &policy, &param), 0);
    EXPECT_EQ(policy, policy_before);
    EXPECT_EQ(param.sched_priority, before.sched_priority);

    // True reports a refused pthread_setschedparam, false a change made.
    const bool refused = SetThreadPriority(self, 1);
    ASSERT_EQ(pthread_getschedparam(self, &policy, &param), 0);
    if (refused) {
      EXPECT_EQ(policy, policy_before);
    } else {
      EXPECT_EQ(policy, SCHED_RR);
      EXPECT_EQ(param.sched_priority, 66);
    }
    struct sched_param same{};
    same.sched_priority = 66;
    const bool permitted = pthread_setschedparam(self, SCHED_RR, &same) == 0;
    EXPECT_EQ(refused, !permitted);
  }).join();
}

TEST(ThreadTest, CurrentThreadIdIsKernelIdThreaded) {
  EXPECT_EQ(CurrentThreadId(), static_cast<int>(getpid()));  // main thread
  int other = 0;
  std::thread([&] { other = CurrentThreadId(); }).join();
  EXPECT_GT(other, 0);
  EXPECT_NE(other, CurrentThreadId());
}

}  // namespace
