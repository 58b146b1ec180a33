/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the module delivers to a user's callback, copied and compared, and the blocks that producers post.
 *
 *   const delivered one = take_delivered(info);
 *   EXPECT_EQ(one, number(OX_LYN_IND_LTE_RSRP_E, -100));
 */
#ifndef DELIVERED_H
#define DELIVERED_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <ostream>
#include <vector>

#include "ox_lyn.h"

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
inline size_t delivered_block_size(const ox_lyn_dm_info_t &info) {
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
inline delivered take_delivered(ox_lyn_dm_info_t *info) {
  delivered one{info->record_type, info->metric, info->value_type, 0, {}, {}};
  const size_t size = delivered_block_size(*info);
  if (size == 0) {
    one.value = info->value.i64;
  } else {
    const auto *bytes = static_cast<const uint8_t *>(info->value.ptr);
    one.block.assign(bytes, bytes + size);
    if (info->record_type == OX_LYN_RECORD_ASYNC_E && info->metric == OX_LYN_ASYNC_LOC_BATCH_E) {
      auto *batch = static_cast<ox_lyn_loc_batch_t *>(info->value.ptr);
      const auto *array = reinterpret_cast<const uint8_t *>(batch->locations);
      if (array != nullptr) {
        one.locations.assign(array, array + batch->count * sizeof(ox_lyn_location_t));
      }
      free(batch->locations);
    }
    free(info->value.ptr);
  }
  free(info);
  return one;
}

inline int32_t subscribe(ox_lyn_hndl_t hndl, uint32_t indication, int64_t threshold = 0) {
  ox_lyn_dm_ind_info_t info = {};
  info.record_type = OX_LYN_RECORD_IND_E;
  info.indication = indication;
  info.value_type = threshold != 0 ? OX_LYN_VALUE_INT64_E : OX_LYN_VALUE_NONE_E;
  info.threshold = threshold;
  return ox_lyn_set_ind_info(hndl, &info);
}

#endif
