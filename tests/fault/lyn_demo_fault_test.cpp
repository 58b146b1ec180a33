/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The demo client without memory: what options 5 and 8 say when their list cannot be allocated, and what options 7 and
 * 8 make of a success whose block could not be.
 *
 * The program is linked with --wrap for the two operations that read metrics (tests/CMakeLists.txt).
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "../../demo/lyn_demo.h"
#include "alloc_fault.h"

namespace {

/** What stands in a record after a success without a block. */
enum { NULL_POINTER, WHAT_WAS_GIVEN } left_in_record;

int32_t succeed_without_block(ox_lyn_dm_info_t *infos, uint32_t count) {
  for (uint32_t i = 0; left_in_record == NULL_POINTER && i < count; ++i) {
    infos[i].value.i64 = 0;
  }
  return OX_LYN_SUCCESS;
}

}  // namespace

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL in the place of SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
int32_t __wrap_ox_lyn_get_info(ox_lyn_hndl_t, ox_lyn_dm_info_t *dm_info) {
  return succeed_without_block(dm_info, 1);
}
int32_t __wrap_ox_lyn_get_info_list(ox_lyn_hndl_t, ox_lyn_dm_info_t *dm_info_list, uint32_t dm_info_list_cnt) {
  return succeed_without_block(dm_info_list, dm_info_list_cnt);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

/** Run an option whose first allocation fails; what it printed goes to `printed`. */
int32_t without_memory(lyn_demo_handler_fn option, const int32_t *options, uint32_t count, std::string &printed) {
  testing::internal::CaptureStdout();
  puts("");  // stdio has its own buffer from here on
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
  const int32_t status = option(options, count);
  EXPECT_TRUE(alloc_fault_disarm());
  fflush(stdout);
  printed = testing::internal::GetCapturedStdout();
  return status;
}

}  // namespace

TEST(lyn_demo, a_metric_list_without_memory_deliberately_speaks_of_an_indication_list_and_is_skipped) {
  const int32_t options[] = {8, 1, 10};
  std::string printed;
  EXPECT_EQ(without_memory(lyn_demo_get_info_list, options, 3, printed), 0);
  EXPECT_EQ(printed, "\nLYN DEMO APP : Memory allocation failure for LYN DM indication list\n");
}

TEST(lyn_demo, an_indication_list_without_memory_is_skipped) {
  const int32_t options[] = {5, 3};
  std::string printed;
  EXPECT_EQ(without_memory(lyn_demo_get_ind_list, options, 2, printed), 0);
  EXPECT_EQ(printed,
            "\nLYN DEMO APP : Get LTE/5G/GPS indication list.\n"
            "LYN DEMO APP : Memory allocation failure for LYN DM indication list\n");
}

struct allocated_metric {
  int32_t id;
  const char *answers;   /* typed at its questions */
  const char *last_said; /* by option 7, before the request */
  const char *last_said_in_list;
};

constexpr char announced[] = "] metric information.\n";
constexpr char address_asked[] = "\n Please Enter V4 Address Value =>";
constexpr char handle_asked[] = "Please enter the selected profile handle number from the WWAN profiles list\n";

class lyn_demo_allocated : public testing::TestWithParam<allocated_metric> {
 protected:
  /** What an option prints with this metric at its end, the answers typed. */
  static std::string print(lyn_demo_handler_fn option, std::vector<int32_t> options) {
    std::string answers = GetParam().answers;
    FILE *terminal = stdin;
    stdin = fmemopen(answers.data(), answers.size(), "r");
    options.push_back(GetParam().id);
    testing::internal::CaptureStdout();
    EXPECT_EQ(option(options.data(), static_cast<uint32_t>(options.size())), 0);
    fflush(stdout);
    fclose(stdin);
    stdin = terminal;
    return testing::internal::GetCapturedStdout();
  }
};

INSTANTIATE_TEST_SUITE_P(metric, lyn_demo_allocated,
                         testing::Values(allocated_metric{35, "\n", announced, announced},
                                         allocated_metric{36, "\n", announced, announced},
                                         allocated_metric{38, "\n", announced, announced},
                                         allocated_metric{44, "\n", announced, announced},
                                         allocated_metric{45, "7\n", handle_asked, "metric id 45\n"},
                                         allocated_metric{46, "7\n", handle_asked, "metric id 46\n"},
                                         allocated_metric{47, "4\n192.0.2.1\n", address_asked, address_asked}),
                         [](const auto &test) { return std::to_string(test.param.id); });

TEST_P(lyn_demo_allocated, metric_that_succeeds_without_its_block_prints_no_result) {
  for (const auto left : {NULL_POINTER, WHAT_WAS_GIVEN}) {
    left_in_record = left;
    EXPECT_THAT(print(lyn_demo_get_info, {7}), testing::EndsWith(GetParam().last_said));
    EXPECT_THAT(print(lyn_demo_get_info_list, {8}), testing::EndsWith(GetParam().last_said_in_list));
  }
}

TEST_P(lyn_demo_allocated, metric_of_a_list_that_succeeds_without_its_block_leaves_the_others_to_be_printed) {
  left_in_record = WHAT_WAS_GIVEN;
  EXPECT_THAT(print(lyn_demo_get_info_list, {8, OX_LYN_GET_LTE_SERV_RSRP_E}),
              testing::EndsWith(std::string(GetParam().last_said_in_list) + "[LTE Serving Cell RSRP] - 0\n"));
}
