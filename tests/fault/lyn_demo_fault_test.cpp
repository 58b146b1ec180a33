/* The demo client without memory: what options 5 and 8 say when their list cannot be allocated. */
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>

#include "../../demo/lyn_demo.h"
#include "alloc_fault.h"

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
