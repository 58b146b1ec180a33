/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The start of the module without memory, without a command thread, and with a rand() that gives 0.
 *
 * The program is linked with --wrap for rand and pthread_create (tests/CMakeLists.txt) besides the allocations.
 */
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <string>
#include <vector>

#include "alloc_fault.h"
#include "diag_log.h"
#include "lyn_cmdq.h"
#include "lyn_interface.h"
#include "lyn_yrp_nas.h"
#include "ox_lyn.h"
#include "sim_board.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

std::atomic<int> zeros_to_draw{0};
std::atomic<bool> no_command_thread{false};

}  // namespace

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL and offers the original as __real_SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_rand();
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*entry)(void *), void *arg);

int __wrap_rand() {
  return zeros_to_draw > 0 && zeros_to_draw-- > 0 ? 0 : __real_rand();
}
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*entry)(void *), void *arg) {
  return no_command_thread && entry == lyn_cmdthrd_main ? EAGAIN : __real_pthread_create(thread, attr, entry, arg);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

void user_cb(ox_lyn_hndl_t, ox_lyn_dm_info_t *dm_info, uint32_t) {
  free(dm_info);
}

/** What one start without memory came to. */
struct failed_start {
  int32_t status;
  std::string last_error;
  bool nas_left_up; /**< deliberate after a mobile AP or location client that did not start */

  bool operator==(const failed_start &) const = default;
};

struct lyn_interface_fault : testing::Test {
  ox_lyn_hndl_t hndl = 0;

  void SetUp() override {
    ASSERT_EQ(sim_board_load("[board]\nnoise_db = 0\n"), "");
    diag_log_take();
  }

  int32_t init() { return ox_lyn_init(&hndl, 0, user_cb); }
};

/*
 * First in the program: what a life of the module keeps for the next one (the queue's sentinel, the system-information
 * record) is not allocated a second time.
 */
TEST_F(lyn_interface_fault, init_fails_at_each_allocation_and_succeeds_when_there_is_memory) {
  std::vector<failed_start> failures;
  for (uint32_t pass = 0;; pass++) {
    diag_log_take();
    alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, pass);
    const int32_t status = init();
    const bool met = alloc_fault_disarm();
    if (status == OX_LYN_SUCCESS) {
      EXPECT_FALSE(met) << "an allocation that failed and was not noticed";
      break;
    }
    ASSERT_TRUE(met);
    ASSERT_EQ(hndl, 0U);
    const std::vector<std::string> errors = diag_log_texts("ERROR");
    // A NAS client that was left up would not allocate again.
    failures.push_back({status, errors.empty() ? "" : errors.back(), lyn_yrp_nas_release() == 0});
  }
  EXPECT_THAT(
      failures,
      ElementsAreArray(std::vector<failed_start>{
          {OX_LYN_ERR_NO_MEMORY, "Memory allocation failed", false},   // the list of services
          {OX_LYN_ERR_NO_MEMORY, "Memory allocation failed", false},   // the registration
          {OX_LYN_ERR_NO_MEMORY, "Memory allocation failed", false},   // its response
          {OX_LYN_ERR_FAILURE, "", true},                              // the mobile AP client
          {OX_LYN_ERR_NO_MEMORY, "Memory allocation failure", false},  // the system-information query
          {OX_LYN_ERR_NO_MEMORY, "Memory allocation failure", false},  // its response
          {OX_LYN_ERR_FAILURE, "lyn_gps_init:location client object is NULL,capability flag 0\\n", true},
          {OX_LYN_ERR_FAILURE, "Initializing internal command queue for processing async commands failed", false},
      }));
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
}

TEST_F(lyn_interface_fault, a_handle_of_0_is_drawn_again) {
  zeros_to_draw = 3;
  ASSERT_EQ(init(), OX_LYN_SUCCESS);
  EXPECT_EQ(zeros_to_draw, 0);
  EXPECT_NE(hndl, 0U);
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
}

TEST_F(lyn_interface_fault, without_a_command_thread_the_module_still_starts_and_stops) {
  no_command_thread = true;
  ASSERT_EQ(init(), OX_LYN_SUCCESS);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Cannot start cmdthrd:"));
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
  EXPECT_THAT(diag_log_texts("ERROR"), Contains(HasSubstr("Command thread not initialized")));
  no_command_thread = false;
  ASSERT_EQ(init(), OX_LYN_SUCCESS);
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
}

/** A command that counts in its data how often it was run and released. */
struct fate {
  int runs = 0, releases = 0;
};
lyn_cmd counted(fate *of) {
  return {.execute_f = [](lyn_cmd *, void *data) { static_cast<fate *>(data)->runs++; },
          .free_f = [](lyn_cmd *, void *data) { static_cast<fate *>(data)->releases++; },
          .data = of};
}

TEST_F(lyn_interface_fault, after_a_failed_stop_without_a_command_thread_the_next_start_releases_what_was_queued) {
  ASSERT_EQ(sim_board_load("[board]\nnoise_db = 0\n[[fault]]\non = \"yrp.release\"\ntimes = 2\n"), "");
  fate queued;
  lyn_cmd cmd = counted(&queued);
  no_command_thread = true;
  ASSERT_EQ(init(), OX_LYN_SUCCESS);
  ASSERT_EQ(lyn_cmdq_enq(&lyn_state.cmdq, &cmd), 0);
  ASSERT_EQ(ox_lyn_deinit(hndl), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(queued.releases, 0);
  ASSERT_EQ(init(), OX_LYN_SUCCESS);
  EXPECT_EQ(queued.releases, 1);

  ASSERT_EQ(lyn_cmdq_enq(&lyn_state.cmdq, &cmd), 0);
  ASSERT_EQ(ox_lyn_deinit(hndl), OX_LYN_ERR_FAILURE);
  no_command_thread = false;
  ASSERT_EQ(init(), OX_LYN_SUCCESS);
  EXPECT_EQ(queued.releases, 2);
  EXPECT_EQ(queued.runs, 0);
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
}

}  // namespace
