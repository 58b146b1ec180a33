/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Allocations that fail on demand. A program linked with -Wl,--wrap=malloc,--wrap=calloc and the nothrow operator new
 * (tests/CMakeLists.txt does so for every *_fault_test) takes these calls through here. Until a test arms a fault they
 * all succeed; what C++ containers allocate is never touched. The board allocates in no other way (test_build.py), and
 * what the C library allocates for itself is not the program's: only calls of the module and its clients fail.
 *
 *   alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 1);        // let one allocation through, fail the second
 *   int32_t status = ox_lyn_get_info(hndl, &info);
 *   EXPECT_TRUE(alloc_fault_disarm());                  // the fault was really met
 */
#ifndef ALLOC_FAULT_H
#define ALLOC_FAULT_H

#include <cstdint>

enum alloc_fault_scope {
  ALLOC_FAULT_THIS_THREAD,   /* the thread that arms */
  ALLOC_FAULT_OTHER_THREADS, /* every thread but that one: the command thread, for instance */
  ALLOC_FAULT_ALL_THREADS
};

/* From now on let `pass` allocations of the scope through and fail the next `times` ones. */
void alloc_fault_arm(alloc_fault_scope scope, uint32_t pass, uint32_t times = 1);

/* Allocations succeed again. Tells whether at least one was failed since arming. */
bool alloc_fault_disarm();

/* Whether the next allocation fails, which counts it: for a call that allocates for the program in another library. */
bool alloc_fault_meets();

/* What this thread allocates until the end of the block neither counts nor fails: it is the test's own. */
struct alloc_fault_own {
  alloc_fault_own();
  ~alloc_fault_own();
  alloc_fault_own(const alloc_fault_own &) = delete;
  alloc_fault_own &operator=(const alloc_fault_own &) = delete;
};

/* Allocations of the scope seen since arming, failed ones included; arm with a large `pass` to count only. */
uint32_t alloc_fault_seen();

#endif
