/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The demo client's option 7 on metric 38 without memory for its four octets. Alone in its program, because the module
 * stays locked.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <array>
#include <string>

#include "../../demo/lyn_demo.h"
#include "alloc_fault.h"
#include "metric_board.h"

TEST(lyn_demo_endc, metric_38_without_memory_prints_nothing_behind_its_announcement) {
  constexpr std::array<int32_t, 1> register_option = {1};
  constexpr std::array<int32_t, 2> endc_option = {7, OX_LYN_GET_LTE_ENDC_MODE_E};
  metric_board(OX_LYN_REG_LTE_E);
  testing::internal::CaptureStdout();
  ASSERT_EQ(lyn_demo_process_options(register_option.data(), register_option.size()), 0);
  ASSERT_EQ(lyn_demo_process_options(endc_option.data(), endc_option.size()), 0);
  EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::HasSubstr("ENDC mode restrict_dcnr 0\n"));

  testing::internal::CaptureStdout();
  puts("");                                     // stdio has its own buffer from here on
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 4);  // two buffers of each of the two queries
  const int32_t status = lyn_demo_process_options(endc_option.data(), endc_option.size());
  ASSERT_TRUE(alloc_fault_disarm());
  fflush(stdout);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\nLYN DEMO APP : Getting LTE/5G [Modem ENDC LTE mode Info] metric information.\n");
}
