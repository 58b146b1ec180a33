/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Event delivery under load: a million indications, cycles of start and stop on a busy board, a stop while events pour
 * in. Nothing is logged here, as the texts would outgrow the memory.
 *
 * Sanitizer builds take the full numbers only where LYN_LONG is set.
 */
#include <atomic>
#include <thread>

#include "allocated.h"
#include "delivered.h"
#include "lyn_event.h"
#include "nas_service_v01.h"
#include "sim_board.h"
#include "sim_message.h"

namespace {

#if ALLOCATED_SANITIZED
constexpr bool slow_build = true;
#else
constexpr bool slow_build = false;
#endif

bool full() {
  const char *wanted = getenv("LYN_LONG");
  return !slow_build || (wanted != nullptr && *wanted != '\0');
}

template <typename Done>
bool wait_until(Done done, int seconds = 300) {
  for (int i = 0; i < seconds * 1000 && !done(); i++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return done();
}

/** What the user's callback saw; of plain numbers, so that it keeps up. */
struct flood_counts {
  std::atomic<size_t> signals{0}, wrong{0}, statuses{0}, after_stop{0}, running{0};
  std::atomic<bool> stopped{false};
} counts;

std::string hex(const std::vector<uint8_t> &bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    char two[3];
    snprintf(two, sizeof two, "%02x", byte);
    text += two;
  }
  return text;
}

std::string lte_rsrp_bytes(int16_t rsrp) {
  yrp_nas_sig_info_ind_t ind = {};
  ind.lte_sig_info_valid = 1;
  ind.lte_sig_info = {rsrp, 100, -11};
  std::vector<uint8_t> bytes;
  const sim_message *message = sim_message_find(sim_lib::nas, sim_direction::indication, YRP_NAS_SIG_INFO_IND);
  EXPECT_TRUE(sim_message_encode(*message, reinterpret_cast<const uint8_t *>(&ind), bytes));
  return hex(bytes);
}

/** An entry of the timeline that sends a signal indication `times` times, a microsecond apart, from `ms` on. */
std::string raw_entry(const char *ms, int16_t rsrp, size_t times) {
  return "[[at]]\nafter = 'nas.108'\nms = " + std::string(ms) +
         "\nevery_ms = 0.001\nrepeat = " + std::to_string(times) + "\nraw = { lib = 'nas', id = 81, bytes = '" +
         lte_rsrp_bytes(rsrp) + "' }\n";
}

constexpr int64_t flood_values[] = {-90, -91, -92};

void count_signal(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  const delivered one = take_delivered(info);
  if (one.id == OX_LYN_IND_LTE_RSRP_E) {
    counts.wrong += one.value != flood_values[counts.signals++ % std::size(flood_values)];
  } else if (one.id == OX_LYN_IND_INSTALL_MODE_STATUS_E) {
    counts.statuses++;
  }
}

TEST(lyn_event_flood, a_million_signal_indications_are_delivered_where_they_changed_and_in_order) {
  const size_t each = full() ? 250000 : 25000;
  /* Every second -91 repeats the one before: three of four indications are changes. */
  ASSERT_EQ(sim_board_load("board.noise_db = 0\nsys_info = { lte = 'no_service', nr5g_pci = -1 }\n" +
                           raw_entry("100", -90, each) + raw_entry("100.00025", -91, each) +
                           raw_entry("100.0005", -91, each) + raw_entry("100.00075", -92, each)),
            "");
  ox_lyn_hndl_t hndl = 0;
  ASSERT_EQ(ox_lyn_init(&hndl, 0, count_signal), OX_LYN_SUCCESS);
  ASSERT_TRUE(wait_until([] { return sim_board_wait_idle(1000); }));
  const size_t before = allocated();
  ASSERT_EQ(subscribe(hndl, OX_LYN_IND_LTE_RSRP_E, 1), OX_LYN_SUCCESS);
  EXPECT_TRUE(wait_until([=] { return counts.signals >= 3 * each; }));
  ASSERT_TRUE(sim_board_wait_idle(60000));
  /* Behind all of them. */
  EXPECT_EQ(lyn_post_async_event(LYN_EVENT_INSTALL_STATUS, posted_copy(yrp_nas_install_status_ind_t{1, 1})), 0);
  EXPECT_TRUE(wait_until([] { return counts.statuses == 1; }));
  EXPECT_EQ(counts.signals, 3 * each);
  EXPECT_EQ(counts.wrong, 0U);
  /* The command thread frees the last event after its delivery, and the board's queue keeps its index of two octets an
     indication; the smallest block lost for each would be thirty-two. */
  const size_t limit = before + 256 * 1024 + 4 * 4 * each;
  for (int i = 0; i < 50 && allocated() > limit; i++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_LE(allocated(), limit) << "before: " << before;
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
}

/** Deliveries may come until the stop has returned, and not one after it. */
void count_life(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  counts.running++;
  if (counts.stopped) {
    counts.after_stop++;
  }
  (void)take_delivered(info);
  counts.signals++;
  if (counts.stopped) {
    counts.after_stop++;
  }
  counts.running--;
}

struct life_run {
  ox_lyn_hndl_t hndl = 0;

  void up() {
    counts.stopped = false;
    ASSERT_EQ(ox_lyn_init(&hndl, 0, count_life), OX_LYN_SUCCESS);
  }
  void down() {
    ASSERT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
    counts.stopped = true;
    EXPECT_EQ(counts.running, 0U);
  }
};

/** Noise every millisecond, and indications of all kinds. */
constexpr char busy_board[] = R"(
[board]
tick_ms = 1
noise_db = 4
[[at]]
install_status = 1
repeat = 10000000
every_ms = 0.1
[[at]]
panel = { index = 2, changed = 1, mode = 1 }
repeat = 10000000
every_ms = 0.2
[[at]]
install_measurement = [{ arfcn = 2079167, band = 261, scs = 3, rsrp = -88, snr = 12 }]
repeat = 10000000
every_ms = 0.3
[[at]]
sys_info = { lte = "limited" }
ms = 0.5
repeat = 10000000
every_ms = 1
[[at]]
sys_info = { lte = "service" }
ms = 1
repeat = 10000000
every_ms = 1
[[at]]
modem = "up"
repeat = 10000000
every_ms = 1
)";

TEST(lyn_event_flood, two_hundred_register_subscribe_deregister_cycles_on_a_busy_board) {
  ASSERT_EQ(sim_board_load(busy_board), "");
  counts.signals = 0;
  life_run run;
  for (int cycle = 0; cycle < 200; cycle++) {
    run.up();
    for (uint32_t ind = OX_LYN_IND_MODEM_STATUS_E; ind <= OX_LYN_IND_NR5G_SINR_E; ind++) {
      EXPECT_EQ(subscribe(run.hndl, ind, 1), OX_LYN_SUCCESS);
    }
    uint32_t subscribed = 0;
    EXPECT_EQ(ox_lyn_get_ind_count(run.hndl, &subscribed), OX_LYN_SUCCESS);
    EXPECT_EQ(subscribed, 8U);
    uint32_t some[] = {OX_LYN_IND_LTE_RSRP_E, OX_LYN_IND_REG_STATUS_E};
    EXPECT_EQ(ox_lyn_clear_ind_list(run.hndl, some, 2), OX_LYN_SUCCESS);
    if (cycle % 8 == 0) { /* let a few events come before the stop */
      const size_t before = counts.signals;
      EXPECT_TRUE(wait_until([=] { return counts.signals > before; }, 60));
    }
    run.down();
  }
  EXPECT_GT(counts.signals, 25U);
  EXPECT_EQ(counts.after_stop, 0U);
  ASSERT_EQ(sim_board_load("[board]\nnoise_db = 0\n"), "");
}

TEST(lyn_event_flood, a_stop_while_events_pour_in_returns_and_nothing_is_delivered_after_it) {
  ASSERT_EQ(sim_board_load("[board]\nnoise_db = 0\n"), "");
  std::atomic<bool> done{false};
  std::atomic<size_t> queued{0}, refused{0}, other{0};
  std::vector<std::thread> producers;
  for (int i = 0; i < 3; i++) {
    producers.emplace_back([&] {
      while (!done) {
        ox_lyn_loc_batch_t batch = {};
        batch.status = 1;
        batch.count = 2;
        batch.locations = static_cast<ox_lyn_location_t *>(calloc(2, sizeof(ox_lyn_location_t)));
        const int32_t statuses[] = {
            lyn_post_async_event(LYN_EVENT_LOC_BATCH, posted_copy(batch)),
            lyn_post_async_event(LYN_EVENT_QOS_FLOW, posted_copy(ox_lyn_qos_flow_t{1, 2, 3})),
            lyn_post_async_event(LYN_EVENT_INSTALL_STATUS, posted_copy(yrp_nas_install_status_ind_t{1, 2}))};
        for (const int32_t status : statuses) {
          (status == OX_LYN_SUCCESS ? queued : status == OX_LYN_ERR_FAILURE ? refused : other)++;
        }
        if (statuses[0] != OX_LYN_SUCCESS) {
          std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
      }
    });
  }
  counts.signals = 0;
  life_run run;
  for (int cycle = 0; cycle < (full() ? 100 : 30); cycle++) {
    run.up();
    const size_t before = counts.signals;
    EXPECT_TRUE(wait_until([=] { return counts.signals > before + 10; }, 60));
    run.down();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  done = true;
  for (std::thread &producer : producers) {
    producer.join();
  }
  EXPECT_EQ(counts.after_stop, 0U);
  EXPECT_GT(queued, 0U);
  EXPECT_GT(refused, 0U);
  EXPECT_EQ(other, 0U);
}

/* Callers against a flood */

/** The module as callers share it; 0 while it is down. */
std::atomic<ox_lyn_hndl_t> shared_hndl{0};

/** Whether a caller may meet this status while others bring the module up and down. */
bool is_stated(int32_t status) {
  return status == OX_LYN_SUCCESS || status == OX_LYN_ERR_INVALID_PARAM || status == OX_LYN_ERR_NOT_INITIALIZED;
}

/** Every operation but init and deinit, in turn. */
void call_everything(const std::atomic<bool> &done, std::atomic<size_t> *calls) {
  while (!done) {
    const ox_lyn_hndl_t hndl = shared_hndl;
    ox_lyn_dm_info_t info = {};
    info.record_type = OX_LYN_RECORD_GET_E;
    info.metric = OX_LYN_GET_REG_STATUS_E;
    ox_lyn_dm_info_t list[2] = {info, info};
    ox_lyn_dm_ctrl_info_t control = {};
    control.control = OX_LYN_SET_NR5G_DEPRIORITIZE_E;
    uint32_t count = 0, indications[16] = {}, one = OX_LYN_IND_REG_STATUS_E;
    const int32_t statuses[] = {
        ox_lyn_get_info(hndl, &info),        ox_lyn_get_info_list(hndl, list, 2),
        ox_lyn_set_info(hndl, &control),     subscribe(hndl, OX_LYN_IND_REG_STATUS_E, 0),
        ox_lyn_get_ind_count(hndl, &count),  ox_lyn_get_ind_list(hndl, indications, std::size(indications)),
        ox_lyn_clear_ind_list(hndl, &one, 1)};
    for (const int32_t status : statuses) {
      EXPECT_TRUE(is_stated(status)) << status;
    }
    *calls += std::size(statuses);
  }
}

/** Four callers of every operation, for as long as it lives. */
struct four_callers {
  std::atomic<bool> done{false};
  std::atomic<size_t> calls{0};
  std::vector<std::thread> threads;

  four_callers() {
    for (int i = 0; i < 4; i++) {
      threads.emplace_back([this] { call_everything(done, &calls); });
    }
  }
  ~four_callers() {
    done = true;
    for (std::thread &thread : threads) {
      thread.join();
    }
    EXPECT_GT(calls, 0U);
  }
  four_callers(const four_callers &) = delete;
  four_callers &operator=(const four_callers &) = delete;
};

TEST(lyn_event_flood, a_hundred_thousand_events_and_four_callers_of_every_operation_keep_nobody_waiting) {
  constexpr size_t events = 100000;
  ASSERT_EQ(sim_board_load("[board]\nnoise_db = 0\n"), "");
  counts.signals = 0;
  life_run run;
  run.up();
  shared_hndl = run.hndl;
  {
    const four_callers callers;
    for (size_t i = 0; i < events; i++) {
      ASSERT_EQ(lyn_post_async_event(LYN_EVENT_INSTALL_STATUS, posted_copy(yrp_nas_install_status_ind_t{1, 2})), 0);
    }
    EXPECT_TRUE(wait_until([] { return counts.signals >= events; }));
  }
  shared_hndl = 0;
  run.down();
  EXPECT_GE(counts.signals, events);
}

TEST(lyn_event_flood, a_thousand_register_deregister_cycles_under_a_flood_and_four_callers_never_hang) {
  ASSERT_EQ(sim_board_load("[board]\nnoise_db = 0\n"), "");
  counts.after_stop = 0;
  std::atomic<bool> done{false};
  std::thread producer([&done] {
    while (!done) {
      if (lyn_post_async_event(LYN_EVENT_QOS_FLOW, posted_copy(ox_lyn_qos_flow_t{1, 2, 3})) != OX_LYN_SUCCESS) {
        std::this_thread::yield();
      }
    }
  });
  {
    const four_callers callers;
    life_run run;
    for (int cycle = 0; cycle < 1000; cycle++) {
      run.up();
      shared_hndl = run.hndl;
      run.down();
    }
  }
  done = true;
  producer.join();
  EXPECT_EQ(counts.after_stop, 0U);
}

}  // namespace
