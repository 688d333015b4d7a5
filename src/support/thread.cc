#include "support/thread.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

void SetThreadName(const char* name) {
  if (name == nullptr) return;
  pthread_setname_np(pthread_self(), name);
}

void SleepFor(int64_t nanoseconds) {
  if (nanoseconds <= 0) return;
  constexpr int64_t kNanosecondsPerSecond = 1000000000;
  timespec span;
  span.tv_sec = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
  span.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
  // On EINTR nanosleep leaves the time still to sleep in `span`.
  while (nanosleep(&span, &span) != 0 && errno == EINTR) {
  }
}

int RoundRobinHeight(int priority, int min, int max) {
  switch (priority) {
    case 1:
      return min + (max - min) * 2 / 3;
    case 2:
      return min + (max - min) * 3 / 4;
    case 3:
      return max;
    default:
      return -1;
  }
}

bool SetThreadPriority(pthread_t& thread, int priority) {
  if (priority == 0) return true;
  const int min = sched_get_priority_min(SCHED_RR);
  const int max = sched_get_priority_max(SCHED_RR);
  if (min == -1 || max == -1) return false;
  const int height = RoundRobinHeight(priority, min, max);
  if (height == -1) return false;
  sched_param param{};
  param.sched_priority = height;
  // Callers rely on this sense: true means pthread_setschedparam failed.
  return pthread_setschedparam(thread, SCHED_RR, &param) != 0;
}

int CurrentThreadId() { return static_cast<int>(syscall(SYS_gettid)); }
