/*
 * The whole module on a simulated board of the test's own, and everything that its callback delivers.
 *
 *   events.start("[lte]\nrsrp = -100\n");
 *   events.subscribe(OX_LYN_IND_LTE_RSRP_E, 1);
 *   EXPECT_EQ(events.settled(), (std::vector<delivered>{number(OX_LYN_IND_LTE_RSRP_E, -100)}));
 *   events.stop();
 */
#ifndef EVENT_BOARD_H
#define EVENT_BOARD_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <condition_variable>
#include <iterator>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "lyn_event.h"
#include "nas_service_v01.h"
#include "ox_lyn.h"
#include "sim_board.h"

/** One delivery, its blocks copied. */
struct delivered {
  uint32_t record_type = 0, id = 0, value_type = 0;
  int64_t value = 0;              /* where there is no block */
  std::vector<uint8_t> block;     /* what ptr led to */
  std::vector<uint8_t> locations; /* the array of a batch */

  bool operator==(const delivered &) const = default;

  template <typename Block>
  Block as() const {
    Block copy = {};
    EXPECT_EQ(block.size(), sizeof copy);
    memcpy(&copy, block.data(), block.size() < sizeof copy ? block.size() : sizeof copy);
    return copy;
  }
};

inline std::ostream &operator<<(std::ostream &out, const delivered &one) {
  return out << one.record_type << "/" << one.id << " type " << one.value_type << " value " << one.value << " block of "
             << one.block.size();
}

inline delivered number(uint32_t indication, int64_t value, uint32_t value_type = OX_LYN_VALUE_INT64_E) {
  return {OX_LYN_RECORD_IND_E, indication, value_type, value, {}, {}};
}

/** A block made as producers make theirs. */
template <typename Block>
Block *posted_copy(const Block &block) {
  auto *copy = static_cast<Block *>(calloc(1, sizeof(Block)));
  *copy = block;
  return copy;
}

/** Size of the block that a record leads to; 0: it has a number. */
inline size_t event_block_size(const ox_lyn_dm_info_t &info) {
  if (info.record_type == OX_LYN_RECORD_ASYNC_E) {
    const size_t sizes[] = {0, sizeof(ox_lyn_lte_nbr_info_t), sizeof(ox_lyn_nr5g_nbr_info_t),
                            sizeof(ox_lyn_loc_single_shot_t), sizeof(ox_lyn_loc_batch_t)};
    return info.value_type != 0 ? sizes[info.metric] : 0;
  }
  switch (info.metric) {
    case OX_LYN_IND_MTPE_STATUS_E:
      return sizeof(ox_lyn_mtpe_status_t);
    case OX_LYN_IND_QOS_FLOW_E:
      return sizeof(ox_lyn_qos_flow_t);
    case OX_LYN_IND_PPS_CHANGE_E:
      return sizeof(ox_lyn_pps_ind_t);
    case OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E:
      return sizeof(ox_lyn_install_freq_list_t);
    default:
      return 0;
  }
}

/** Copy what a record holds and free all of it, as a user does. */
inline delivered event_take(ox_lyn_dm_info_t *info) {
  delivered one{info->record_type, info->metric, info->value_type, 0, {}, {}};
  const size_t size = event_block_size(*info);
  if (size == 0) {
    one.value = info->value.i64;
  } else {
    const auto *bytes = static_cast<const uint8_t *>(info->value.ptr);
    one.block.assign(bytes, bytes + size);
    if (info->record_type == OX_LYN_RECORD_ASYNC_E && info->metric == OX_LYN_ASYNC_LOC_BATCH_E) {
      auto *batch = static_cast<ox_lyn_loc_batch_t *>(info->value.ptr);
      const auto *array = reinterpret_cast<const uint8_t *>(batch->locations);
      if (array != nullptr)
        one.locations.assign(array, array + batch->count * sizeof(ox_lyn_location_t));
      free(batch->locations);
    }
    free(info->value.ptr);
  }
  free(info);
  return one;
}

/** A radio that is not in service: nothing is measured, so that subscribing delivers nothing. */
inline constexpr char event_no_service[] = "[sys_info]\nlte = \"no_service\"\nnr5g_pci = -1\n";

struct event_board {
  static constexpr uint32_t user_data = 4711;

  ox_lyn_hndl_t hndl = 0;
  std::mutex lock;
  std::condition_variable changed;
  std::vector<delivered> deliveries;
  int64_t marker = 0x70000000;
  size_t strangers = 0; /* callbacks with another handle or user value than ours */

  /** Bring the module up on a quiet board with `toml` behind it; its receiver says nothing either. */
  void start(const std::string &toml = "");
  void stop() {
    EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
    sim_board_journal_keep(false);
    EXPECT_EQ(strangers, 0U);
  }

  void on_event(ox_lyn_hndl_t from, ox_lyn_dm_info_t *info, uint32_t data) {
    const std::lock_guard guard(lock);
    strangers += data != user_data || (hndl != 0 && from != hndl);
    deliveries.push_back(event_take(info));
    changed.notify_all();
  }

  int32_t subscribe(uint32_t indication, int64_t threshold = 0) {
    ox_lyn_dm_ind_info_t info = {};
    info.record_type = OX_LYN_RECORD_IND_E;
    info.indication = indication;
    info.value_type = threshold != 0 ? OX_LYN_VALUE_INT64_E : OX_LYN_VALUE_NONE_E;
    info.threshold = threshold;
    return ox_lyn_set_ind_info(hndl, &info);
  }

  void subscribe_all() {
    for (uint32_t indication = OX_LYN_IND_MODEM_STATUS_E; indication <= OX_LYN_IND_NR5G_SINR_E; indication++)
      EXPECT_EQ(subscribe(indication, 1), OX_LYN_SUCCESS);
  }

  /** What was delivered since the last call, once the board is at rest and the queue has drained. */
  std::vector<delivered> settled() {
    EXPECT_TRUE(sim_board_wait_idle(60000));
    marker++;
    const yrp_nas_install_status_ind_t last = {1, static_cast<uint32_t>(marker)};
    EXPECT_EQ(lyn_post_async_event(LYN_EVENT_INSTALL_STATUS, posted_copy(last)), OX_LYN_SUCCESS);
    const delivered end = number(OX_LYN_IND_INSTALL_MODE_STATUS_E, marker);
    std::unique_lock guard(lock);
    const bool came = changed.wait_for(guard, std::chrono::seconds(60),
                                       [&] { return !deliveries.empty() && deliveries.back() == end; });
    EXPECT_TRUE(came) << "the queue does not drain";
    if (came)
      deliveries.pop_back();
    return std::exchange(deliveries, {});
  }

  /** Post and settle. */
  template <typename Block>
  std::vector<delivered> deliver(uint32_t msg_id, const Block &block) {
    EXPECT_EQ(lyn_post_async_event(msg_id, posted_copy(block)), OX_LYN_SUCCESS);
    return settled();
  }
};

inline event_board events;

inline void event_board::start(const std::string &toml) {
  ASSERT_EQ(sim_board_load("[board]\nnoise_db = 0\n[location]\ncapabilities_ms = -1\n" + toml), "");
  deliveries.clear();
  hndl = 0;
  sim_board_journal_keep(true);
  ASSERT_EQ(
      ox_lyn_init(&hndl, user_data,
                  [](ox_lyn_hndl_t from, ox_lyn_dm_info_t *info, uint32_t data) { events.on_event(from, info, data); }),
      OX_LYN_SUCCESS);
  EXPECT_TRUE(sim_board_wait_idle(5000)); /* the mobile AP has said that it is there */
}

#endif
