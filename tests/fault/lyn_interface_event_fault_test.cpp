/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Event delivery and posting without memory: whichever allocation fails, that delivery alone is missing, nothing is
 * lost or freed twice, and the module's books are kept all the same.
 *
 * Events run on the test's own thread, by the function that the command thread runs, so that a fault meets nobody else.
 */
#include <errno.h>
#include <stdarg.h>

#include <atomic>

#include "alloc_fault.h"
#include "board.h"
#include "lyn_interface.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::atomic<int> logged_under_gate{0};
thread_local bool holds_gate = false;
thread_local bool gate_lock_fails = false, gate_signal_fails = false;  // of the one who posts
thread_local std::vector<bool> *up_at_gate = nullptr;                  // whether the module was up, at each lock

}  // namespace

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL and offers the original as __real_SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
void __real_msg_sprintf(const diag_msg_record_t *record, ...);
int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);
int __real_pthread_cond_signal(pthread_cond_t *cond);

void __wrap_msg_sprintf(const diag_msg_record_t *record, ...) {
  va_list arguments;
  va_start(arguments, record);
  const char *text = va_arg(arguments, const char *);
  va_end(arguments);
  logged_under_gate += holds_gate;
  __real_msg_sprintf(record, text);
}
int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
  if (mutex == &lyn_gate.mutex && up_at_gate != nullptr) {
    up_at_gate->push_back(lyn_is_initialised());
  }
  if (gate_lock_fails && mutex == &lyn_gate.mutex) {
    return -1;
  }
  holds_gate = holds_gate || mutex == &lyn_gate.mutex;
  return __real_pthread_mutex_lock(mutex);
}
int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
  holds_gate = holds_gate && mutex != &lyn_gate.mutex;
  return __real_pthread_mutex_unlock(mutex);
}
int __wrap_pthread_cond_signal(pthread_cond_t *cond) {
  return gate_signal_fails && cond == &lyn_gate.cond ? EINVAL : __real_pthread_cond_signal(cond);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

struct lyn_interface_event_fault : board_test {
  void SetUp() override { board.start(board_no_service); }
};

/** What was delivered, without waiting. */
std::vector<delivered> taken() {
  const std::lock_guard guard(board.lock);
  return std::exchange(board.deliveries, {});
}

template <typename Block>
void *make(const Block &block) {
  return posted_copy(block);
}

void *make_batch() {
  ox_lyn_loc_batch_t batch = {};
  batch.status = 1;
  batch.count = 3;
  batch.locations = static_cast<ox_lyn_location_t *>(calloc(3, sizeof(ox_lyn_location_t)));
  return posted_copy(batch);
}

void *make_scan() {
  yrp_nas_incremental_scan_ind_t ind = {};
  ind.nr5g_nbr_info_valid = ind.lte_nbr_info_valid = 1;
  ind.nr5g_nbr_count = ind.lte_nbr_count = 1;
  return posted_copy(ind);
}

void *make_install() {
  yrp_nas_install_freq_ind_t ind = {};
  ind.freq_len = 2;
  return posted_copy(ind);
}

/** Run an event as the command thread does, and free it. `pass`: the allocation to fail. Returns whether it was met. */
bool run_failing(uint32_t msg_id, void *data, uint32_t pass, uint32_t *seen = nullptr) {
  auto *cmd = static_cast<lyn_cmd *>(calloc(1, sizeof(lyn_cmd)));
  auto *event = static_cast<yrp_async_data *>(calloc(1, sizeof(yrp_async_data)));
  *event = {.msg_id = msg_id, .msg_data = data};
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, pass);
  lyn_process_async_event(cmd, event);
  if (seen != nullptr) {
    *seen = alloc_fault_seen();
  }
  const bool met = alloc_fault_disarm();
  lyn_free_async_event(cmd, event);
  return met;
}

/** Events that become one delivery, and the allocations of that: the record and its blocks. */
const struct {
  const char *name;
  uint32_t msg_id;
  void *(*make_data)();
  uint32_t allocations;
  const char *file = "lyn_interface_event.cpp"; /* where the block of the event is made */
} kinds[] = {
    {"modem up", LYN_EVENT_MODEM_UP, [] { return make<uint8_t>(1); }, 1},
    {"modem down", LYN_EVENT_MODEM_DOWN, [] { return make<uint8_t>(1); }, 1},
    {"registration", LYN_EVENT_SYS_INFO, [] { return make<uint32_t>(5); }, 1},
    {"scan", LYN_EVENT_INCREMENTAL_SCAN, make_scan, 2, "lyn_interface_scan.cpp"},
    {"qos flow", LYN_EVENT_QOS_FLOW,
     [] {
       return make(ox_lyn_qos_flow_t{1, 2, 3});
     },
     2},
    {"throughput", LYN_EVENT_MTPE_STATUS,
     [] {
       return make(ox_lyn_mtpe_status_t{1, 0, 3, 0});
     },
     2, "lyn_interface_mtpe.cpp"},
    {"panel", LYN_EVENT_PPS,
     [] {
       return make(yrp_nas_pps_ind_t{1, 1, 1});
     },
     2},
    {"install measurement", LYN_EVENT_INSTALL_FREQ, make_install, 2},
    {"install status", LYN_EVENT_INSTALL_STATUS,
     [] {
       return make(yrp_nas_install_status_ind_t{1, 2});
     },
     1},
    {"single shot", LYN_EVENT_LOC_SINGLE_SHOT, [] { return make(ox_lyn_loc_single_shot_t{}); }, 2},
    {"batch", LYN_EVENT_LOC_BATCH, make_batch, 3},
};

TEST_F(lyn_interface_event_fault, an_event_that_lacks_any_allocation_is_not_delivered_and_nothing_is_lost) {
  EXPECT_EQ(board.subscribe(OX_LYN_IND_MODEM_STATUS_E), 0);
  EXPECT_EQ(board.subscribe(OX_LYN_IND_REG_STATUS_E), 0);
  for (const auto &kind : kinds) {
    diag_log_take();
    uint32_t seen = 0;
    EXPECT_FALSE(run_failing(kind.msg_id, kind.make_data(), 1000, &seen)) << kind.name;
    EXPECT_EQ(seen, kind.allocations) << kind.name;
    EXPECT_EQ(taken().size(), 1U) << kind.name;
    for (uint32_t pass = 0; pass < kind.allocations; pass++) {
      diag_log_take();
      EXPECT_TRUE(run_failing(kind.msg_id, kind.make_data(), pass)) << kind.name;
      EXPECT_THAT(taken(), IsEmpty()) << kind.name << ", allocation " << pass;
      EXPECT_THAT(diag_log_placed("ERROR"),
                  ElementsAre(testing::AnyOf("ERROR lyn_interface_event.cpp Memory allocation failure",
                                             "ERROR " + std::string(kind.file) + " Memory allocation failure")))
          << kind.name;
    }
  }
}

TEST_F(lyn_interface_event_fault, the_books_are_kept_where_the_delivery_fails) {
  for (uint32_t pass = 0; pass < 2; pass++) {
    lyn_state.single_shot_ongoing = 1;
    lyn_state.mtpe_ongoing = 1;
    lyn_state.lte_scan = {.request = 1, .ongoing = 1, .item = {1, 1, 1, 1, 1, 1}};
    EXPECT_TRUE(run_failing(LYN_EVENT_LOC_SINGLE_SHOT, make(ox_lyn_loc_single_shot_t{}), pass));
    EXPECT_EQ(lyn_state.single_shot_ongoing, 0);
    EXPECT_TRUE(run_failing(LYN_EVENT_MTPE_STATUS, make(ox_lyn_mtpe_status_t{1, 0, 3, 0}), pass));
    EXPECT_EQ(lyn_state.mtpe_ongoing, 0);
    EXPECT_TRUE(run_failing(LYN_EVENT_INCREMENTAL_SCAN, make_scan(), pass));
    EXPECT_EQ(lyn_state.lte_scan.request, 0);
    EXPECT_EQ(lyn_state.lte_scan.ongoing, 0);
    EXPECT_THAT(lyn_state.lte_scan.item, testing::Each(0));
    EXPECT_THAT(taken(), IsEmpty());
  }
}

TEST_F(lyn_interface_event_fault, one_signal_value_is_skipped_and_delivered_by_the_next_event) {
  board.subscribe_all();
  yrp_nas_sig_info_ind_t ind = {};
  ind.lte_sig_info_valid = ind.nr5g_sig_info_valid = ind.nr5g_rsrq_valid = 1;
  const uint32_t order[] = {3, 5, 7, 4, 6, 8};
  for (uint32_t pass = 0; pass < 6; pass++) {
    const auto value = static_cast<int16_t>(-50 - static_cast<int>(pass));
    ind.lte_sig_info = {value, value, static_cast<int8_t>(value)};
    ind.nr5g_sig_info = {value, value};
    ind.nr5g_rsrq = value;
    EXPECT_TRUE(run_failing(LYN_EVENT_SIG_INFO, make(ind), pass));
    std::vector<delivered> expected;
    for (uint32_t i = 0; i < 6; i++) {
      if (i != pass) {
        expected.push_back(number(order[i], value));
      }
    }
    EXPECT_EQ(taken(), expected);
    EXPECT_FALSE(run_failing(LYN_EVENT_SIG_INFO, make(ind), 1000));
    EXPECT_THAT(taken(), ElementsAre(number(order[pass], value)));
  }
}

/* Posting allocates the command, its data and the queue's node, in this order. */

TEST_F(lyn_interface_event_fault, posting_without_memory_says_which_and_frees_the_block) {
  const struct {
    int32_t status;
    const char *text;
  } rows[] = {{OX_LYN_ERR_NO_MEMORY, "Memory allocation failure"},
              {OX_LYN_ERR_FAILURE, "Memory allocation failure"},
              {OX_LYN_ERR_FAILURE, "Failed to insert into cmdq\\n"}};
  for (uint32_t pass = 0; pass < std::size(rows); pass++) {
    for (const auto &kind : kinds) {
      void *data = kind.make_data();
      diag_log_take();
      alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, pass);
      const int32_t status = lyn_post_async_event(kind.msg_id, data);
      EXPECT_TRUE(alloc_fault_disarm()) << kind.name;
      EXPECT_EQ(status, rows[pass].status) << kind.name;
      const auto errors = diag_log_texts("ERROR");
      EXPECT_THAT(errors, testing::Contains(rows[pass].text)) << kind.name;
    }
  }
  EXPECT_THAT(board.settled(), IsEmpty());
}

TEST_F(lyn_interface_event_fault, nothing_that_posting_says_is_logged_while_the_gate_is_held) {
  logged_under_gate = 0;
  for (uint32_t pass = 0; pass < 3; pass++) {
    void *data = make(yrp_nas_install_status_ind_t{1, 2});
    alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, pass);
    EXPECT_NE(lyn_post_async_event(LYN_EVENT_INSTALL_STATUS, data), 0);
    EXPECT_TRUE(alloc_fault_disarm());
  }
  diag_log_take();
  {
    const held_delivery held;
    for (int i = 0; i < 150; i++) {
      EXPECT_EQ(lyn_post_async_event(LYN_EVENT_QOS_FLOW, make(ox_lyn_qos_flow_t{1, 2, 3})), 0);
    }
  }
  EXPECT_EQ(diag_log_texts("HIGH").size(), 49U) << "warnings";
  EXPECT_EQ(board.settled().size(), 150U);
  EXPECT_EQ(ox_lyn_deinit(board.hndl), OX_LYN_SUCCESS);
  board.hndl = 0;
  EXPECT_NE(lyn_post_async_event(LYN_EVENT_INSTALL_STATUS, make(yrp_nas_install_status_ind_t{1, 2})), 0);
  EXPECT_EQ(logged_under_gate, 0);
}

/** Or an event that was accepted would meet a module that is not up yet, and be dropped. */
TEST_F(lyn_interface_event_fault, the_gate_opens_when_the_module_is_up) {
  EXPECT_EQ(ox_lyn_deinit(board.hndl), OX_LYN_SUCCESS);
  std::vector<bool> up;
  up_at_gate = &up;
  board.up();
  up_at_gate = nullptr;
  EXPECT_THAT(up, ElementsAre(true));
}

TEST_F(lyn_interface_event_fault, a_post_that_cannot_lock_is_refused_and_its_block_freed) {
  diag_log_take();
  gate_lock_fails = true;
  const int32_t status = lyn_post_async_event(LYN_EVENT_LOC_BATCH, make_batch());
  gate_lock_fails = false;
  EXPECT_EQ(status, OX_LYN_ERR_FAILURE);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("pthread_mutex_lock failed:"));
  EXPECT_THAT(board.settled(), IsEmpty());
}

TEST_F(lyn_interface_event_fault, a_post_that_cannot_wake_fails_and_its_event_is_delivered_with_the_next) {
  diag_log_take();
  gate_signal_fails = true;
  const int32_t status = lyn_post_async_event(LYN_EVENT_INSTALL_STATUS, make(yrp_nas_install_status_ind_t{1, 7}));
  gate_signal_fails = false;
  EXPECT_EQ(status, OX_LYN_ERR_FAILURE);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("pthread_cond_signal failed:"));
  pthread_cond_signal(&lyn_gate.cond);
  EXPECT_THAT(board.settled(), ElementsAre(number(OX_LYN_IND_INSTALL_MODE_STATUS_E, 7)));
}

}  // namespace
