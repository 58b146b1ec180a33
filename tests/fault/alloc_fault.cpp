/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The linker sends malloc, calloc and the nothrow operator new of all objects of the program here (alloc_fault.h).
 * State is plain atomics: these functions run before main and while the sanitizers start, so nothing here allocates.
 */
#include "alloc_fault.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> armed{false};
std::atomic<int> scope{ALLOC_FAULT_THIS_THREAD};
std::atomic<uint32_t> pass_count{0};
std::atomic<uint32_t> fail_count{0};
std::atomic<uint32_t> seen{0};
thread_local bool arming_thread = false;
thread_local bool own = false;

bool in_scope() {
  switch (static_cast<alloc_fault_scope>(scope.load())) {
    case ALLOC_FAULT_THIS_THREAD:
      return arming_thread;
    case ALLOC_FAULT_OTHER_THREADS:
      return !arming_thread;
    case ALLOC_FAULT_ALL_THREADS:
      return true;
  }
  return false;
}

bool must_fail() {
  if (!armed.load() || own || !in_scope()) {
    return false;
  }
  const uint32_t number = seen.fetch_add(1);
  const uint32_t first = pass_count.load();
  return number >= first && number - first < fail_count.load();
}

}  // namespace

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL and offers the original as __real_SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t &tag);

void *__wrap_malloc(size_t size) {
  return must_fail() ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(size_t count, size_t size) {
  return must_fail() ? nullptr : __real_calloc(count, size);
}

void *__wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t &tag) {
  return must_fail() ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}
// NOLINTEND(bugprone-reserved-identifier)
}

void alloc_fault_arm(alloc_fault_scope new_scope, uint32_t pass, uint32_t times) {
  alloc_fault_disarm();
  arming_thread = true;
  scope = new_scope;
  pass_count = pass;
  fail_count = times;
  seen = 0;
  armed = true;
}

bool alloc_fault_disarm() {
  armed = false;
  arming_thread = false;
  return fail_count.load() > 0 && seen.load() > pass_count.load();
}

bool alloc_fault_meets() {
  return must_fail();
}

alloc_fault_own::alloc_fault_own() {
  own = true;
}
alloc_fault_own::~alloc_fault_own() {
  own = false;
}

uint32_t alloc_fault_seen() {
  return seen.load();
}
