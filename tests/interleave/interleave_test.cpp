/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Whether interleave.h runs all orders, and no more, and sees what is wrong in one of them.
 */
#include "interleave.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "small_programs.h"

namespace {

using testing::StartsWith;

constexpr auto relaxed = std::memory_order_relaxed, acquire = std::memory_order_acquire,
               release = std::memory_order_release, seq_cst = std::memory_order_seq_cst;

TEST(interleave, steps_at_different_places_have_one_order) {
  EXPECT_EQ(each_changes_its_own(4).orders, 1U);
}

TEST(interleave, changes_of_one_place_have_every_order) {
  EXPECT_EQ(each_changes_the_same(2, 1).orders, 2U);
  EXPECT_EQ(each_changes_the_same(3, 1).orders, 6U);
  EXPECT_EQ(each_changes_the_same(4, 1).orders, 24U);
  EXPECT_EQ(each_changes_the_same(2, 2).orders, 6U) << "4 over 2";
  EXPECT_EQ(each_changes_the_same(3, 2).orders, 90U) << "6! / 2!2!2!";
}

TEST(interleave, each_of_the_readers_of_one_place_comes_before_or_behind_its_writer) {
  EXPECT_EQ(readers_only(3).orders, 1U);
  EXPECT_EQ(one_writes_what_others_read(2).orders, 4U);
  EXPECT_EQ(one_writes_what_others_read(3).orders, 8U);
}

TEST(interleave, those_who_hold_a_mutex_have_each_turn) {
  const interleave_result all = each_holds_the_mutex(3);
  EXPECT_EQ(all.failure, "");
  EXPECT_EQ(all.orders, 6U);
}

TEST(interleave, an_update_that_is_lost_in_one_order_is_found_and_the_order_is_told) {
  EXPECT_THAT(adds_without_care().failure, StartsWith("lost, in this order:\n  thread 0 begins 0\n"));
}

TEST(interleave, locks_in_two_orders_are_a_deadlock_in_one) {
  EXPECT_THAT(locks_crosswise().failure, StartsWith("a deadlock"));
}

TEST(interleave, a_signal_that_comes_before_the_wait_is_lost) {
  EXPECT_EQ(waits_for_a_flag(true).failure, "");
  EXPECT_THAT(waits_for_a_flag(false).failure, StartsWith("a deadlock"));
}

TEST(interleave, a_value_is_handed_over_by_release_and_acquire_and_by_nothing_less) {
  EXPECT_EQ(hands_over(release, acquire).failure, "");
  EXPECT_EQ(hands_over(seq_cst, seq_cst).failure, "");
  EXPECT_THAT(hands_over(relaxed, acquire).failure, StartsWith("a race"));
  EXPECT_THAT(hands_over(release, relaxed).failure, StartsWith("a race"));
}

TEST(interleave, memory_that_is_used_when_it_is_freed_or_later_is_found) {
  EXPECT_THAT(frees_what_is_used(false).failure, StartsWith("a race"));
  EXPECT_THAT(frees_what_is_used(true).failure, StartsWith("a use of freed memory"));
}

TEST(interleave, what_does_not_end_is_found) {
  EXPECT_THAT(spins().failure, StartsWith("it does not end"));
}

}  // namespace
