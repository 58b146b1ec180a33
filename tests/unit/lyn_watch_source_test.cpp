/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the picture's source makes of the module: answers without their block, events of every kind, and what is never
 * answered. The module is the test's, and so is the clock, which can be put forward.
 *
 * The program is linked with --wrap for the module's operations, the clock and the locking of mutexes
 * (tests/CMakeLists.txt). The source is one per process: all tests share it.
 */
#include "lyn_watch_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

#include "before_mutex.h"
#include "clock_forward.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::Pair;

/** The module: what it answers, and whom it calls back. */
struct {
  std::mutex mutex;
  ox_lyn_user_cb_fn callback = nullptr;
  std::function<int32_t(ox_lyn_dm_info_t *)> get;
  int32_t list_status = OX_LYN_ERR_FAILURE;
  int32_t set_status = OX_LYN_ERR_FAILURE;
  int stops = 0;
  std::map<uint32_t, int64_t> thresholds;
  std::atomic<int> lists{0};
  std::atomic<int> deinits{0};
} fake;

int32_t get_registration(ox_lyn_dm_info_t *record, uint32_t status = OX_LYN_REG_LTE_NR5G_E) {
  if (record->metric != OX_LYN_GET_REG_STATUS_E) {
    return OX_LYN_ERR_FAILURE;
  }
  record->value.u32 = status;
  return OX_LYN_SUCCESS;
}

}  // namespace

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL and offers the original as __real_SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
int32_t __wrap_ox_lyn_init(ox_lyn_hndl_t *hndl, uint32_t, ox_lyn_user_cb_fn callback) {
  const std::lock_guard lock(fake.mutex);
  *hndl = 7;
  fake.callback = callback;
  return OX_LYN_SUCCESS;
}
int32_t __wrap_ox_lyn_deinit(ox_lyn_hndl_t) {
  fake.deinits++;
  return OX_LYN_SUCCESS;
}
int32_t __wrap_ox_lyn_get_info(ox_lyn_hndl_t, ox_lyn_dm_info_t *record) {
  const std::lock_guard lock(fake.mutex);
  return fake.get(record);
}
int32_t __wrap_ox_lyn_get_info_list(ox_lyn_hndl_t, ox_lyn_dm_info_t *, uint32_t) {
  const std::lock_guard lock(fake.mutex);
  fake.lists++;
  return fake.list_status;
}
int32_t __wrap_ox_lyn_set_ind_info(ox_lyn_hndl_t, ox_lyn_dm_ind_info_t *record) {
  const std::lock_guard lock(fake.mutex);
  fake.thresholds[record->indication] = record->threshold;
  return OX_LYN_SUCCESS;
}
int32_t __wrap_ox_lyn_set_info(ox_lyn_hndl_t, ox_lyn_dm_ctrl_info_t *control) {
  const std::lock_guard lock(fake.mutex);
  fake.stops += control->control == OX_LYN_SET_LOC_SINGLE_SHOT_STOP_E;
  return fake.set_status;
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

lyn_watch_model_t *const model = new lyn_watch_model_t;

lyn_watch_picture_t picture() {
  return lyn_watch_model_picture(model, std::chrono::steady_clock::now());
}

void wait_for(const std::function<bool()> &come) {
  for (int ms = 0; ms < 60000 && !come(); ms++) {
    std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_TRUE(come());
}

/** An event, whose block is copied. */
template <typename Block>
void deliver(uint32_t type, uint32_t id, const Block *block, int64_t value = 0) {
  auto *event = static_cast<ox_lyn_dm_info_t *>(calloc(1, sizeof(ox_lyn_dm_info_t)));
  event->record_type = type;
  event->metric = id;
  event->value.i64 = value;
  if (block != nullptr) {
    event->value.ptr = malloc(sizeof(Block));
    memcpy(event->value.ptr, block, sizeof(Block));
  }
  fake.callback(7, event, 0);
}

void indicate(uint32_t id, int64_t value) {
  deliver<int>(OX_LYN_RECORD_IND_E, id, nullptr, value);
}

class lyn_watch_source : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    fake.get = [](ox_lyn_dm_info_t *record) { return get_registration(record); };
    lyn_watch_model_init(model, "board");
    ASSERT_TRUE(
        lyn_watch_source_start(model, {.every = std::chrono::hours(1), .scan = {}, .locate = std::chrono::hours(1)}));
    wait_for([] { return picture().read; });
  }
  static void TearDownTestSuite() {
    EXPECT_TRUE(lyn_watch_source_stop(seconds(60)));
    EXPECT_EQ(fake.deinits, 1);
  }

  void answer(std::function<int32_t(ox_lyn_dm_info_t *)> get) {
    const std::lock_guard lock(fake.mutex);
    fake.get = std::move(get);
  }
  static void let_lists_come_to(int32_t status) {
    const std::lock_guard lock(fake.mutex);
    fake.list_status = status;
  }
  static void let_controls_come_to(int32_t status) {
    const std::lock_guard lock(fake.mutex);
    fake.set_status = status;
  }
  static int stops() {
    const std::lock_guard lock(fake.mutex);
    return fake.stops;
  }
  /** Have all items read once more. */
  static void read_again() {
    const uint64_t before = lyn_watch_model_changes(model);
    indicate(OX_LYN_IND_REG_STATUS_E, OX_LYN_REG_LTE_NR5G_E);
    static std::atomic<int> readings{0};
    readings = 0;
    {
      const std::lock_guard lock(fake.mutex);
      fake.get = [get = fake.get](ox_lyn_dm_info_t *record) {
        readings += record->metric == OX_LYN_GET_WWAN_PROFILE_INDEX_E;
        return get(record);
      };
    }
    wait_for([before] { return readings > 0 && lyn_watch_model_changes(model) > before; });
    wait_for([] { return picture().read; });
  }

  static const lyn_watch_reading_t &reading(const lyn_watch_picture_t &from, lyn_watch_key_t key) {
    return from.items[key.item][key.radio];
  }
};

TEST_F(lyn_watch_source, all_that_can_be_is_subscribed_in_steps_of_one_decibel) {
  const std::lock_guard lock(fake.mutex);
  EXPECT_THAT(fake.thresholds, ElementsAre(Pair(OX_LYN_IND_MODEM_STATUS_E, 0), Pair(OX_LYN_IND_REG_STATUS_E, 0),
                                           Pair(OX_LYN_IND_LTE_RSRP_E, 1), Pair(OX_LYN_IND_NR5G_RSRP_E, 1),
                                           Pair(OX_LYN_IND_LTE_RSRQ_E, 1), Pair(OX_LYN_IND_NR5G_RSRQ_E, 1),
                                           Pair(OX_LYN_IND_LTE_SINR_E, 10), Pair(OX_LYN_IND_NR5G_SINR_E, 10)));
}

/* Events */

TEST_F(lyn_watch_source, neighbours_have_what_is_valid_of_them_and_the_strongest_its_measurements) {
  ox_lyn_lte_nbr_info_t lte = {};
  for (uint8_t i = 0; i < 2; i++) {
    lte.cells[i].present = 1;
    lte.cells[i].earfcn = 1300U + i;
    lte.cells[i].pci = 300;
  }
  lte.cells[1].cgi_valid = lte.cells[1].plmn_valid = 1;
  lte.cells[1].cgi = 12;
  lte.cells[1].plmn_count = 1;
  lte.cells[1].plmn[0] = {.mcc = 272, .mnc = 1, .includes_pcs_digit = 0};
  lte.serving = {};
  lte.serving.valid = lte.serving.rsrp_valid = 1;
  lte.serving.earfcn = 1301;
  lte.serving.pci = 300;
  lte.serving.rsrp = -101;
  deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LTE_NBR_INFO_E, &lte);
  auto cells = picture().neighbours[LYN_WATCH_LTE].cells;
  ASSERT_EQ(cells.size(), 2U);
  EXPECT_TRUE(cells[0].cgis.empty() && cells[0].plmns.empty() && !cells[0].rsrp);
  EXPECT_THAT(cells[1].cgis, ElementsAre(12));
  EXPECT_THAT(cells[1].plmns, ElementsAre("272-01"));
  EXPECT_EQ(cells[1].rsrp, -101);
  EXPECT_FALSE(cells[1].rsrq);

  lte.serving.rsrp_valid = 0;
  lte.serving.rsrq_valid = 1;
  lte.serving.rsrq = -9;
  for (const auto &[earfcn, pci] : {std::pair{1301U, 301}, std::pair{77U, 300}}) {
    lte.serving.earfcn = earfcn;
    lte.serving.pci = static_cast<uint16_t>(pci);
    deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LTE_NBR_INFO_E, &lte);
    cells = picture().neighbours[LYN_WATCH_LTE].cells;
    ASSERT_EQ(cells.size(), 3U) << "told apart from the list, it comes first";
    EXPECT_EQ(cells[0].channel, static_cast<int64_t>(earfcn));
    EXPECT_EQ(cells[0].rsrq, -9);
  }
  lte.serving.rsrq_valid = 0;
  deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LTE_NBR_INFO_E, &lte);
  EXPECT_EQ(picture().neighbours[LYN_WATCH_LTE].cells.size(), 2U);
  lte.serving.valid = 0;
  for (ox_lyn_lte_nbr_t &cell : lte.cells) {
    cell.present = 1;
  }
  deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LTE_NBR_INFO_E, &lte);
  EXPECT_EQ(picture().neighbours[LYN_WATCH_LTE].cells.size(), std::size(lte.cells));

  ox_lyn_nr5g_nbr_info_t nr5g = {};
  nr5g.cells[0].present = nr5g.cells[1].present = 1;
  nr5g.cells[1].rsrp_valid = nr5g.cells[1].cgi_valid = nr5g.cells[1].plmn_valid = 1;
  nr5g.cells[1].rsrp = -120;
  nr5g.cells[1].cgi_count = 2;
  nr5g.cells[1].cgi[1] = 68719476736U;
  nr5g.cells[1].plmn_count = 1;
  nr5g.cells[1].plmn[0] = {.mcc = 272, .mnc = 1, .includes_pcs_digit = 0};
  deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_NR5G_NBR_INFO_E, &nr5g);
  cells = picture().neighbours[LYN_WATCH_NR5G].cells;
  ASSERT_EQ(cells.size(), 2U);
  EXPECT_TRUE(cells[0].cgis.empty() && cells[0].plmns.empty() && !cells[0].rsrp);
  EXPECT_EQ(cells[1].rsrp, -120);
  EXPECT_THAT(cells[1].cgis, ElementsAre(0, 68719476736));
  EXPECT_THAT(cells[1].plmns, ElementsAre("272-01"));
}

TEST_F(lyn_watch_source, events_without_their_block_are_told_and_measure_nothing) {
  ox_lyn_lte_nbr_info_t lte = {};
  lte.cells[0].present = 1;
  deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LTE_NBR_INFO_E, &lte);
  EXPECT_EQ(picture().neighbours[LYN_WATCH_LTE].cells.size(), 1U);
  const uint64_t before = picture().last_event;
  for (const uint32_t id : {OX_LYN_ASYNC_LTE_NBR_INFO_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, OX_LYN_ASYNC_LOC_BATCH_E}) {
    deliver<int>(OX_LYN_RECORD_ASYNC_E, id, nullptr);
  }
  EXPECT_EQ(picture().last_event, before + 3);
  EXPECT_TRUE(picture().neighbours[LYN_WATCH_LTE].cells.empty());
}

TEST_F(lyn_watch_source, locations_that_are_none_are_left_out) {
  ox_lyn_loc_single_shot_t shot = {};
  shot.location.flags = OX_LYN_LOC_FLAG_LAT_LONG_E;
  shot.location.latitude = 1;
  shot.location.longitude = 2;
  deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, &shot);
  ASSERT_TRUE(picture().location);
  EXPECT_EQ(picture().location->location.longitude, 2);
  shot.location.longitude = NAN;
  deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, &shot);
  shot.location.longitude = 3;
  shot.location.latitude = INFINITY;
  deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, &shot);
  shot.location.latitude = 3;
  shot.location.flags = 0;
  deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, &shot);
  EXPECT_EQ(picture().location->location.longitude, 2);
}

TEST_F(lyn_watch_source, a_batch_is_told_and_freed_and_an_unknown_event_is_freed) {
  const uint64_t before = picture().last_event;
  ox_lyn_loc_batch_t batch = {};
  batch.status = OX_LYN_LOC_BATCH_LOCATIONS_E;
  batch.count = 1;
  batch.locations = static_cast<ox_lyn_location_t *>(calloc(1, sizeof(ox_lyn_location_t)));
  deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_BATCH_E, &batch);
  EXPECT_EQ(picture().last_event, before + 1);
  deliver<int>(OX_LYN_RECORD_ASYNC_E, 99, nullptr);
  EXPECT_EQ(picture().last_event, before + 1);
}

/* Readings */

TEST_F(lyn_watch_source, a_success_without_its_block_is_no_measurement) {
  answer([](ox_lyn_dm_info_t *record) {
    get_registration(record);
    return OX_LYN_SUCCESS;
  });
  read_again();
  const lyn_watch_reading_t cqi = reading(picture(), lyn_watch_key(LYN_WATCH_LTE, "dl_modulation"));
  EXPECT_EQ(cqi.status, OX_LYN_ERR_NO_MEMORY);
  EXPECT_TRUE(picture().profiles.empty());
}

TEST_F(lyn_watch_source, a_lone_profile_is_told_by_its_index_only_and_no_index_is_no_profile) {
  static std::atomic<uint32_t> index;
  for (const uint32_t lone : {0U, 3U}) {
    index = lone;
    answer([](ox_lyn_dm_info_t *record) {
      if (record->metric == OX_LYN_GET_WWAN_PROFILE_INDEX_E) {
        auto *list = static_cast<ox_lyn_wwan_profile_list_t *>(calloc(1, sizeof(ox_lyn_wwan_profile_list_t)));
        list->profiles[0].profile_index = static_cast<uint8_t>(index);
        record->value.ptr = list;
        return static_cast<int32_t>(OX_LYN_SUCCESS);
      }
      if (record->metric == OX_LYN_GET_IPV4_STATS_E) {
        record->value.ptr = nullptr;
        return static_cast<int32_t>(OX_LYN_SUCCESS);
      }
      return get_registration(record);
    });
    read_again();
    const auto profiles = picture().profiles;
    ASSERT_EQ(profiles.size(), lone == 0 ? 0U : 1U);
    if (lone != 0) {
      EXPECT_EQ(profiles[0].index, lone);
      EXPECT_FALSE(profiles[0].traffic[0]);
    }
  }
}

TEST_F(lyn_watch_source, a_modem_that_goes_while_it_answers_is_down) {
  static std::atomic<int> left;
  left = 1;
  answer([](ox_lyn_dm_info_t *record) {
    if (record->metric == OX_LYN_GET_REG_STATUS_E && left-- > 0) {
      std::thread([] { indicate(OX_LYN_IND_MODEM_STATUS_E, OX_LYN_MODEM_DOWN_E); }).join();
    }
    return get_registration(record);
  });
  const uint64_t before = picture().event_counts[0];
  indicate(OX_LYN_IND_REG_STATUS_E, OX_LYN_REG_LTE_E);
  wait_for([] { return left < 0; });
  wait_for([] { return picture().state == LYN_WATCH_UP; });
  EXPECT_GE(picture().event_counts[0], before);
}

/* What is never answered */

TEST_F(lyn_watch_source, a_scan_that_is_never_answered_is_given_up) {
  answer([](ox_lyn_dm_info_t *record) { return get_registration(record); });
  let_lists_come_to(OX_LYN_SUCCESS);
  lyn_watch_source_scan();
  wait_for([] { return picture().scanning; });
  // One that is asked for behind a scan that was just given up begins another, which is given up in its turn.
  for (int i = 0; i < 600 && picture().scanning; i++) {
    put_clock_forward(seconds(51));
    lyn_watch_source_scan();
    std::this_thread::sleep_for(milliseconds(100));
  }
  EXPECT_FALSE(picture().scanning);
  let_lists_come_to(OX_LYN_ERR_FAILURE);
}

TEST_F(lyn_watch_source, a_shot_that_is_never_answered_is_stopped_until_the_stop_is_answered_or_refused) {
  answer([](ox_lyn_dm_info_t *record) {
    return record->metric == OX_LYN_GET_LOC_SINGLE_SHOT_E ? static_cast<int32_t>(OX_LYN_SUCCESS)
                                                          : get_registration(record);
  });
  let_controls_come_to(OX_LYN_SUCCESS);
  put_clock_forward(std::chrono::hours(1));
  lyn_watch_source_scan();
  wait_for([] { return picture().locating; });
  const int before = stops();
  put_clock_forward(seconds(36));
  lyn_watch_source_scan();
  wait_for([before] { return stops() == before + 1; });
  EXPECT_TRUE(picture().locating) << "the answer to the stop is to come";
  const ox_lyn_loc_single_shot_t shot = {};
  deliver(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, &shot);
  EXPECT_FALSE(picture().locating);
  put_clock_forward(seconds(36));
  // What is due besides is done behind a scan, and the next one comes behind that.
  for (int i = 0; i < 2; i++) {
    const int lists = fake.lists;
    lyn_watch_source_scan();
    wait_for([lists] { return fake.lists > lists; });
  }
  put_clock_forward(std::chrono::hours(1));
  lyn_watch_source_scan();
  wait_for([] { return picture().locating; });
  EXPECT_EQ(stops(), before + 1) << "what was answered is not stopped";
  let_controls_come_to(OX_LYN_ERR_FAILURE);
  put_clock_forward(seconds(36));
  lyn_watch_source_scan();
  wait_for([] { return !picture().locating; });
  EXPECT_EQ(stops(), before + 2);
}

/** Ahead of the first mutex behind the call the request is counted, ahead of the second one its answer is taken. */
TEST_F(lyn_watch_source, a_modem_that_goes_behind_an_answer_leaves_nothing_measured) {
  const lyn_watch_key_t rsrp = lyn_watch_key(LYN_WATCH_LTE, "rsrp");
  for (const int mutexes : {1, 2}) {
    std::atomic<bool> gone{false};
    std::atomic<bool> looked{false};
    answer([=, &gone, &looked](ox_lyn_dm_info_t *record) {
      if (record->metric == OX_LYN_GET_LTE_SERV_RSRP_E && !gone) {
        record->value.i64 = -95;
        before_mutex(mutexes, [&gone] {
          indicate(OX_LYN_IND_MODEM_STATUS_E, OX_LYN_MODEM_DOWN_E);
          gone = true;
        });
        return static_cast<int32_t>(OX_LYN_SUCCESS);
      }
      if (gone && !looked.exchange(true)) {
        EXPECT_FALSE(lyn_watch_measured(reading(picture(), rsrp).value)) << mutexes;
      }
      return get_registration(record);
    });
    indicate(OX_LYN_IND_MODEM_STATUS_E, OX_LYN_MODEM_UP_E);
    put_clock_forward(seconds(1));
    lyn_watch_source_scan();
    wait_for([&looked] { return looked.load(); });
    answer([](ox_lyn_dm_info_t *record) { return get_registration(record); });
  }
}

TEST_F(lyn_watch_source, a_location_that_is_due_while_one_is_under_way_is_left_out) {
  std::atomic<int> shots{0};
  answer([&shots](ox_lyn_dm_info_t *record) {
    shots += record->metric == OX_LYN_GET_LOC_SINGLE_SHOT_E;
    return record->metric == OX_LYN_GET_LOC_SINGLE_SHOT_E ? static_cast<int32_t>(OX_LYN_SUCCESS)
                                                          : get_registration(record);
  });
  let_controls_come_to(OX_LYN_ERR_FAILURE);
  put_clock_forward(std::chrono::hours(1));
  lyn_watch_source_scan();
  wait_for([] { return picture().locating; });
  EXPECT_EQ(shots, 1);
  const int before = stops();
  put_clock_forward(std::chrono::hours(1));
  lyn_watch_source_scan();
  wait_for([before] { return stops() == before + 1; });
  EXPECT_EQ(shots, 1) << "the one that is lost is stopped first";
  put_clock_forward(std::chrono::hours(1));
  lyn_watch_source_scan();
  wait_for([&shots] { return shots == 2; });
  answer([](ox_lyn_dm_info_t *record) { return get_registration(record); });
}

}  // namespace
