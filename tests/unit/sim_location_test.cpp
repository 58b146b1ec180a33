/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The board's location library, as a client of it sees it.
 */
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <thread>

#include "location_client_api.h"
#include "nas_service_v01.h"
#include "sim_board.h"

namespace {

using location_client::BatchingStatus;
using location_client::Location;
using location_client::LocationClientApi;
using location_client::LocationResponse;

struct batch_seen {
  std::vector<Location> locations;
  int status;
};

/** Everything that a client was told. */
class sim_location_test : public testing::Test {
 protected:
  void load(const std::string &scenario) {
    client_.reset();
    const std::string error = sim_board_load(scenario);
    ASSERT_EQ(error, "");
    const std::lock_guard guard(lock_);
    capabilities_.clear();
    responses_.clear();
    fixes_.clear();
    batches_.clear();
  }

  /** A client that knows the receiver's capabilities. */
  void open() {
    make();
    ASSERT_TRUE(wait([this] { return !capabilities_.empty(); }));
  }

  void make() {
    client_ = std::make_unique<LocationClientApi>([this](uint32_t mask) { note(capabilities_, mask); });
  }

  void shoot(uint32_t timeout_ms = 5000) {
    client_->getSinglePosition(
        timeout_ms, 50, [this](const Location &fix) { note(fixes_, fix); },
        [this](LocationResponse response) { note(responses_, static_cast<uint32_t>(response)); });
  }

  void stop() {
    client_->getSinglePosition(
        0, 0, nullptr, [this](LocationResponse response) { note(responses_, 100 + static_cast<uint32_t>(response)); });
  }

  bool batch(uint32_t interval_ms) {
    return client_->startRoutineBatchingSession(
        interval_ms, 0,
        [this](const std::vector<Location> &locations, BatchingStatus status) {
          note(batches_, batch_seen{locations, status});
        },
        [this](LocationResponse response) { note(responses_, static_cast<uint32_t>(response)); });
  }

  template <typename condition>
  bool wait(const condition &holds, int ms = 5000) {
    std::unique_lock guard(lock_);
    return noted_.wait_for(guard, std::chrono::milliseconds(ms), holds);
  }

  /** Long enough for what must not come. */
  static void rest(int ms = 80) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

  /** The timeline runs from the first NAS client on. */
  static void start_timeline() {
    yrp_client_type handle = nullptr;
    yrp_client_os_params os = {};
    ASSERT_EQ(yrp_client_init_instance(nas_get_service_object_internal_v01(1, 388, 6), YRP_INSTANCE_ANY, nullptr,
                                       nullptr, &os, 100, &handle),
              YRP_NO_ERR);
    yrp_client_release(handle);
  }

  std::mutex lock_;
  std::condition_variable noted_;
  std::vector<uint32_t> capabilities_, responses_;
  std::vector<Location> fixes_;
  std::vector<batch_seen> batches_;
  std::unique_ptr<LocationClientApi> client_; /* the first to go: until then it calls back */

 private:
  template <typename entry>
  void note(std::vector<entry> &list, const entry &what) {
    const std::lock_guard guard(lock_);
    list.push_back(what);
    noted_.notify_all();
  }
};

TEST_F(sim_location_test, a_single_shot_is_answered_and_then_has_its_fix) {
  load("location = { fix_ms = 20, latitude = 1.5, longitude = -2.25, speed = 3 }");
  open();
  shoot();
  ASSERT_TRUE(wait([this] { return !fixes_.empty(); }));
  EXPECT_EQ(responses_, std::vector<uint32_t>{0});
  EXPECT_EQ(fixes_[0].latitude, 1.5);
  EXPECT_EQ(fixes_[0].longitude, -2.25);
  EXPECT_EQ(fixes_[0].speed, 3);
  rest();
  EXPECT_EQ(fixes_.size(), 1U);
}

TEST_F(sim_location_test, before_its_capabilities_the_receiver_supports_nothing) {
  load("location = { capabilities_ms = -1, fix_ms = 0 }");
  make();
  shoot();
  ASSERT_TRUE(wait([this] { return !responses_.empty(); }));
  EXPECT_EQ(responses_[0], location_client::LOCATION_RESPONSE_NOT_SUPPORTED);
  rest();
  EXPECT_TRUE(capabilities_.empty());
  EXPECT_TRUE(fixes_.empty());
}

TEST_F(sim_location_test, a_fix_that_comes_too_late_is_a_time_out) {
  load("location = { fix_ms = 5000 }");
  open();
  shoot(20);
  ASSERT_TRUE(wait([this] { return responses_.size() == 2; }));
  EXPECT_EQ(responses_, (std::vector<uint32_t>{0, location_client::LOCATION_RESPONSE_TIMEOUT}));
  EXPECT_TRUE(fixes_.empty());
}

TEST_F(sim_location_test, a_refused_request_has_no_fix_unless_the_scenario_says_so) {
  load("location = { response = 1, fix_ms = 0 }");
  open();
  shoot();
  ASSERT_TRUE(wait([this] { return !responses_.empty(); }));
  EXPECT_EQ(responses_[0], 1U);
  rest();
  EXPECT_TRUE(fixes_.empty());

  load("location = { response = 1, fix_ms = 0, fix_when_refused = true }");
  open();
  shoot();
  EXPECT_TRUE(wait([this] { return !fixes_.empty(); }));
}

TEST_F(sim_location_test, a_fix_may_come_late_and_more_than_once) {
  load("location = { fix_ms = 0, repeat_fix = 3, late_ms = 30 }");
  open();
  const auto start = std::chrono::steady_clock::now();
  shoot();
  ASSERT_TRUE(wait([this] { return fixes_.size() == 3; }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

TEST_F(sim_location_test, a_stop_takes_the_place_of_the_running_shot) {
  load("location = { fix_ms = 60 }");
  open();
  shoot();
  stop();
  ASSERT_TRUE(wait([this] { return responses_.size() == 2; }));
  EXPECT_EQ(responses_, (std::vector<uint32_t>{0, 100}));
  rest(150);
  EXPECT_TRUE(fixes_.empty());
}

TEST_F(sim_location_test, a_second_shot_replaces_the_first) {
  load("location = { fix_ms = 60 }");
  open();
  std::atomic<int> first = 0;
  client_->getSinglePosition(
      5000, 50, [&first](const Location &) { ++first; }, nullptr);
  rest(30);
  shoot();
  ASSERT_TRUE(wait([this] { return !fixes_.empty(); }));
  rest();
  EXPECT_EQ(fixes_.size(), 1U);
  EXPECT_EQ(first, 0);
}

TEST_F(sim_location_test, a_fault_decides_the_response) {
  load(
      "location.fix_ms = 0\n[[fault]]\non = \"location.getSinglePosition\"\nerror = 3\n[[fault]]\n"
      "on = \"location.startRoutineBatchingSession\"");
  open();
  shoot();
  ASSERT_TRUE(wait([this] { return !responses_.empty(); }));
  EXPECT_EQ(responses_[0], 3U);
  shoot();
  EXPECT_TRUE(wait([this] { return !fixes_.empty(); })) << "the rule is used up";
  EXPECT_FALSE(batch(10));
  EXPECT_TRUE(batch(10));
}

TEST_F(sim_location_test, batches_hold_one_location_of_each_interval) {
  load("location = { batch = 3, timestamp = 1000 }");
  open();
  ASSERT_TRUE(batch(5));
  ASSERT_TRUE(wait([this] { return batches_.size() == 2; }));
  client_->stopBatchingSession();
  EXPECT_EQ(responses_, std::vector<uint32_t>{0});
  ASSERT_EQ(batches_[0].locations.size(), 3U);
  EXPECT_EQ(batches_[0].status, 1);
  EXPECT_EQ(batches_[0].locations[0].timestamp, 1005U);
  EXPECT_EQ(batches_[1].locations[2].timestamp, 1030U);
  rest(30);
  const size_t stopped = batches_.size();
  rest();
  EXPECT_EQ(batches_.size(), stopped);
}

TEST_F(sim_location_test, batches_may_be_empty_or_long) {
  for (const size_t size : {size_t{0}, size_t{1}, size_t{255}, size_t{300}}) {
    load("location = { batch_status = 2, batch = " + std::to_string(size) + " }");
    open();
    ASSERT_TRUE(batch(1));
    ASSERT_TRUE(wait([this] { return !batches_.empty(); }));
    EXPECT_EQ(batches_[0].locations.size(), size);
    EXPECT_EQ(batches_[0].status, 2);
    client_.reset();
  }
}

TEST_F(sim_location_test, lost_capabilities_end_what_runs_and_come_back) {
  load(
      "[location]\nfix_ms = 4000\nbatch = 1\n[[at]]\nms = 50\nlocation = { capabilities = 0 }\n"
      "[[at]]\nms = 120\nlocation = { capabilities = 1, fix_ms = 0 }\n");
  open();
  shoot();
  ASSERT_TRUE(batch(4000));
  start_timeline();
  ASSERT_TRUE(wait([this] { return responses_.size() == 3 && !batches_.empty(); }));
  EXPECT_EQ(responses_, (std::vector<uint32_t>{0, 0, location_client::LOCATION_RESPONSE_FAILURE}));
  EXPECT_EQ(batches_[0].status, location_client::BATCHING_STATUS_INACTIVE);
  ASSERT_TRUE(wait([this] { return capabilities_.size() == 3; }));
  EXPECT_EQ(capabilities_, (std::vector<uint32_t>{7, 0, 1}));
  shoot();
  EXPECT_TRUE(wait([this] { return !fixes_.empty(); }));
}

TEST_F(sim_location_test, nothing_is_called_once_the_client_is_gone) {
  load("location = { fix_ms = 1, batch = 1, repeat_fix = 50 }");
  for (int round = 0; round < 200; ++round) {
    std::atomic<bool> alive = true;
    std::atomic<int> dead_calls = 0;
    const auto seen = [&] {
      if (!alive) {
        ++dead_calls;
      }
    };
    auto client = std::make_unique<LocationClientApi>([&](uint32_t) { seen(); });
    client->getSinglePosition(
        100, 1, [&](const Location &) { seen(); }, [&](LocationResponse) { seen(); });
    client->startRoutineBatchingSession(
        1, 0, [&](const std::vector<Location> &, BatchingStatus) { seen(); }, [&](LocationResponse) { seen(); });
    std::this_thread::sleep_for(std::chrono::microseconds(round * 10));
    client.reset();
    alive = false;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    EXPECT_EQ(dead_calls, 0);
  }
}

TEST_F(sim_location_test, destruction_waits_for_the_callback_that_runs) {
  load("location.fix_ms = 0");
  open();
  std::atomic<bool> runs = false, over = false;
  client_->getSinglePosition(
      100, 1,
      [&](const Location &) {
        runs = true;
        rest(60);
        over = true;
      },
      nullptr);
  while (!runs) {
    rest(1);
  }
  client_.reset();
  EXPECT_TRUE(over);
}

TEST_F(sim_location_test, a_client_may_go_in_its_own_callback) {
  load("location.fix_ms = 0");
  open();
  std::atomic<bool> gone = false;
  client_->getSinglePosition(
      100, 1,
      [&](const Location &) {
        client_.reset();
        gone = true;
      },
      nullptr);
  for (int time = 0; time < 500 && !gone; ++time) {
    rest(10);
  }
  EXPECT_TRUE(gone);
}

TEST_F(sim_location_test, a_client_whose_construction_fails_never_hears_of_capabilities) {
  load("[[fault]]\non = \"location.LocationClientApi\"\n");
  make();
  rest();
  EXPECT_TRUE(capabilities_.empty());
}

TEST_F(sim_location_test, on_a_drive_fixes_follow_its_track_to_the_last_digit) {
  const std::string file = "/tmp/sim_location_test." + std::to_string(getpid()) + ".csv";
  std::ofstream(file)
      << "Timestamp,Longitude,Latitude,Speed,NetworkMode,RSRP,RSRQ,SNR,CQI,LACHEX,RAWCELLID,NRxRSRP,NRxRSRQ\n"
         "2020.02.14_07.29.00,-8.394544999999999,51.935590000000005,36,LTE,-90,-8,5.0,10,9CBA,11016962,-95,-10\n"
         "2020.02.14_07.29.01,-8.388252,51.935459,72,EDGE,-,-,-,-,-,-,-,-\n";
  load("location.fix_ms = 0\n[trace]\nspeed = 0\nfile = \"" + file + "\"\n");
  std::filesystem::remove(file);
  open();
  shoot();
  ASSERT_TRUE(wait([this] { return fixes_.size() == 1; }));
  EXPECT_EQ(fixes_[0].latitude, 51.935590000000005) << "row 0 is in force before the client starts";
  EXPECT_EQ(fixes_[0].longitude, -8.394544999999999);
  EXPECT_EQ(fixes_[0].speed, 10);
  EXPECT_EQ(fixes_[0].timestamp, 1581665340000U);
  start_timeline();
  ASSERT_TRUE(sim_board_wait_idle(2000));
  shoot();
  ASSERT_TRUE(wait([this] { return fixes_.size() == 2; }));
  EXPECT_EQ(fixes_[1].latitude, 51.935459) << "the receiver needs no LTE";
  EXPECT_EQ(fixes_[1].speed, 20);
  EXPECT_EQ(fixes_[1].timestamp, 1581665341000U);
}

TEST_F(sim_location_test, calls_and_callbacks_are_journaled) {
  load("location = { fix_ms = 0, latitude = 51.935590000000005 }");
  sim_board_journal_keep(true);
  open();
  shoot();
  ASSERT_TRUE(wait([this] { return !fixes_.empty(); }));
  client_.reset();
  std::string journal;
  for (const std::string &line : sim_board_journal()) {
    journal += line + '\n';
  }
  sim_board_journal_keep(false);
  for (const char *part :
       {"\"lib\": \"location\", \"dir\": \"call\", \"name\": \"LocationClientApi\", \"fields\": {}",
        "\"dir\": \"event\", \"name\": \"capabilities\", \"fields\": {\"mask\": 7}",
        "\"name\": \"getSinglePosition\", \"fields\": {\"timeout_ms\": 5000, \"horizontal_accuracy\": 50.0, "
        "\"location_cb\": true}",
        "\"dir\": \"return\", \"name\": \"getSinglePosition\", \"fields\": {}",
        "\"dir\": \"event\", \"name\": \"response\", \"fields\": {\"response\": 0}",
        "\"dir\": \"event\", \"name\": \"location\"", "\"latitude\": 51.935590000000005",
        "\"dir\": \"call\", \"name\": \"~LocationClientApi\""}) {
    EXPECT_NE(journal.find(part), std::string::npos) << part << '\n' << journal;
  }
}

TEST_F(sim_location_test, texts_are_the_same_under_every_locale) {
  load("");
  EXPECT_EQ(LocationClientApi::capabilitiesToString(0), "NONE");
  EXPECT_EQ(LocationClientApi::capabilitiesToString(7), "SINGLE_SHOT TIME_BASED_BATCHING DISTANCE_BASED_BATCHING");
  Location location;
  location.flags = 3;
  location.latitude = 51.935590000000005;
  location.speed = 0.1F;
  EXPECT_EQ(location.toString(),
            "flags=3 timestamp=0 latitude=51.935590000000005 longitude=0 altitude=0 speed=0.1 bearing=0 "
            "horizontalAccuracy=0 verticalAccuracy=0 speedAccuracy=0 bearingAccuracy=0 techMask=0");
}

}  // namespace
