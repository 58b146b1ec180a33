/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The location client on the simulated board, up to the events that it posts.
 */
#include "lyn_gps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "diag_log.h"
#include "post_capture.h"
#include "sim_board.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

constexpr ox_lyn_loc_single_shot_req_t shot = {.timeout_ms = 1000, .horizontal_accuracy = 25.5f};
constexpr ox_lyn_loc_batching_req_t batching = {.min_interval_ms = 1};

class lyn_gps : public testing::Test {
 protected:
  /** A client on a board whose receiver is as `location` says; its capabilities have arrived where it has any. */
  void start(const std::string &location) {
    const bool given = location.find("capabilities_ms") != std::string::npos;
    ASSERT_EQ(sim_board_load((given ? "[location]\n" : "[location]\ncapabilities_ms = 0\n") + location), "");
    sim_board_journal_keep(true);
    post_fail(0);
    post_clear();
    ASSERT_EQ(lyn_gps_init(), 0);
    ASSERT_TRUE(sim_board_wait_idle(5000));
    diag_log_take();
  }
  void TearDown() override {
    EXPECT_EQ(lyn_gps_deinit(), 0);
    post_clear();
  }
};

TEST_F(lyn_gps, nothing_starts_or_stops_before_the_capabilities_arrived) {
  start("capabilities_ms = -1\n");
  EXPECT_EQ(lyn_gps_get_single_shot_location_info(&shot), -1);
  EXPECT_EQ(lyn_gps_set_single_shot_location_stop(), -1);
  EXPECT_EQ(lyn_gps_start_batching_info(&batching), -1);
  EXPECT_EQ(lyn_gps_set_batch_location_stop(), -1);
  EXPECT_EQ(diag_log_texts("ERROR"),
            (std::vector<std::string>{"lyn_gps_get_single_shot_location_info:Failure \\n",
                                      "lyn_gps_set_single_shot_location_stop:Failure \\n",
                                      "lyn_gps_start_batching_info:Failure stating routine batching\\n",
                                      "lyn_gps_set_batch_location_stop:Failure \\n"}));
  EXPECT_THAT(sim_board_journal(), Not(Contains(HasSubstr("getSinglePosition"))));
}

TEST_F(lyn_gps, nothing_starts_or_stops_after_deinit) {
  start("");
  EXPECT_EQ(lyn_gps_deinit(), 0);
  EXPECT_EQ(diag_log_texts("HIGH"), std::vector<std::string>{"lyn_gps_deinit:Success, capability flag is 0 \\n"});
  EXPECT_EQ(lyn_gps_get_single_shot_location_info(&shot), -1);
  EXPECT_EQ(lyn_gps_set_single_shot_location_stop(), -1);
  EXPECT_EQ(lyn_gps_start_batching_info(&batching), -1);
  EXPECT_EQ(lyn_gps_set_batch_location_stop(), -1);
}

TEST_F(lyn_gps, init_and_capabilities_are_logged) {
  ASSERT_EQ(sim_board_load("[location]\ncapabilities_ms = 300\n"), "");
  diag_log_take();
  EXPECT_EQ(lyn_gps_init(), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(600));
  EXPECT_TRUE(sim_board_wait_idle(5000));
  EXPECT_EQ(diag_log_texts("HIGH"),
            (std::vector<std::string>{"lyn_gps_init: Success, capability flag is 0 \\n",
                                      "onCapabilitiesCb: mask string=SINGLE_SHOT TIME_BASED_BATCHING "
                                      "DISTANCE_BASED_BATCHING capability flag is 1"}));
}

TEST_F(lyn_gps, a_second_init_replaces_the_client) {
  start("");
  EXPECT_EQ(lyn_gps_init(), 0);
  EXPECT_THAT(sim_board_journal(), Contains(HasSubstr("~LocationClientApi")));
  EXPECT_TRUE(sim_board_wait_idle(5000));
  EXPECT_EQ(lyn_gps_set_batch_location_stop(), 0);
}

TEST_F(lyn_gps, null_requests_are_refused) {
  start("");
  EXPECT_EQ(lyn_gps_get_single_shot_location_info(nullptr), -1);
  EXPECT_EQ(lyn_gps_start_batching_info(nullptr), -1);
  EXPECT_EQ(diag_log_texts("ERROR"),
            (std::vector<std::string>{"lyn_gps_get_single_shot_location_info:Failure starting single shot \\n",
                                      "lyn_gps_start_batching_info:Failure starting routine batching \\n"}));
}

TEST_F(lyn_gps, a_single_shot_posts_the_fix_member_by_member) {
  start(
      "fix_ms = 0\nlatitude = 51.5\nlongitude = -8.25\naltitude = 12.5\nspeed = 3.5\nbearing = 270.5\n"
      "flags = 3\ntech_mask = 5\n");
  EXPECT_EQ(lyn_gps_get_single_shot_location_info(&shot), 0);
  const auto events = post_wait(1);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].id, 123456u);
  const auto &result = events[0].as<ox_lyn_loc_single_shot_t>();
  EXPECT_EQ(result.kind, 0u);
  EXPECT_EQ(result.response, 0u);
  EXPECT_EQ(result.location.flags, 3u);
  EXPECT_EQ(result.location.latitude, 51.5);
  EXPECT_EQ(result.location.longitude, -8.25);
  EXPECT_EQ(result.location.altitude, 12.5);
  EXPECT_EQ(result.location.speed, 3.5f);
  EXPECT_EQ(result.location.bearing, 270.5f);
  EXPECT_EQ(result.location.tech_mask, 5u);
  EXPECT_TRUE(sim_board_wait_idle(5000));
  const auto texts = diag_log_texts("HIGH");
  ASSERT_EQ(texts.size(), 5u);
  EXPECT_EQ(texts[0], "lyn_gps_get_single_shot_location_info:Capabality_flag 1 \\n");
  EXPECT_THAT(texts, Contains("lyn_gps_get_single_shot_location_info:Success \\n"));
  EXPECT_THAT(texts, Contains("single_shot_response_callback: response 0\\n"));
  EXPECT_THAT(texts, Contains("single_shot_response_callback: single_shot_response is 0 \\n"));
  EXPECT_THAT(texts, Contains(testing::AllOf(testing::StartsWith("single_shot_location_callback: "),
                                             testing::EndsWith(" response 0\\n"))));
  EXPECT_THAT(sim_board_journal(), Contains(HasSubstr("25.5")));
}

TEST_F(lyn_gps, a_fix_after_a_time_out_is_delivered_with_kind_0) {
  start("response = 4\nfix_ms = 0\n");
  EXPECT_EQ(lyn_gps_get_single_shot_location_info(&shot), 0);
  const auto events = post_wait(1);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_single_shot_t>().kind, 0u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_single_shot_t>().response, 4u);
  EXPECT_NE(events[0].as<ox_lyn_loc_single_shot_t>().location.latitude, 0.0);
}

TEST_F(lyn_gps, a_refused_single_shot_posts_the_response_and_its_late_fix_is_dropped) {
  start("response = 3\nfix_ms = 0\nfix_when_refused = true\n");
  EXPECT_EQ(lyn_gps_get_single_shot_location_info(&shot), 0);
  EXPECT_TRUE(sim_board_wait_idle(5000));
  const auto events = post_wait(1);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_single_shot_t>().kind, 0u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_single_shot_t>().response, 3u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_single_shot_t>().location.latitude, 0.0);
  EXPECT_THAT(diag_log_texts("HIGH"), Contains(testing::EndsWith(" response -1\\n")));
}

TEST_F(lyn_gps, a_stop_posts_kind_1_and_the_fix_is_not_delivered) {
  start("fix_ms = 300\n");
  EXPECT_EQ(lyn_gps_get_single_shot_location_info(&shot), 0);
  EXPECT_EQ(lyn_gps_set_single_shot_location_stop(), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  EXPECT_TRUE(sim_board_wait_idle(5000));
  const auto events = post_wait(1);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].id, 123456u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_single_shot_t>().kind, 1u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_single_shot_t>().response, 0u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_single_shot_t>().location.latitude, 0.0);
}

TEST_F(lyn_gps, a_refused_stop_posts_nothing) {
  start("response = 1\n");
  EXPECT_EQ(lyn_gps_set_single_shot_location_stop(), 0);
  EXPECT_TRUE(sim_board_wait_idle(5000));
  EXPECT_TRUE(post_wait(0).empty());
  EXPECT_THAT(diag_log_texts("HIGH"), Contains("single_shot_response_stop_callback: response 1\\n"));
}

TEST_F(lyn_gps, single_shot_results_that_cannot_be_posted_say_posted) {
  start("fix_ms = 0\nrepeat_fix = 2\n");
  post_fail(-1);
  EXPECT_EQ(lyn_gps_get_single_shot_location_info(&shot), 0);
  EXPECT_TRUE(sim_board_wait_idle(5000));
  // The first location could not be posted: the stored response is -1 and the second is not tried.
  EXPECT_EQ(diag_log_texts("ERROR"),
            std::vector<std::string>{"single_shot_location_callback: single_shot_loc_info posted \\n"});
  EXPECT_EQ(lyn_gps_set_single_shot_location_stop(), 0);
  EXPECT_TRUE(sim_board_wait_idle(5000));
  EXPECT_EQ(diag_log_texts("ERROR"),
            std::vector<std::string>{"single_shot_response_stop_callback: single_shot_loc_stop_info posted \\n"});
}

TEST_F(lyn_gps, refused_responses_that_cannot_be_posted_say_posted) {
  start("response = 2\n");
  post_fail(-1);
  EXPECT_EQ(lyn_gps_get_single_shot_location_info(&shot), 0);
  EXPECT_EQ(lyn_gps_start_batching_info(&batching), 0);
  EXPECT_TRUE(sim_board_wait_idle(5000));
  EXPECT_EQ(diag_log_texts("ERROR"),
            (std::vector<std::string>{"single_shot_response_callback: single_shot_loc_response  posted \\n",
                                      "batching_response_callback: batching_response  posted \\n"}));
}

TEST_F(lyn_gps, batches_carry_their_locations) {
  start("batch = 3\nlatitude = 1.5\n");
  EXPECT_EQ(lyn_gps_start_batching_info(&batching), 0);
  const auto events = post_wait(2);
  EXPECT_EQ(lyn_gps_set_batch_location_stop(), 0);
  ASSERT_GE(events.size(), 2u);
  EXPECT_EQ(events[0].id, 123457u);
  const auto &batch = events[0].as<ox_lyn_loc_batch_t>();
  EXPECT_EQ(batch.status, 1);
  EXPECT_EQ(batch.response, 0);
  ASSERT_EQ(batch.count, 3);
  ASSERT_NE(batch.locations, nullptr);
  EXPECT_EQ(batch.locations[2].latitude, 1.5);
  EXPECT_LT(batch.locations[0].timestamp, batch.locations[2].timestamp);
  const auto texts = diag_log_texts("HIGH");
  EXPECT_THAT(texts, Contains("batching_response_callback: batching_response  is 0 \\n"));
  EXPECT_THAT(texts, Contains("batching_routine_location_callback: batching status: 1, total locations 3\\n"));
  EXPECT_THAT(texts, Contains("batching_routine_location_callback: batching status: 1, location cnt 3\\n"));
  EXPECT_THAT(texts, Contains("lyn_gps_set_batch_location_stop:Success \\n"));
}

TEST_F(lyn_gps, of_300_locations_the_first_255_are_delivered) {
  start("batch = 300\n");
  EXPECT_EQ(lyn_gps_start_batching_info(&batching), 0);
  const auto events = post_wait(1);
  EXPECT_EQ(lyn_gps_set_batch_location_stop(), 0);
  ASSERT_GE(events.size(), 1u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_batch_t>().count, 255);
  EXPECT_NE(events[0].as<ox_lyn_loc_batch_t>().locations[254].latitude, 0.0);
  const auto texts = diag_log_texts("HIGH");
  EXPECT_THAT(texts, Contains("batching_routine_location_callback: batching status: 1, total locations 300\\n"));
  EXPECT_THAT(texts, Contains("batching_routine_location_callback: batching status: 1, location cnt 255\\n"));
}

TEST_F(lyn_gps, a_batch_of_no_locations_has_an_array_of_its_own_and_count_0) {
  start("batch = 0\n");
  EXPECT_EQ(lyn_gps_start_batching_info(&batching), 0);
  const auto events = post_wait(1);
  EXPECT_EQ(lyn_gps_set_batch_location_stop(), 0);
  ASSERT_GE(events.size(), 1u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_batch_t>().count, 0);
  EXPECT_NE(events[0].as<ox_lyn_loc_batch_t>().locations, nullptr);
}

TEST_F(lyn_gps, a_batch_of_another_status_is_delivered_without_locations) {
  start("batch = 2\nbatch_status = 2\n");
  EXPECT_EQ(lyn_gps_start_batching_info(&batching), 0);
  const auto events = post_wait(1);
  EXPECT_EQ(lyn_gps_set_batch_location_stop(), 0);
  ASSERT_GE(events.size(), 1u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_batch_t>().status, 2);
  EXPECT_EQ(events[0].as<ox_lyn_loc_batch_t>().count, 0);
  EXPECT_EQ(events[0].as<ox_lyn_loc_batch_t>().locations, nullptr);
}

TEST_F(lyn_gps, a_refused_batching_response_is_posted_at_once) {
  start("response = 3\n");
  EXPECT_EQ(lyn_gps_start_batching_info(&batching), 0);
  EXPECT_TRUE(sim_board_wait_idle(5000));
  const auto events = post_wait(1);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].id, 123457u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_batch_t>().status, 0);
  EXPECT_EQ(events[0].as<ox_lyn_loc_batch_t>().response, 3);
  EXPECT_EQ(events[0].as<ox_lyn_loc_batch_t>().locations, nullptr);
}

TEST_F(lyn_gps, after_a_batch_that_could_not_be_posted_the_stored_response_is_minus_1) {
  start("batch = 1\n");
  post_fail(-1);
  EXPECT_EQ(lyn_gps_start_batching_info(&batching), 0);
  std::vector<std::string> errors;
  while (errors.empty()) {
    errors = diag_log_texts("ERROR");
  }
  EXPECT_EQ(errors[0], "batching_routine_location_callback: location batch posted\\n");
  post_fail(0);
  post_clear();
  const auto events = post_wait(1);
  EXPECT_EQ(lyn_gps_set_batch_location_stop(), 0);
  ASSERT_GE(events.size(), 1u);
  EXPECT_EQ(events[0].as<ox_lyn_loc_batch_t>().response, -1);
}

TEST_F(lyn_gps, batching_that_the_service_refuses_to_start_fails) {
  start("\n[[fault]]\non = \"location.startRoutineBatchingSession\"\n");
  EXPECT_EQ(lyn_gps_start_batching_info(&batching), -1);
  EXPECT_EQ(diag_log_texts("ERROR"),
            std::vector<std::string>{"lyn_gps_start_batching_info:Failure stating routine batching \\n"});
}

}  // namespace
