/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Metric 38 in a list, without memory for its block: the metric keeps the module lock, which the list itself takes
 * again behind each entry. Alone in its program, because nothing of the module works afterwards.
 */
#include <atomic>
#include <chrono>
#include <thread>

#include "alloc_fault.h"
#include "metric_board.h"

TEST(endc_list_fault, metric_38_in_a_list_without_memory_never_returns_and_keeps_later_entries_from_being_asked) {
  static std::atomic<bool> returned{false};
  static ox_lyn_dm_info_t list[] = {metric_request(OX_LYN_GET_REG_STATUS_E), metric_request(OX_LYN_GET_LTE_ENDC_MODE_E),
                                    metric_request(OX_LYN_GET_LTE_SERV_RSRP_E)};
  metric_board(OX_LYN_REG_LTE_E);
  board.up();
  ASSERT_EQ(ox_lyn_get_info_list(board.hndl, list, 2), 0);
  free(list[1].value.ptr);
  list[1].value.ptr = nullptr;
  board_forget();

  std::thread([] {
    alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 6);  // two buffers of each of the three queries
    ox_lyn_get_info_list(board.hndl, list, 3);
    returned = true;
  }).detach();
  while (alloc_fault_seen() < 7) {
    std::this_thread::yield();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  ASSERT_TRUE(alloc_fault_disarm());
  EXPECT_FALSE(returned);
  EXPECT_EQ(list[1].value.ptr, nullptr);
  EXPECT_THAT(metric_asked(), testing::ElementsAre("77", "77", "77"));
}
