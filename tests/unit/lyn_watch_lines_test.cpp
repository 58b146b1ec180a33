/* SPDX-License-Identifier: Apache-2.0 */
// The lines of the live picture, with a model that the test fills itself: what a slow reader misses, and what it does
// not. The clock can be put forward, and something done just before a mutex is locked.
#include "lyn_watch_lines.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <future>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "before_mutex.h"
#include "clock_forward.h"

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

struct lines_test : testing::Test {
  lyn_watch_model_t model;
  int ends[2] = {-1, -1};
  std::thread writer;
  lyn_watch_lines_end_e end{};

  void SetUp() override {
    signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(pipe(ends), 0);
    lyn_watch_model_init(&model, "b");
  }

  void TearDown() override {
    finish();
    close(ends[0]);
    close(ends[1]);
  }

  void put_events(int count) {
    for (int i = 0; i < count; ++i) {
      lyn_watch_model_put_event(&model, lyn_watch_event_kind(OX_LYN_RECORD_IND_E, OX_LYN_IND_LTE_RSRP_E),
                                {{"value", int64_t{-90}}}, {}, std::chrono::steady_clock::now());
    }
  }

  void run(lyn_watch_ms_t every) {
    writer = std::thread([this, every] { end = lyn_watch_lines_run(&model, every, ends[1]); });
  }

  void finish() {
    lyn_watch_model_end(&model);
    if (writer.joinable()) {
      writer.join();
    }
  }

  std::string read_some() {
    char buffer[1 << 16];
    const ssize_t count = read(ends[0], buffer, sizeof(buffer));
    return {buffer, static_cast<size_t>(std::max<ssize_t>(count, 0))};
  }

  // Everything up to so many lines.
  std::vector<json> read_records(size_t count) {
    std::string text;
    while (static_cast<size_t>(std::ranges::count(text, '\n')) < count) {
      text += read_some();
    }
    std::vector<json> records;
    std::istringstream lines(text);
    for (std::string line; records.size() < count && std::getline(lines, line);) {
      records.push_back(json::parse(line));
    }
    return records;
  }
};

TEST_F(lines_test, events_that_are_not_kept_any_more_are_counted_and_the_others_follow) {
  put_events(LYN_WATCH_EVENTS_KEPT + 42);
  run(1h);
  const std::vector<json> records = read_records(3);
  EXPECT_EQ(records[0]["type"], "missed");
  EXPECT_EQ(records[0]["count"], 42);
  EXPECT_EQ(records[1]["id"], 43);
  EXPECT_EQ(records[2]["id"], 44);
}

TEST_F(lines_test, what_is_missed_while_the_reader_does_not_read_is_counted_where_it_is_missing) {
  put_events(1000);
  run(1h);
  read_records(1);  // it writes, and the pipe is full soon
  put_events(3 * LYN_WATCH_EVENTS_KEPT);
  uint64_t next = 0;
  uint64_t missed = 0;
  const uint64_t last = 1000 + 3 * LYN_WATCH_EVENTS_KEPT;
  std::string text;
  while (next <= last) {
    text += read_some();
    for (size_t at; (at = text.find('\n')) != std::string::npos; text.erase(0, at + 1)) {
      const auto record = json::parse(text.substr(0, at), nullptr, false);
      if (record.is_discarded() || record["type"] == "snapshot") {
        continue;  // the rest of the line that was read before
      }
      if (record["type"] == "missed") {
        missed += record["count"].get<uint64_t>();
        next += record["count"].get<uint64_t>();
      } else {
        EXPECT_TRUE(next == 0 || record["id"] == next);
        next = record["id"].get<uint64_t>() + 1;
      }
    }
  }
  EXPECT_GT(missed, 0U);
}

TEST_F(lines_test, events_stand_before_the_first_snapshot_behind_them) {
  lyn_watch_model_plan(&model, 1h, std::chrono::steady_clock::now());
  put_events(200);
  lyn_watch_model_end_reading(&model, true);
  run(1h);
  const std::vector<json> records = read_records(201);
  EXPECT_EQ(records[199]["id"], 200);
  EXPECT_EQ(records[200]["type"], "snapshot");
}

TEST_F(lines_test, end_comes_though_nobody_reads_and_leaves_whole_lines) {
  put_events(LYN_WATCH_EVENTS_KEPT);
  run(1h);
  pollfd output = {.fd = ends[1], .events = POLLOUT, .revents = 0};
  while (poll(&output, 1, 0) != 0) {
    std::this_thread::yield();
  }
  finish();
  EXPECT_EQ(end, LYN_WATCH_LINES_DONE);
  close(std::exchange(ends[1], -1));
  std::string text;
  for (std::string part; !(part = read_some()).empty();) {
    text += part;
  }
  EXPECT_TRUE(text.ends_with("}\n"));
}

TEST_F(lines_test, reader_that_has_gone_ends_it_without_a_record_to_write) {
  run(1h);
  read_records(1);
  close(std::exchange(ends[0], -1));
  writer.join();
  EXPECT_EQ(end, LYN_WATCH_LINES_DONE);
}

TEST_F(lines_test, full_disk_is_told) {
  const int full = open("/dev/full", O_WRONLY);
  testing::internal::CaptureStderr();
  EXPECT_EQ(lyn_watch_lines_run(&model, 1ms, full), LYN_WATCH_LINES_FAILED);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "lyn_watch: standard output: No space left on device\n");
  close(full);
}

TEST_F(lines_test, one_snapshot_waits_for_what_was_sent) {
  lyn_watch_model_set_state(&model, LYN_WATCH_UP);
  lyn_watch_model_set_scanning(&model, true);
  lyn_watch_model_end_reading(&model, true);
  writer = std::thread([this] { end = lyn_watch_lines_once(&model, ends[1]); });
  lyn_watch_model_put_neighbours(&model, LYN_WATCH_LTE, {.cells = {}, .at = std::chrono::steady_clock::now()});
  lyn_watch_model_set_scanning(&model, false);
  EXPECT_TRUE(read_records(1)[0].contains("neighbours"));
  writer.join();
  EXPECT_EQ(end, LYN_WATCH_LINES_DONE);
}

TEST_F(lines_test, one_snapshot_of_what_has_ended_is_none) {
  lyn_watch_model_set_state(&model, LYN_WATCH_UP);
  lyn_watch_model_end(&model);
  EXPECT_EQ(lyn_watch_lines_once(&model, ends[1]), LYN_WATCH_LINES_DONE);
  pollfd reader = {.fd = ends[0], .events = POLLIN, .revents = 0};
  EXPECT_EQ(poll(&reader, 1, 0), 0);
}

TEST_F(lines_test, one_snapshot_waits_ten_seconds_for_a_modem_and_no_longer) {
  std::promise<void> begun;
  auto ended = std::async(std::launch::async, [this, &begun] {
    before_mutex(1, [&begun] { begun.set_value(); });  // it knows until when it waits
    return lyn_watch_lines_once(&model, ends[1]);
  });
  begun.get_future().wait();
  const auto ends_after = [&](std::chrono::seconds further, int most_ms) {
    put_clock_forward(further);
    lyn_watch_model_set_scanning(&model, false);  // who waits looks at the clock
    for (int ms = 0; ms < most_ms && ended.wait_for(0s) != std::future_status::ready; ++ms) {
      std::this_thread::sleep_for(1ms);
    }
    return ended.wait_for(0s) == std::future_status::ready;
  };
  EXPECT_FALSE(ends_after(9s, 50));
  EXPECT_TRUE(ends_after(1s, 5000)) << "values of a modem that is not there are not waited for";
  EXPECT_EQ(ended.get(), LYN_WATCH_LINES_NO_MODEM);
}

/* Intervals: the clock is the test's */

constexpr lyn_watch_time_t ORIGIN(1000s);

// Which of these moments, counted from the first reading's begin, have a snapshot. `ended`: a reading ended then.
struct moment_t {
  lyn_watch_ms_t at;
  bool ended;
};

std::vector<int64_t> snapshots(const std::vector<moment_t> &moments, lyn_watch_ms_t every = 1s) {
  lyn_watch_intervals_t intervals = {.every = every, .origin = ORIGIN - 5s};
  lyn_watch_picture_t picture;
  picture.begin = ORIGIN;
  std::vector<int64_t> taken;
  for (const moment_t &moment : moments) {
    picture.now = ORIGIN + moment.at;
    picture.readings += moment.ended ? 1 : 0;
    if (lyn_watch_intervals_take(&intervals, picture)) {
      taken.push_back(moment.at.count());
    }
  }
  return taken;
}

TEST(lyn_watch_intervals, snapshot_comes_behind_each_reading) {
  EXPECT_THAT(snapshots({{10ms, true}, {1020ms, true}, {2000ms, true}, {3005ms, true}}),
              testing::ElementsAre(10, 1020, 2000, 3005));
}

TEST(lyn_watch_intervals, nothing_else_gives_a_second_one) {
  EXPECT_THAT(snapshots({{10ms, true}, {20ms, false}, {500ms, false}, {999ms, true}, {1001ms, false}, {1010ms, true}}),
              testing::ElementsAre(10, 1010));
}

TEST(lyn_watch_intervals, late_reading_has_its_snapshot_a_quarter_of_the_interval_later) {
  EXPECT_THAT(snapshots({{10ms, true}, {1249ms, false}, {1250ms, false}, {1300ms, true}, {2010ms, true}}),
              testing::ElementsAre(10, 1250, 2010));
}

TEST(lyn_watch_intervals, hanging_request_keeps_the_beat) {
  EXPECT_THAT(snapshots({{10ms, true},
                         {1250ms, false},
                         {2250ms, false},
                         {3250ms, false},
                         {4002ms, true},
                         {4010ms, true},
                         {5010ms, true}}),
              testing::ElementsAre(10, 1250, 2250, 3250, 4002, 5010));
}

TEST(lyn_watch_intervals, long_interval_waits_a_second_at_most) {
  EXPECT_THAT(snapshots({{10ms, true}, {60s, false}, {61s, false}, {62s, true}}, 60s), testing::ElementsAre(10, 61000));
}

TEST(lyn_watch_intervals, what_was_slept_through_is_not_made_up_for) {
  EXPECT_THAT(snapshots({{10ms, true}, {7600ms, false}, {7700ms, false}, {8010ms, true}}),
              testing::ElementsAre(10, 7600, 8010));
}

TEST(lyn_watch_intervals, count_anew_from_the_first_reading_on) {
  lyn_watch_intervals_t intervals = {.every = 1h, .origin = ORIGIN};
  lyn_watch_picture_t picture;
  picture.now = ORIGIN + 1s;
  EXPECT_TRUE(lyn_watch_intervals_take(&intervals, picture));
  picture.begin = ORIGIN + 3s;
  picture.now = ORIGIN + 4s - 1ms;
  picture.readings = 1;
  EXPECT_TRUE(lyn_watch_intervals_take(&intervals, picture));
  EXPECT_EQ(lyn_watch_intervals_latest(intervals), ORIGIN + 3s + 1h + 1s);
}

}  // namespace
