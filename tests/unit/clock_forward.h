/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A clock that a test puts forward, for programs linked with --wrap of std::chrono::steady_clock::now()
 * (tests/CMakeLists.txt). Whoever sleeps wakes up as late as it would have; what looks at the clock sees it.
 *
 *   put_clock_forward(std::chrono::hours(1));
 */
#ifndef CLOCK_FORWARD_H
#define CLOCK_FORWARD_H

#include <atomic>
#include <chrono>
#include <cstdint>

inline std::atomic<int64_t> clock_forward_ns{0};

inline void put_clock_forward(std::chrono::nanoseconds by) {
  clock_forward_ns += by.count();
}

/* A C++ type is returned: the linker's names are told apart from C's. One source of a program includes this. */
std::chrono::steady_clock::time_point real_now() asm("__real__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point wrapped_now() asm("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point wrapped_now() {
  return real_now() + std::chrono::nanoseconds(clock_forward_ns);
}

#endif
