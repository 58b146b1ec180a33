/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The model: what is kept for how long, what a modem that goes takes with it, and what views are told of events that
 * they were too slow for.
 */
#include "lyn_watch_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "before_mutex.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::Pair;

const lyn_watch_time_t START{std::chrono::hours(1)};

class lyn_watch_model : public ::testing::Test {
 protected:
  lyn_watch_model() { lyn_watch_model_init(&model, "board"); }

  lyn_watch_picture_t picture() { return lyn_watch_model_picture(&model, START); }
  void put(lyn_watch_value_t value, lyn_watch_time_t now = START) {
    lyn_watch_model_put(&model, RSRP, std::move(value), OX_LYN_SUCCESS, now);
  }
  uint64_t event(const char *name, lyn_watch_value_t value, lyn_watch_time_t now = START) {
    for (const lyn_watch_event_kind_t &kind : lyn_watch_event_kinds) {
      if (std::string(kind.name) == name) {
        return lyn_watch_model_put_event(&model, &kind, {{"value", std::move(value)}}, lyn_watch_utc_t(), now);
      }
    }
    return 0;
  }
  const lyn_watch_reading_t &reading(const lyn_watch_picture_t &from) { return from.items[RSRP.item][RSRP.radio]; }
  lyn_watch_traffic_t traffic(uint64_t received, lyn_watch_time_t at) {
    return {.stats = {.bytes_rx = received,
                      .bytes_tx = 0,
                      .pkts_rx = 0,
                      .pkts_tx = 0,
                      .pkts_dropped_rx = 0,
                      .pkts_dropped_tx = 0},
            .rx_rate = {},
            .tx_rate = {},
            .at = at};
  }
  std::optional<double> rate_after(uint64_t received, lyn_watch_time_t at, uint32_t index = 1) {
    lyn_watch_profile_t profile = {.index = index, .apn = "internet", .traffic = {traffic(received, at), {}}};
    lyn_watch_model_put_profiles(&model, {profile});
    return picture().profiles[0].traffic[0]->rx_rate;
  }

  /** After a reading that finds LTE in this cell. */
  uint64_t changes_at(lyn_watch_value_t cgi, lyn_watch_value_t pci) {
    lyn_watch_model_put(&model, lyn_watch_key(LYN_WATCH_LTE, "cgi"), std::move(cgi), OX_LYN_SUCCESS, START);
    lyn_watch_model_put(&model, lyn_watch_key(LYN_WATCH_LTE, "pci"), std::move(pci), OX_LYN_SUCCESS, START);
    lyn_watch_model_end_reading(&model, true);
    return picture().cell_changes[LYN_WATCH_LTE];
  }

  const lyn_watch_key_t RSRP = lyn_watch_key(LYN_WATCH_LTE, "rsrp");
  lyn_watch_model_t model;
};

/* Values */

TEST_F(lyn_watch_model, begins_with_nothing_measured) {
  const lyn_watch_picture_t begin = picture();
  EXPECT_EQ(begin.state, LYN_WATCH_STARTING);
  EXPECT_EQ(begin.board, "board");
  EXPECT_EQ(begin.answered, lyn_watch_time_t());
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    EXPECT_FALSE(lyn_watch_measured(begin.items[key.item][key.radio].value));
  }
  EXPECT_EQ(begin.event_counts, std::vector<uint64_t>(lyn_watch_event_kinds.size()));
}

TEST_F(lyn_watch_model, name_of_the_board_becomes_utf8) {
  lyn_watch_model_t other;
  lyn_watch_model_init(&other, "roof\xFF");
  EXPECT_EQ(lyn_watch_model_picture(&other, START).board, "roof\uFFFD");
}

TEST_F(lyn_watch_model, the_newest_value_counts_with_its_status_and_age) {
  put(int64_t{-95});
  put(int64_t{-96}, START + seconds(2));
  EXPECT_EQ(reading(picture()).value, lyn_watch_value_t(int64_t{-96}));
  EXPECT_EQ(reading(picture()).at, START + seconds(2));
  lyn_watch_model_put(&model, RSRP, {}, OX_LYN_ERR_INFO_UNAVAILABLE, START + seconds(3));
  EXPECT_FALSE(lyn_watch_measured(reading(picture()).value));
  EXPECT_EQ(reading(picture()).status, OX_LYN_ERR_INFO_UNAVAILABLE);
}

TEST_F(lyn_watch_model, a_modem_that_goes_takes_its_values_and_leaves_history_and_counters) {
  lyn_watch_model_set_state(&model, LYN_WATCH_UP);
  put(int64_t{-95});
  event("lte_rsrp", int64_t{-95});
  rate_after(5, START);
  lyn_watch_model_put_neighbours(&model, LYN_WATCH_LTE, {.cells = {{.channel = 1300, .pci = 1}}, .at = START});
  lyn_watch_model_put_location(&model, {}, START);
  lyn_watch_model_set_state(&model, LYN_WATCH_DOWN);
  const lyn_watch_picture_t down = picture();
  EXPECT_FALSE(lyn_watch_measured(reading(down).value));
  EXPECT_TRUE(down.profiles.empty());
  EXPECT_TRUE(down.neighbours[LYN_WATCH_LTE].cells.empty());
  EXPECT_EQ(down.neighbours[LYN_WATCH_LTE].at, lyn_watch_time_t());
  EXPECT_NE(down.location, nullptr);
  EXPECT_EQ(down.last_event, 1U);
  EXPECT_TRUE(lyn_watch_model_history(&model, RSRP, START).back().has_value());
}

TEST_F(lyn_watch_model, coming_up_takes_nothing_away) {
  put(int64_t{-95});
  lyn_watch_model_set_state(&model, LYN_WATCH_UP);
  EXPECT_TRUE(lyn_watch_measured(reading(picture()).value));
}

/* History */

TEST_F(lyn_watch_model, a_second_keeps_the_least_the_most_and_the_last) {
  for (const int64_t value : {-95, -99, -90, -93}) {
    put(value, START + milliseconds(10));
  }
  const auto history = lyn_watch_model_history(&model, RSRP, START + milliseconds(999));
  ASSERT_EQ(history.size(), size_t{LYN_WATCH_HISTORY_S});
  EXPECT_EQ(history.back()->least, -99);
  EXPECT_EQ(history.back()->most, -90);
  EXPECT_EQ(history.back()->last, -93);
  EXPECT_FALSE(history[LYN_WATCH_HISTORY_S - 2].has_value());
}

TEST_F(lyn_watch_model, history_lasts_ten_minutes_and_no_longer) {
  put(int64_t{-95});
  put(int64_t{-96}, START + seconds(1));
  const auto full = lyn_watch_model_history(&model, RSRP, START + seconds(LYN_WATCH_HISTORY_S - 1));
  EXPECT_EQ(full[0]->last, -95);
  EXPECT_EQ(full[1]->last, -96);
  const auto later = lyn_watch_model_history(&model, RSRP, START + seconds(LYN_WATCH_HISTORY_S));
  EXPECT_EQ(later[0]->last, -96);
  EXPECT_FALSE(later[1].has_value());
  put(int64_t{-80}, START + seconds(LYN_WATCH_HISTORY_S));
  const auto turned = lyn_watch_model_history(&model, RSRP, START + seconds(LYN_WATCH_HISTORY_S));
  EXPECT_EQ(turned.back()->least, -80);
  EXPECT_EQ(turned.back()->most, -80);
}

TEST_F(lyn_watch_model, history_of_the_clocks_first_seconds_has_none_before_it) {
  const lyn_watch_time_t early{seconds(5)};
  put(int64_t{-95}, early);
  const auto history = lyn_watch_model_history(&model, RSRP, early);
  EXPECT_TRUE(history.back().has_value());
  EXPECT_EQ(std::ranges::count_if(history, [](const auto &bucket) { return bucket.has_value(); }), 1);
}

TEST_F(lyn_watch_model, what_is_not_measured_leaves_no_history) {
  put({});
  EXPECT_FALSE(lyn_watch_model_history(&model, RSRP, START).back().has_value());
  const lyn_watch_key_t pci = lyn_watch_key(LYN_WATCH_LTE, "pci");
  lyn_watch_model_put(&model, pci, int64_t{5}, OX_LYN_SUCCESS, START);
  EXPECT_FALSE(lyn_watch_model_history(&model, pci, START).back().has_value());
}

/* Rates */

TEST_F(lyn_watch_model, rates_follow_from_two_readings_of_a_profile) {
  EXPECT_EQ(rate_after(1000, START), std::nullopt);
  EXPECT_EQ(rate_after(3000, START + milliseconds(500)), 4000);
  EXPECT_EQ(rate_after(3000, START + seconds(1)), 0);
}

TEST_F(lyn_watch_model, a_counter_that_was_set_back_has_no_rate) {
  rate_after(1000, START);
  EXPECT_EQ(rate_after(10, START + seconds(1)), std::nullopt);
  EXPECT_EQ(rate_after(20, START + seconds(1)), std::nullopt) << "no time between";
}

TEST_F(lyn_watch_model, a_family_that_was_not_counted_before_has_no_rate_yet) {
  lyn_watch_profile_t other = {.index = 1, .apn = "internet", .traffic = {}};
  other.traffic[1] = traffic(500, START);
  lyn_watch_model_put_profiles(&model, {other});
  EXPECT_EQ(rate_after(1000, START + seconds(1)), std::nullopt);
  EXPECT_EQ(rate_after(3000, START + seconds(2)), 2000);
}

TEST_F(lyn_watch_model, another_profile_has_no_rate_yet) {
  rate_after(1000, START);
  EXPECT_EQ(rate_after(2000, START + seconds(1), 2), std::nullopt);
}

/* Requests */

TEST_F(lyn_watch_model, requests_are_counted_by_name_and_status_and_duration) {
  lyn_watch_model_count_request(&model, "lte_rsrp", OX_LYN_SUCCESS, milliseconds(1), START);
  lyn_watch_model_count_request(&model, "lte_rsrp", OX_LYN_SUCCESS, milliseconds(2), START + seconds(1));
  lyn_watch_model_count_request(&model, "lte_rsrp", OX_LYN_ERR_BUSY, seconds(51), START + seconds(2));
  const lyn_watch_picture_t counted = picture();
  EXPECT_THAT(counted.requests,
              ElementsAre(Pair(Pair("lte_rsrp", OX_LYN_ERR_BUSY), 1), Pair(Pair("lte_rsrp", OX_LYN_SUCCESS), 2)));
  EXPECT_THAT(counted.durations.counts, ElementsAre(1, 1, 0, 0, 0, 0, 0, 0, 0, 1));
  EXPECT_DOUBLE_EQ(counted.durations.sum, 51.003);
}

TEST_F(lyn_watch_model, a_refusal_is_an_answer_a_failure_is_none) {
  lyn_watch_model_count_request(&model, "x", OX_LYN_ERR_INFO_UNAVAILABLE, milliseconds(1), START + seconds(1));
  lyn_watch_model_count_request(&model, "x", OX_LYN_ERR_FAILURE, milliseconds(1), START + seconds(2));
  EXPECT_EQ(picture().answered, START + seconds(1));
}

/* Events */

TEST_F(lyn_watch_model, events_are_numbered_and_counted_by_kind) {
  EXPECT_EQ(event("lte_rsrp", int64_t{-95}), 1U);
  EXPECT_EQ(event("modem_status", std::string("up")), 2U);
  EXPECT_EQ(picture().last_event, 2U);
  EXPECT_THAT(picture().event_counts, ElementsAre(1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST_F(lyn_watch_model, an_event_that_measures_is_a_measurement) {
  event("lte_rsrp", int64_t{-101}, START + seconds(1));
  EXPECT_EQ(reading(picture()).value, lyn_watch_value_t(int64_t{-101}));
  EXPECT_EQ(lyn_watch_model_history(&model, RSRP, START + seconds(1)).back()->last, -101);
}

TEST_F(lyn_watch_model, events_behind_an_id_come_in_order_and_no_more_than_wanted) {
  for (int64_t i = 1; i <= 5; ++i) {
    event("lte_rsrp", i);
  }
  const auto ids = [&](uint64_t after, size_t most) {
    std::vector<uint64_t> found;
    for (const lyn_watch_event_t &each : lyn_watch_model_events(&model, after, most).events) {
      found.push_back(each.id);
    }
    return found;
  };
  EXPECT_THAT(ids(0, 2), ElementsAre(1, 2));
  EXPECT_THAT(ids(3, 99), ElementsAre(4, 5));
  EXPECT_THAT(ids(5, 99), ElementsAre());
  EXPECT_THAT(ids(UINT64_MAX, 99), ElementsAre());
}

TEST_F(lyn_watch_model, who_is_late_is_told_how_many_are_gone) {
  for (int64_t i = 0; i < LYN_WATCH_EVENTS_KEPT + 3; ++i) {
    event("lte_rsrp", i);
  }
  const lyn_watch_events_t late = lyn_watch_model_events(&model, 1, 1);
  EXPECT_EQ(late.missed, 2U);
  EXPECT_EQ(late.events.front().id, 4U);
  EXPECT_EQ(lyn_watch_model_events(&model, 3, 1).missed, 0U);
  EXPECT_EQ(lyn_watch_model_events(&model, 0, SIZE_MAX).events.size(), size_t{LYN_WATCH_EVENTS_KEPT});
}

TEST_F(lyn_watch_model, the_recent_ones_are_a_hundred) {
  EXPECT_EQ(lyn_watch_model_recent(&model), 0U);
  for (int64_t i = 0; i < LYN_WATCH_EVENTS + 7; ++i) {
    event("lte_rsrp", i);
  }
  EXPECT_EQ(lyn_watch_model_recent(&model), 7U);
}

/* Changes of the serving cell */

TEST_F(lyn_watch_model, another_cgi_is_a_change_of_the_cell_and_the_first_is_none) {
  EXPECT_EQ(changes_at(int64_t{1}, int64_t{7}), 0U);
  EXPECT_EQ(changes_at(int64_t{1}, int64_t{7}), 0U);
  EXPECT_EQ(changes_at(int64_t{2}, int64_t{8}), 1U);
  EXPECT_EQ(changes_at(int64_t{3}, int64_t{8}), 2U);
  EXPECT_EQ(changes_at(int64_t{3}, int64_t{9}), 2U);
  EXPECT_EQ(picture().cell_changes[LYN_WATCH_NR5G], 0U);
}

TEST_F(lyn_watch_model, where_no_cgi_is_measured_another_pci_is_a_change_of_the_cell) {
  EXPECT_EQ(changes_at({}, int64_t{7}), 0U);
  EXPECT_EQ(changes_at({}, int64_t{8}), 1U);
  EXPECT_EQ(changes_at(int64_t{1}, int64_t{8}), 1U);
  EXPECT_EQ(changes_at({}, int64_t{8}), 1U);
  EXPECT_EQ(changes_at({}, int64_t{9}), 2U);
  EXPECT_EQ(changes_at(int64_t{2}, int64_t{9}), 2U);
  EXPECT_EQ(changes_at(int64_t{3}, {}), 3U);
  EXPECT_EQ(changes_at({}, int64_t{9}), 3U);
}

TEST_F(lyn_watch_model, the_same_cell_after_a_gap_is_no_change_and_another_is) {
  changes_at(int64_t{1}, int64_t{7});
  EXPECT_EQ(changes_at({}, {}), 0U);
  EXPECT_EQ(changes_at(int64_t{1}, int64_t{7}), 0U);
  lyn_watch_model_set_state(&model, LYN_WATCH_UP);
  lyn_watch_model_set_state(&model, LYN_WATCH_DOWN);
  lyn_watch_model_end_reading(&model, true);
  EXPECT_EQ(changes_at(int64_t{1}, int64_t{7}), 0U);
  lyn_watch_model_set_state(&model, LYN_WATCH_UP);
  lyn_watch_model_set_state(&model, LYN_WATCH_DOWN);
  EXPECT_EQ(picture().cell_changes[LYN_WATCH_LTE], 0U);
  EXPECT_EQ(changes_at(int64_t{2}, int64_t{8}), 1U);
}

/* Waiting */

TEST_F(lyn_watch_model, waiting_ends_with_an_event_a_reading_or_the_time) {
  const auto soon = [] { return std::chrono::steady_clock::now() + milliseconds(5); };
  const auto never = std::chrono::steady_clock::now() + std::chrono::hours(1);
  EXPECT_TRUE(lyn_watch_model_wait(&model, 0, 0, soon()));
  event("lte_rsrp", int64_t{1});
  EXPECT_TRUE(lyn_watch_model_wait(&model, 0, 0, never));
  EXPECT_TRUE(lyn_watch_model_wait(&model, 1, 0, soon()));
  lyn_watch_model_end_reading(&model, false);
  EXPECT_EQ(picture().readings, 0U);
  lyn_watch_model_end_reading(&model, true);
  EXPECT_TRUE(lyn_watch_model_wait(&model, 1, 0, never));
  EXPECT_EQ(picture().readings, 1U);
}

TEST_F(lyn_watch_model, the_end_wakes_everybody) {
  std::thread waiter([&] {
    EXPECT_FALSE(lyn_watch_model_wait(&model, 0, 0, std::chrono::steady_clock::now() + std::chrono::hours(1)));
  });
  lyn_watch_model_end(&model);
  waiter.join();
}

TEST_F(lyn_watch_model, every_change_counts) {
  const uint64_t before = lyn_watch_model_changes(&model);
  lyn_watch_model_set_state(&model, LYN_WATCH_UP);
  lyn_watch_model_set_state(&model, LYN_WATCH_UP);
  lyn_watch_model_set_scanning(&model, true);
  lyn_watch_model_set_locating(&model, true);
  event("lte_rsrp", int64_t{1});
  lyn_watch_model_end_reading(&model, false);
  EXPECT_EQ(lyn_watch_model_changes(&model), before + 5);
  EXPECT_TRUE(picture().scanning && picture().locating);
}

TEST_F(lyn_watch_model, what_came_just_before_a_call_was_let_in_is_in_what_it_gives) {
  before_mutex(1, [this] { put(int64_t{-95}); });
  EXPECT_TRUE(lyn_watch_model_history(&model, RSRP, START).back());
  before_mutex(1, [this] { lyn_watch_model_set_scanning(&model, true); });
  EXPECT_TRUE(picture().scanning);
  before_mutex(1, [this] { EXPECT_TRUE(picture().scanning) << "who waits has changed nothing yet"; });
  lyn_watch_model_set_scanning(&model, false);
  EXPECT_FALSE(picture().scanning);
  before_mutex(1, [this] { EXPECT_FALSE(lyn_watch_model_ended(&model)) << "who waits has ended nothing yet"; });
  lyn_watch_model_end(&model);
  EXPECT_TRUE(lyn_watch_model_ended(&model));
}

// Of use under the thread sanitizer: one thread makes nothing but this call, so that nothing else orders the two.
TEST_F(lyn_watch_model, any_call_may_be_made_beside_any_other) {
  const std::function<void()> calls[] = {
      [this] { lyn_watch_model_plan(&model, seconds(1), START); },
      [this] { lyn_watch_model_set_state(&model, LYN_WATCH_UP); },
      [this] { lyn_watch_model_set_state(&model, LYN_WATCH_DOWN); },
      [this] {
        for (const lyn_watch_key_t &key : lyn_watch_keys()) {
          lyn_watch_model_put(&model, key, int64_t{1}, OX_LYN_SUCCESS, START);
        }
      },
      [this] { lyn_watch_model_count_request(&model, "get", OX_LYN_SUCCESS, milliseconds(1), START); },
      [this] { lyn_watch_model_put_neighbours(&model, LYN_WATCH_LTE, {.cells = {}, .at = START}); },
      [this] {
        lyn_watch_model_put_profiles(&model, {{.index = 1, .apn = "internet", .traffic = {traffic(1, START), {}}}});
      },
      [this] { lyn_watch_model_put_location(&model, {}, START); },
      [this] { event("lte_rsrp", int64_t{1}); },
      [this] { lyn_watch_model_set_scanning(&model, true); },
      [this] { lyn_watch_model_set_locating(&model, true); },
      [this] { lyn_watch_model_end_reading(&model, true); },
      [this] { (void)picture(); },
      [this] { (void)lyn_watch_model_history(&model, RSRP, START); },
      [this] { (void)lyn_watch_model_events(&model, 0, 10); },
      [this] { (void)lyn_watch_model_recent(&model); },
      [this] { (void)lyn_watch_model_changes(&model); },
      [this] { (void)lyn_watch_model_wait(&model, 0, 0, START); },
      [this] { (void)lyn_watch_model_wait_change(&model, 0, START); },
      [this] { (void)lyn_watch_model_ended(&model); },
      [this] { lyn_watch_model_end(&model); },
  };
  for (const std::function<void()> &call : calls) {
    std::atomic<bool> begun{false};
    std::atomic<bool> done{false};
    std::thread beside([&] {
      while (!done.load(std::memory_order_relaxed)) {  // orders nothing, so that races show
        call();
        begun.store(true, std::memory_order_relaxed);
      }
    });
    while (!begun.load(std::memory_order_relaxed)) {
    }
    for (int i = 0; i < 3; i++) {
      for (const std::function<void()> &other : calls) {
        other();
      }
    }
    done = true;
    beside.join();
  }
  EXPECT_TRUE(lyn_watch_model_ended(&model));
}

}  // namespace
