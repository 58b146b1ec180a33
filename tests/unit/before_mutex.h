/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What happens just before a thread locks a mutex, for programs linked with --wrap=pthread_mutex_lock
 * (tests/CMakeLists.txt): shows what a call reads ahead of its lock.
 *
 *   before_mutex(1, [] { other_thread_comes(); });   // ahead of the next one that this thread locks
 *   call();
 */
#ifndef BEFORE_MUTEX_H
#define BEFORE_MUTEX_H

#include <pthread.h>

#include <functional>
#include <utility>

inline thread_local std::function<void()> before_mutex_act;
inline thread_local int before_mutex_left = 0;

/** Have it done ahead of the n-th mutex that this thread locks from now on. */
inline void before_mutex(int n, std::function<void()> act) {
  before_mutex_act = std::move(act);
  before_mutex_left = n;
}

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL and offers the original as __real_SYMBOL. One source of
// a program includes this. NOLINTBEGIN(bugprone-reserved-identifier,misc-definitions-in-headers)
int __real_pthread_mutex_lock(pthread_mutex_t *mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
  if (before_mutex_left > 0 && --before_mutex_left == 0) {
    std::exchange(before_mutex_act, nullptr)();
  }
  return __real_pthread_mutex_lock(mutex);
}
// NOLINTEND(bugprone-reserved-identifier,misc-definitions-in-headers)
}

#endif
