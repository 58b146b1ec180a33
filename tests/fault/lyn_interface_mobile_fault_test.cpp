/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Location and mobile AP without memory, through the API: every allocation of every request and of everything that
 * follows it fails once. Nothing is lost, nothing hangs, and the module goes on as if nothing had happened.
 */
#include "alloc_fault.h"
#include "lyn_gps.h"
#include "lyn_oxmap_interface.h"
#include "mobile_board.h"

namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr ox_lyn_loc_single_shot_req_t shot = {.timeout_ms = 60000, .horizontal_accuracy = 1};
constexpr ox_lyn_loc_batching_req_t batching = {.min_interval_ms = 1};
constexpr ox_lyn_mtpe_net_params_t client = {.ip_family = 4, .client_addr = {192, 0, 2, 1}};

ox_lyn_mtpe_req_t throughput_request(uint32_t test_type) {
  ox_lyn_mtpe_req_t req = {};
  req.test_type = test_type;
  req.src_port = 1;
  req.dst_port = 2;
  return req;
}

using mobile_fault = board_test;

// On the caller's thread ---------------------------------------------------------------------------------------------

/** A metric with a result block: the only allocation that it makes on the caller's thread. */
struct given_metric {
  uint32_t metric;
  int64_t value;
  const char *error;
};

TEST_F(mobile_fault, metric_whose_block_cannot_be_allocated_fails_leaves_the_record_and_works_the_next_time) {
  const given_metric metrics[] = {
      {OX_LYN_GET_WWAN_PROFILE_INDEX_E, 0, "ERROR lyn_interface_get.cpp Memory allocation failure"},
      {OX_LYN_GET_IPV4_STATS_E, 1, "ERROR lyn_oxmap_interface.cpp Memory allocation failure"},
      {OX_LYN_GET_MTPE_SERVER_CONFIG_E, static_cast<int64_t>(reinterpret_cast<intptr_t>(&client)),
       "ERROR lyn_oxmap_interface.cpp Memory allocation failure"},
  };
  mobile.start();
  for (const given_metric &of : metrics) {
    SCOPED_TRACE(of.metric);
    ox_lyn_dm_info_t info = metric_request(of.metric);
    info.value.i64 = of.value;
    // The query of the system information comes first; its request and response are allocated on this thread, too.
    alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 2);
    diag_log_take();
    EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), OX_LYN_ERR_FAILURE);
    EXPECT_TRUE(alloc_fault_disarm());
    EXPECT_THAT(diag_log_placed("ERROR"), ElementsAre(of.error));
    EXPECT_EQ(info.value.i64, of.value);
    EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), OX_LYN_SUCCESS);
    free(info.value.ptr);
  }
}

TEST_F(mobile_fault, throughput_test_without_memory_is_not_configured_not_ongoing_and_not_heard_of) {
  mobile.start("[mtpe]\nconfigured_ms = 1\nduration_ms = 1\n");
  const ox_lyn_mtpe_req_t req = throughput_request(1);
  mobile.forget_calls();
  diag_log_take();
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 2);
  EXPECT_EQ(board.get(OX_LYN_GET_MTPE_LTE_INFO_E, &req), OX_LYN_SUCCESS);
  EXPECT_TRUE(alloc_fault_disarm());
  EXPECT_THAT(diag_log_placed("ERROR"), ElementsAre("ERROR lyn_oxmap_interface.cpp Memory allocation failure"));
  EXPECT_THAT(mobile.settled(), IsEmpty());
  EXPECT_THAT(mobile.calls("oxmap"), IsEmpty());
  EXPECT_EQ(board.get(OX_LYN_GET_MTPE_LTE_INFO_E, &req), OX_LYN_SUCCESS);
  EXPECT_EQ(mobile.take(2).size(), 2U);
}

TEST(mobile_client_fault, clients_that_cannot_be_made_are_reported) {
  ASSERT_EQ(sim_board_load("location.capabilities_ms = 0\n"), "");
  diag_log_take();
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
  EXPECT_EQ(lyn_gps_init(), -1);
  EXPECT_TRUE(alloc_fault_disarm());
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("lyn_gps_init:location client object is NULL,capability flag 0\\n"));
  EXPECT_EQ(lyn_gps_get_single_shot_location_info(&shot), -1);
  EXPECT_EQ(lyn_gps_deinit(), 0);

  testing::internal::CaptureStdout();
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
  EXPECT_EQ(lyn_oxmap_init(), -1);
  EXPECT_TRUE(alloc_fault_disarm());
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nCouldn't setup OxMapClient..exiting");
  EXPECT_EQ(lyn_oxmap_mtpe_start(1), 0);
}

// On the threads of the board and on the command thread --------------------------------------------------------------

/** Wait until `wanted` events came, or until a failed allocation has had time to show what it leads to. */
void let_it_happen(size_t wanted, uint32_t failing) {
  for (int after_failure = 0; after_failure < 15;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    sim_board_wait_idle(1000);
    after_failure += alloc_fault_seen() > failing;
    const std::lock_guard guard(board.lock);
    if (board.deliveries.size() >= wanted) {
      return;
    }
  }
}

/**
 * Make a request of `metric` with the n-th allocation of the other threads failing, for every n that is met until
 * `undisturbed` is delivered. With a failure something of it is missing, and the log says so.
 */
void fail_each_allocation(const std::string &toml, const lines &undisturbed, uint32_t metric, const void *req) {
  uint32_t met = 0;
  for (bool failed = true; failed; met += failed) {
    SCOPED_TRACE(text_of("allocation ", met));
    mobile.start(toml);
    diag_log_take();
    alloc_fault_arm(ALLOC_FAULT_OTHER_THREADS, met);
    EXPECT_EQ(board.get(metric, req), OX_LYN_SUCCESS);
    let_it_happen(undisturbed.size(), met);
    failed = alloc_fault_disarm();
    const lines delivered = mobile.settled();
    if (failed) {
      EXPECT_LT(delivered.size(), undisturbed.size());
      EXPECT_THAT(diag_log_placed("ERROR"), AllOf(Not(IsEmpty()), Each(HasSubstr(".cpp "))));
    } else {
      EXPECT_EQ(delivered, undisturbed);
    }
    board.stop();
  }
  EXPECT_GE(met, 6U) << "block, command, event and queue node of the poster; block and record of the delivery";
  mobile.start();
}

TEST_F(mobile_fault, each_allocation_behind_a_fix_may_fail) {
  fail_each_allocation("location.fix_ms = 0\n", {"shot kind 0 response 0 at 51.897463 -8.480187"},
                       OX_LYN_GET_LOC_SINGLE_SHOT_E, &shot);
}

TEST_F(mobile_fault, each_allocation_behind_a_refusal_may_fail) {
  fail_each_allocation("location.response = 3\n", {"shot kind 0 response 3 at 0 0"}, OX_LYN_GET_LOC_SINGLE_SHOT_E,
                       &shot);
}

TEST_F(mobile_fault, each_allocation_behind_a_refused_batching_start_may_fail) {
  fail_each_allocation("location.response = 3\n", {"batch status 0 response 3 of 0 without array"},
                       OX_LYN_GET_LOC_ROUTINE_BATCHING_E, &batching);
}

TEST_F(mobile_fault, each_allocation_behind_a_qos_query_may_fail) {
  fail_each_allocation("[wwan.qos]\nanswer_ms = 0\n", {"flow bearer 5 tx 7 rx 7"}, OX_LYN_GET_IPV4_QOS_TFT_E, nullptr);
}

TEST_F(mobile_fault, each_allocation_behind_a_throughput_test_of_both_directions_may_fail) {
  const lines both = {"throughput type 1 reason 0 status 1 rate 0", "throughput type 1 reason 0 status 2 rate 93000",
                      "throughput type 2 reason 0 status 1 rate 0", "throughput type 2 reason 0 status 2 rate 93000"};
  const ox_lyn_mtpe_req_t req = throughput_request(3);
  fail_each_allocation("[mtpe]\nconfigured_ms = 1\nduration_ms = 1\n", both, OX_LYN_GET_MTPE_LTE_INFO_E, &req);
}

TEST_F(mobile_fault, batch_that_lacks_any_allocation_is_dropped_and_the_next_ones_come) {
  mobile.start("location.batch = 2\n");
  EXPECT_EQ(board.get(OX_LYN_GET_LOC_ROUTINE_BATCHING_E, &batching), OX_LYN_SUCCESS);
  constexpr uint32_t of_one_batch = 8;  // two blocks, command, event, queue node; two blocks and record of the delivery
  for (uint32_t failing = 0; failing < 2 * of_one_batch; failing++) {
    alloc_fault_arm(ALLOC_FAULT_OTHER_THREADS, failing);
    while (alloc_fault_seen() <= failing) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(alloc_fault_disarm());
    mobile.take(1);  // may have been under way
    EXPECT_THAT(mobile.take(2), Each(AnyOf("batch status 1 response 0 of 2", "batch status 1 response -1 of 2")));
  }
  EXPECT_EQ(board.set(OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E), OX_LYN_SUCCESS);
}

}  // namespace
