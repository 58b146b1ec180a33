/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Fixes and batches through the API: what metrics 50 and 51 and controls 1 and 2 return, deliver, log and call, and
 * what keeps a request ongoing.
 */
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "drive_rows.h"
#include "lyn_gps.h"
#include "mobile_board.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr ox_lyn_loc_single_shot_req_t shot = {.timeout_ms = 60000, .horizontal_accuracy = 25.5f};
constexpr ox_lyn_loc_single_shot_req_t short_shot = {.timeout_ms = 2, .horizontal_accuracy = 25.5f};
constexpr ox_lyn_loc_batching_req_t batching = {.min_interval_ms = 1};

constexpr char fix_line[] = "shot kind 0 response 0 at 51.897463 -8.480187";
constexpr char stopped_line[] = "shot kind 1 response 0 at 0 0";

int32_t shoot(const ox_lyn_loc_single_shot_req_t &req = shot) {
  return board.get(OX_LYN_GET_LOC_SINGLE_SHOT_E, &req);
}

int32_t start_batching() {
  return board.get(OX_LYN_GET_LOC_ROUTINE_BATCHING_E, &batching);
}

int32_t stop_shot() {
  return board.set(OX_LYN_SET_LOC_SINGLE_SHOT_STOP_E);
}

int32_t stop_batching() {
  return board.set(OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E);
}

using location = board_test;

// Single shots -------------------------------------------------------------------------------------------------------

TEST_F(location, a_shot_delivers_its_fix_once_and_ends) {
  mobile.start("location.fix_ms = 1\n");
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
  mobile.expect({fix_line});
  EXPECT_THAT(mobile.calls("location", "getSinglePosition"),
              ElementsAre(R"(getSinglePosition {"timeout_ms":60000,"horizontal_accuracy":25.5,"location_cb":true})"));
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
  mobile.expect({fix_line});
}

TEST_F(location, nothing_starts_before_the_capabilities_and_nothing_counts_as_ongoing) {
  mobile.start(
      "location = { capabilities_ms = -1, fix_ms = 1 }\n"
      "[[at]]\nafter = \"oxmap.GetWWANPolicyListEx\"\nlocation = { capabilities_ms = 0 }\n");
  for (int again = 0; again < 2; again++) {
    EXPECT_EQ(shoot(), OX_LYN_ERR_FAILURE);
    EXPECT_EQ(start_batching(), OX_LYN_ERR_FAILURE);
    EXPECT_EQ(stop_shot(), OX_LYN_ERR_FAILURE);
    EXPECT_EQ(stop_batching(), OX_LYN_ERR_FAILURE);
  }
  EXPECT_THAT(mobile.calls("location"), ElementsAre("LocationClientApi {}"));

  ox_lyn_dm_info_t profiles = metric_request(OX_LYN_GET_WWAN_PROFILE_INDEX_E);  // the capabilities come after it
  EXPECT_EQ(ox_lyn_get_info(board.hndl, &profiles), OX_LYN_SUCCESS);
  free(profiles.value.ptr);
  EXPECT_TRUE(mobile.logged(mobile_capable));
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
  mobile.expect({fix_line});
}

TEST_F(location, a_second_shot_is_refused_until_the_first_has_ended) {
  mobile.start("location.fix_ms = -1\n");
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
  diag_log_take();
  EXPECT_EQ(shoot(), OX_LYN_ERR_BUSY);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Gps single shot request ongoing 1 - wait for completion!!"));
  EXPECT_EQ(board.get_list({OX_LYN_GET_LOC_SINGLE_SHOT_E}, &shot), OX_LYN_ERR_BUSY);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Gps scan ongoing single_shot[1] - wait for completion!!"));
  EXPECT_EQ(mobile.calls("location", "getSinglePosition").size(), 1U);
}

TEST_F(location, a_refused_shot_delivers_its_response_and_not_the_fix_that_comes_all_the_same) {
  for (uint32_t response : {1U, 2U, 3U, 5U, 77U}) {
    mobile.start(
        text_of("location.fix_ms = 0\nlocation.fix_when_refused = true\n[[fault]]\non = "
                "\"location.getSinglePosition\"\nresult = 1\nerror = ",
                response, "\n"));
    EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
    mobile.expect({text_of("shot kind 0 response ", response, " at 0 0")});
    EXPECT_EQ(shoot(), OX_LYN_SUCCESS) << "the refusal has ended the request";
    mobile.expect({fix_line});
    if (response != 77) {
      board.stop();
    }
  }
}

TEST_F(location, a_timed_out_shot_delivers_nothing_and_stays_ongoing_until_it_is_stopped) {
  mobile.start("location.fix_ms = -1\n");
  EXPECT_EQ(shoot(short_shot), OX_LYN_SUCCESS);
  EXPECT_TRUE(mobile.logged("single_shot_response_callback: response 4\\n"));
  EXPECT_THAT(mobile.settled(), IsEmpty());
  EXPECT_EQ(shoot(), OX_LYN_ERR_BUSY);
  EXPECT_EQ(stop_shot(), OX_LYN_SUCCESS);
  mobile.expect({stopped_line});
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
}

TEST_F(location, a_fix_behind_a_time_out_response_is_delivered_as_a_result) {
  mobile.start("location.fix_ms = 1\nlocation.response = 4\n");
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
  mobile.expect({"shot kind 0 response 4 at 51.897463 -8.480187"});
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
}

TEST_F(location, a_stop_before_the_fix_ends_the_request_with_its_answer_and_the_fix_never_comes) {
  mobile.start("location.fix_ms = 500\n");
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
  EXPECT_EQ(stop_shot(), OX_LYN_SUCCESS);
  mobile.expect({stopped_line});
  EXPECT_EQ(mobile.calls("location", "getSinglePosition").back(),
            R"(getSinglePosition {"timeout_ms":0,"horizontal_accuracy":0.0,"location_cb":false})");
  EXPECT_EQ(stop_shot(), OX_LYN_ERR_FAILURE) << "its answer has ended the request";
  std::this_thread::sleep_for(std::chrono::milliseconds(600));
  EXPECT_THAT(mobile.settled(), IsEmpty());
}

TEST_F(location, a_stop_after_the_fix_is_refused_and_sends_nothing) {
  mobile.start("location.fix_ms = 0\n");
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
  mobile.expect({fix_line});
  mobile.forget_calls();
  diag_log_take();
  EXPECT_EQ(stop_shot(), OX_LYN_ERR_FAILURE);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("ox_lyn_set_info : No gps single shot request ongoing 0 !"));
  EXPECT_THAT(mobile.calls("location"), IsEmpty());
}

TEST_F(location, a_refused_stop_delivers_nothing_and_deliberately_leaves_the_request_ongoing) {
  mobile.start(
      "location.fix_ms = -1\n"
      "[[fault]]\non = \"location.getSinglePosition\"\nskip = 1\nresult = 1\nerror = 3\n");
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
  EXPECT_EQ(stop_shot(), OX_LYN_SUCCESS);
  EXPECT_TRUE(mobile.logged("single_shot_response_stop_callback: response 3\\n"));
  EXPECT_THAT(mobile.settled(), IsEmpty());
  EXPECT_EQ(shoot(), OX_LYN_ERR_BUSY);
  EXPECT_EQ(stop_shot(), OX_LYN_SUCCESS) << "a second stop is answered";
  mobile.expect({stopped_line});
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
}

TEST_F(location, a_fix_that_comes_three_times_is_delivered_three_times_and_the_next_shot_starts) {
  mobile.start("location.fix_ms = 0\nlocation.repeat_fix = 3\n");
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
  mobile.expect({fix_line, fix_line, fix_line});
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
}

TEST_F(location, withdrawn_capabilities_end_a_shot_with_a_failure) {
  mobile.start(
      "location.fix_ms = -1\n"
      "[[at]]\nafter = \"location.getSinglePosition\"\nms = 1\nlocation = { capabilities = 2 }\n");
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
  EXPECT_EQ(mobile.take(1), lines{"shot kind 0 response 1 at 0 0"});
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS) << "the request has ended, and the module asks again";
  EXPECT_EQ(mobile.take(1), lines{"shot kind 0 response 2 at 0 0"});
}

TEST_F(location, requests_without_parameters_are_refused_by_the_location_client) {
  mobile.start();
  EXPECT_EQ(board.get(OX_LYN_GET_LOC_SINGLE_SHOT_E), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(board.get(OX_LYN_GET_LOC_ROUTINE_BATCHING_E), OX_LYN_ERR_FAILURE);
  EXPECT_THAT(mobile.calls("location", "getSinglePosition"), IsEmpty());
  EXPECT_EQ(stop_shot(), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(stop_batching(), OX_LYN_ERR_FAILURE);
}

// Batching -----------------------------------------------------------------------------------------------------------

TEST_F(location, batches_of_every_size_arrive_with_their_locations_up_to_255) {
  for (uint32_t size : {0U, 1U, 4U, 255U, 300U}) {
    mobile.start(text_of("location.batch = ", size, "\nlocation.timestamp = 5000\n"));
    EXPECT_EQ(start_batching(), OX_LYN_SUCCESS);
    const uint32_t count = std::min(size, 255U);
    EXPECT_EQ(mobile.take(1)[0], text_of("batch status 1 response 0 of ", count));
    EXPECT_EQ(stop_batching(), OX_LYN_SUCCESS);
    mobile.settled();
    ASSERT_GE(mobile.fixes.size(), count);
    for (uint32_t i = 0; i < count; i++) {
      EXPECT_EQ(mobile.fixes[i].timestamp, 5001 + i) << "one location of each interval, in its order";
    }
    EXPECT_THAT(mobile.calls("location", "startRoutineBatchingSession"),
                ElementsAre(R"(startRoutineBatchingSession {"min_interval_ms":1,"min_distance_m":0})"));
    if (size != 300) {
      board.stop();
    }
  }
}

TEST_F(location, a_second_batching_start_is_refused_until_the_stop_in_a_list_with_minus_1) {
  mobile.start("location.batch = 1\n");
  EXPECT_EQ(start_batching(), OX_LYN_SUCCESS);
  EXPECT_EQ(start_batching(), OX_LYN_ERR_BUSY);
  EXPECT_THAT(diag_log_texts("ERROR"), Contains("Gps batching request ongoing 1 - wait for completion!!"));
  EXPECT_EQ(board.get_list({OX_LYN_GET_LOC_ROUTINE_BATCHING_E}, &batching), OX_LYN_ERR_FAILURE);
  EXPECT_THAT(diag_log_texts("ERROR"), Contains("Gps scan ongoing batching [1] - wait for completion!!"));
  EXPECT_EQ(stop_batching(), OX_LYN_SUCCESS);
  diag_log_take();
  EXPECT_EQ(stop_batching(), OX_LYN_ERR_FAILURE);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("No Gps batching request ongoing 0 "));
  EXPECT_EQ(mobile.calls("location", "stopBatchingSession").size(), 1U);
  EXPECT_EQ(board.get_list({OX_LYN_GET_LOC_ROUTINE_BATCHING_E}, &batching), OX_LYN_SUCCESS);
  EXPECT_EQ(stop_batching(), OX_LYN_SUCCESS);
}

TEST_F(location, after_the_stop_no_batch_comes) {
  mobile.start("location.batch = 1\n");
  EXPECT_EQ(start_batching(), OX_LYN_SUCCESS);
  EXPECT_EQ(mobile.take(1)[0], "batch status 1 response 0 of 1");
  EXPECT_EQ(stop_batching(), OX_LYN_SUCCESS);
  mobile.settled();  // what was under way
  EXPECT_THAT(mobile.settled(), IsEmpty());
}

TEST_F(location, a_session_that_the_service_does_not_start_is_not_ongoing) {
  mobile.start("location.batch = 1\n[[fault]]\non = \"location.startRoutineBatchingSession\"\n");
  EXPECT_EQ(start_batching(), OX_LYN_ERR_FAILURE);
  EXPECT_THAT(diag_log_texts("ERROR"), Contains("lyn_gps_start_batching_info:Failure stating routine batching \\n"));
  EXPECT_EQ(start_batching(), OX_LYN_SUCCESS);
  EXPECT_EQ(stop_batching(), OX_LYN_SUCCESS);
}

TEST_F(location, a_refused_batching_response_is_delivered_and_the_session_stays_ongoing_until_the_stop) {
  mobile.start(
      "location.batch = 1\n"
      "[[fault]]\non = \"location.startRoutineBatchingSession\"\nresult = 1\nerror = 3\n");
  EXPECT_EQ(start_batching(), OX_LYN_SUCCESS);
  mobile.expect({"batch status 0 response 3 of 0 without array"});
  EXPECT_EQ(start_batching(), OX_LYN_ERR_BUSY);
  EXPECT_EQ(stop_batching(), OX_LYN_SUCCESS);
  EXPECT_EQ(start_batching(), OX_LYN_SUCCESS);
  EXPECT_EQ(mobile.take(1)[0], "batch status 1 response 0 of 1");
}

TEST_F(location, a_batch_of_another_status_has_no_locations) {
  for (int32_t status : {0, 2, 3, -1}) {
    mobile.start(text_of("location.batch = 2\nlocation.batch_status = ", status, "\n"));
    EXPECT_EQ(start_batching(), OX_LYN_SUCCESS);
    EXPECT_EQ(mobile.take(1)[0], text_of("batch status ", status, " response 0 of 0 without array"));
    if (status != -1) {
      board.stop();
    }
  }
}

TEST_F(location, withdrawn_capabilities_end_batching_with_an_empty_batch) {
  mobile.start(
      "location.batch = 300\n"
      "[[at]]\nafter = \"location.startRoutineBatchingSession\"\nlocation = { capabilities = 1 }\n");
  EXPECT_EQ(start_batching(), OX_LYN_SUCCESS);
  mobile.expect({"batch status 0 response 0 of 0 without array"});
  EXPECT_EQ(stop_batching(), OX_LYN_SUCCESS);
}

TEST_F(location, a_shot_and_batching_run_side_by_side) {
  mobile.start("location.fix_ms = 5\nlocation.batch = 1\n");
  EXPECT_EQ(start_batching(), OX_LYN_SUCCESS);
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
  lines seen;
  while (std::find(seen.begin(), seen.end(), fix_line) == seen.end()) {
    const lines more = mobile.take(1);
    ASSERT_THAT(more, Not(IsEmpty()));
    seen.insert(seen.end(), more.begin(), more.end());
  }
  EXPECT_EQ(stop_batching(), OX_LYN_SUCCESS);
  EXPECT_THAT(seen, Contains("batch status 1 response 0 of 1"));
}

// Late callbacks -----------------------------------------------------------------------------------------------------

TEST_F(location, what_comes_due_after_the_module_went_down_reaches_nobody) {
  for (int cycle = 0; cycle < 30; cycle++) {
    mobile.start("location.fix_ms = 1\nlocation.batch = 1\nlocation.late_ms = 1\nlocation.repeat_fix = 20\n");
    EXPECT_EQ(shoot(), OX_LYN_SUCCESS);
    EXPECT_EQ(start_batching(), OX_LYN_SUCCESS);
    if (cycle % 3 == 1) {
      mobile.take(1);
    }
    board.stop();
    const std::unique_lock guard(board.lock);
    const size_t delivered = board.deliveries.size();
    EXPECT_TRUE(sim_board_wait_idle(60000));
    EXPECT_EQ(board.deliveries.size(), delivered);
  }
  mobile.start("location.fix_ms = 0\n");
  EXPECT_EQ(shoot(), OX_LYN_SUCCESS) << "flags of the last life are gone";
  mobile.expect({fix_line});
}

/** The client alone, with the module down: nothing that it posts is accepted. */
class location_down : public testing::Test {
 protected:
  /** Let a client of its own run into the board's callbacks; what it logged of failures. */
  lines failures_of(const std::string &toml, const std::function<int32_t()> &work) {
    EXPECT_EQ(sim_board_load("location.capabilities_ms = 0\n" + toml), "");
    EXPECT_EQ(lyn_gps_init(), 0);
    EXPECT_TRUE(sim_board_wait_idle(60000));
    diag_log_take();
    EXPECT_EQ(work(), 0);
    lines failures;
    while (failures.size() < 2) {
      for (const std::string &text : diag_log_texts("ERROR")) {
        failures.push_back(text);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(lyn_gps_deinit(), 0);
    failures.resize(2);  // batches go on
    return failures;
  }
};

TEST_F(location_down, a_result_that_cannot_be_posted_says_posted_and_is_freed) {
  constexpr char down[] = "Device Manager module is not initialized!!";
  const auto shooting = [] { return lyn_gps_get_single_shot_location_info(&shot); };
  const auto stopping = [] { return lyn_gps_set_single_shot_location_stop(); };
  const auto batch = [] { return lyn_gps_start_batching_info(&batching); };
  EXPECT_THAT(failures_of("location.response = 1\n", shooting),
              ElementsAre(down, "single_shot_response_callback: single_shot_loc_response  posted \\n"));
  EXPECT_THAT(failures_of("location.fix_ms = 0\n", shooting),
              ElementsAre(down, "single_shot_location_callback: single_shot_loc_info posted \\n"));
  EXPECT_THAT(failures_of("", stopping),
              ElementsAre(down, "single_shot_response_stop_callback: single_shot_loc_stop_info posted \\n"));
  EXPECT_THAT(failures_of("location.response = 1\n", batch),
              ElementsAre(down, "batching_response_callback: batching_response  posted \\n"));
  EXPECT_THAT(failures_of("location.batch = 3\n", batch),
              ElementsAre(down, "batching_routine_location_callback: location batch posted\\n"));
}

// Drives -------------------------------------------------------------------------------------------------------------

/** Where one row of a drive was recorded; 0, 0 where it holds no whole position. */
using place = std::pair<double, double>;

std::vector<place> places_of(const std::string &file) {
  std::vector<place> places;
  for (drive_row &row : drive_rows(file)) {
    char *latitude_end = nullptr, *longitude_end = nullptr;
    const place at = {strtod(row["Latitude"].c_str(), &latitude_end), strtod(row["Longitude"].c_str(), &longitude_end)};
    const bool whole = *latitude_end == '\0' && *longitude_end == '\0';
    places.push_back(whole ? at : place{0, 0});
  }
  return places;
}

/** Replay a drive under a batching session; every fix is of the row in force when it was taken. */
void replay(const std::string &file, int rows_a_second) {
  SCOPED_TRACE(file);
  const std::vector<place> places = places_of(file);
  ASSERT_THAT(places, Not(IsEmpty()));
  mobile.start(text_of("location.batch = 1\n[trace]\nfile = \"", file, "\"\nspeed = ", rows_a_second,
                       "\nafter = \"location.startRoutineBatchingSession\"\n"));
  ASSERT_EQ(start_batching(), OX_LYN_SUCCESS);
  for (place at; at != places.back(); at = {mobile.last_fix().latitude, mobile.last_fix().longitude}) {
    ASSERT_THAT(mobile.take(1), Not(IsEmpty()));
  }
  ASSERT_EQ(stop_batching(), OX_LYN_SUCCESS);
  mobile.settled();
  size_t row = 0, distinct = 0;
  for (const ox_lyn_location_t &fix : mobile.fixes) {
    const place at = {fix.latitude, fix.longitude};
    const size_t before = row;
    while (row < places.size() && places[row] != at) {
      row++;
    }
    ASSERT_LT(row, places.size()) << "a fix that no later row has: " << text_of(at.first, " ", at.second);
    distinct += row != before;
  }
  EXPECT_GT(distinct, 3U) << "the receiver moves";
}

std::string own_drive() {
  return source_path("tests/data/drive.csv");
}

TEST_F(location, on_a_drive_fixes_follow_its_track_to_the_last_digit) {
  replay(own_drive(), 200);
}

TEST_F(location, on_a_drive_each_shot_has_the_place_of_its_row_to_the_last_digit) {
  const std::vector<place> places = places_of(own_drive());
  std::ifstream drive(own_drive());
  std::string header, line;
  std::getline(drive, header);
  const std::string file = testing::TempDir() + "location_row." + std::to_string(getpid()) + ".csv";
  size_t shots = 0;
  for (size_t row = 0; std::getline(drive, line); row++) {
    const std::string mode = drive_fields(line).at(6);
    if ((mode != "LTE" && mode != "5G") || row % 4 != 0) {
      continue;  // without service a shot is refused; a quarter of the rows will do
    }
    if (shots++ > 0) {
      board.stop();
    }
    std::ofstream(file) << header << '\n' << line << '\n';
    mobile.start("location.fix_ms = 0\n[trace]\nfile = \"" + file + "\"\n");
    ASSERT_EQ(shoot(), OX_LYN_SUCCESS);
    EXPECT_THAT(mobile.take(1),
                ElementsAre(text_of("shot kind 0 response 0 at ", places[row].first, " ", places[row].second)));
  }
  unlink(file.c_str());
  EXPECT_GT(shots, 5U);
}

class location_on_recorded_drive : public location, public testing::WithParamInterface<const char *> {
 protected:
  void SetUp() override {
    if (getenv("LYN_DRIVES") == nullptr) {
      GTEST_SKIP() << "LYN_DRIVES does not name the folder of the recorded drives";
    }
  }
};

TEST_P(location_on_recorded_drive, fixes_follow_its_track_to_the_last_digit) {
  replay(std::string(getenv("LYN_DRIVES")) + "/" + GetParam() + ".csv", 1000);
}

INSTANTIATE_TEST_SUITE_P(drives, location_on_recorded_drive,
                         testing::Values("driving-hspa", "driving-lte-5g", "driving-lte-5g-hspa-edge",
                                         "driving-short"));

}  // namespace
