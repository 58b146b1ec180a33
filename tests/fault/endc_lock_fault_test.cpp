/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Metric 38 without memory for its block: the call reports success and keeps the module lock for good. Alone in its
 * program, because nothing of the module works afterwards.
 */

#include <atomic>
#include <chrono>
#include <thread>

#include "alloc_fault.h"
#include "lyn_interface.h"
#include "metric_board.h"

namespace {

/** Whether the module lock is held by somebody now. */
bool module_locked() {
  if (!lyn_lock_try()) {
    return true;
  }
  lyn_unlock();
  return false;
}

TEST(endc_lock_fault, metric_38_without_memory_reports_success_and_keeps_the_module_locked_for_every_later_call) {
  static std::atomic<bool> started{false}, answered{false};
  metric_board(OX_LYN_REG_LTE_E);
  board.up();
  ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_LTE_ENDC_MODE_E);
  ASSERT_EQ(ox_lyn_get_info(board.hndl, &info), 0);
  free(info.value.ptr);
  ASSERT_FALSE(module_locked());
  board_forget();

  info.value_type = 99;
  info.value.i64 = 77;
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 4); /* two buffers of each of the two queries */
  const int32_t status = ox_lyn_get_info(board.hndl, &info);
  ASSERT_TRUE(alloc_fault_disarm());
  EXPECT_EQ(status, 0);
  EXPECT_EQ(info.value_type, 0U);
  EXPECT_EQ(info.value.i64, 77) << "there is no block, and the value is left alone";
  EXPECT_THAT(diag_log_placed("ERROR"), testing::ElementsAre("ERROR lyn_interface_get.cpp Memory allocation failure"));
  EXPECT_TRUE(module_locked());

  std::thread([] {
    ox_lyn_dm_info_t later = metric_request(OX_LYN_GET_REG_STATUS_E);
    started = true;
    ox_lyn_get_info(board.hndl, &later);
    answered = true;
  }).detach();
  while (!started) {
    std::this_thread::yield();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(answered);
  EXPECT_THAT(metric_asked(), testing::ElementsAre("77", "77"));
}

}  // namespace
