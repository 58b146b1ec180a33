/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What a user of the module does with a delivered record at the least: release it and all that it leads to.
 */
#ifndef EVENT_RELEASE_H
#define EVENT_RELEASE_H

#include <stdlib.h>

#include "ox_lyn.h"

/** Whether the value of a delivered record is a block. */
inline bool event_has_block(const ox_lyn_dm_info_t &info) {
  if (info.record_type == OX_LYN_RECORD_ASYNC_E) {
    return info.value_type != OX_LYN_VALUE_NONE_E;
  }
  return info.metric == OX_LYN_IND_MTPE_STATUS_E || info.metric == OX_LYN_IND_QOS_FLOW_E ||
         info.metric == OX_LYN_IND_PPS_CHANGE_E || info.metric == OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E;
}

inline void event_release(ox_lyn_dm_info_t *info) {
  if (event_has_block(*info)) {
    if (info->record_type == OX_LYN_RECORD_ASYNC_E && info->metric == OX_LYN_ASYNC_LOC_BATCH_E) {
      free(static_cast<ox_lyn_loc_batch_t *>(info->value.ptr)->locations);
    }
    free(info->value.ptr);
  }
  free(info);
}

/** The callback of a user who looks at nothing. */
inline void event_ignored(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  event_release(info);
}

#endif
