/* SPDX-License-Identifier: Apache-2.0 */
/* The allocation faults themselves: what is failed, how often, and in whose thread. */
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <thread>

#include "alloc_fault.h"

namespace {

struct free_block {
  void operator()(void *block) const { std::free(block); }
};
using block_ptr = std::unique_ptr<void, free_block>;

volatile size_t some_size = 24;

/** Whether there is a block. Volatile keeps the compiler from folding an allocation that nobody reads. */
template <typename Owner>
bool made(const Owner &owner) {
  const void *volatile block = owner.get();
  return block != nullptr;
}

bool malloc_works() {
  return made(block_ptr(std::malloc(some_size)));
}

bool calloc_works() {
  return made(block_ptr(std::calloc(2, some_size)));
}

bool nothrow_new_works() {
  return made(std::unique_ptr<char[]>(new (std::nothrow) char[some_size]));
}

bool nothrow_object_works() {
  return made(std::unique_ptr<uint64_t>(new (std::nothrow) uint64_t(some_size)));
}

TEST(alloc_fault, unarmed_allocations_succeed) {
  EXPECT_TRUE(malloc_works());
  EXPECT_TRUE(calloc_works());
  EXPECT_TRUE(nothrow_object_works());
}

TEST(alloc_fault, first_allocation_fails_once) {
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
  const bool first = malloc_works();
  const bool second = malloc_works();
  EXPECT_TRUE(alloc_fault_disarm());
  EXPECT_FALSE(first);
  EXPECT_TRUE(second);
}

TEST(alloc_fault, passed_allocations_count_across_kinds) {
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 2, 2);
  const bool results[] = {malloc_works(), calloc_works(), nothrow_object_works(), calloc_works(), malloc_works()};
  EXPECT_EQ(alloc_fault_seen(), 5U);
  EXPECT_TRUE(alloc_fault_disarm());
  EXPECT_TRUE(results[0]);
  EXPECT_TRUE(results[1]);
  EXPECT_FALSE(results[2]);
  EXPECT_FALSE(results[3]);
  EXPECT_TRUE(results[4]);
}

TEST(alloc_fault, disarm_tells_that_the_fault_was_not_met) {
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 1);
  EXPECT_TRUE(malloc_works());
  EXPECT_FALSE(alloc_fault_disarm());
}

TEST(alloc_fault, other_threads_are_left_alone_by_a_fault_of_this_thread) {
  bool there = false;
  std::thread other;
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
  other = std::thread([&there] { there = malloc_works(); });
  other.join();
  const bool here = malloc_works();
  alloc_fault_disarm();
  EXPECT_TRUE(there);
  EXPECT_FALSE(here);
}

TEST(alloc_fault, this_thread_is_left_alone_by_a_fault_of_the_others) {
  bool there = true;
  alloc_fault_arm(ALLOC_FAULT_OTHER_THREADS, 0);
  const bool here = malloc_works();
  std::thread other([&there] { there = malloc_works(); });
  other.join();
  EXPECT_TRUE(alloc_fault_disarm());
  EXPECT_TRUE(here);
  EXPECT_FALSE(there);
}

TEST(alloc_fault, array_new_is_not_wrapped) {
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
  const bool array = nothrow_new_works();
  EXPECT_FALSE(alloc_fault_disarm());
  EXPECT_TRUE(array);
}

}  // namespace
