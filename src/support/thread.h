// Small wrappers of what libc offers for threads. None throws or prints.
#ifndef HIVECTL_SUPPORT_THREAD_H_
#define HIVECTL_SUPPORT_THREAD_H_

#include <pthread.h>

#include <cstdint>

// Names the calling thread; null does nothing; the platform's 15-byte limit
// applies.
void SetThreadName(const char* name);

// Sleeps the whole span, resuming after signals; 0 or less returns at once.
void SleepFor(int64_t nanoseconds);

// Moves `thread` into SCHED_RR at height 1, 2 or 3; 0 leaves it alone and
// answers true. Note the inverted sense: true also when
// pthread_setschedparam failed, false when it succeeded or on a bad priority.
bool SetThreadPriority(pthread_t& thread, int priority);

// The SCHED_RR height that SetThreadPriority uses for `priority` 1, 2 or 3
// between the policy's bounds `min` and `max`; -1 for any other priority.
int RoundRobinHeight(int priority, int min, int max);

// The kernel's id of the calling thread (gettid).
int CurrentThreadId();

#endif  // HIVECTL_SUPPORT_THREAD_H_
