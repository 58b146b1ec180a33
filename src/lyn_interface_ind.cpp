/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Indication subscriptions: which unsolicited events reach the user, and from which change of a signal value on.
 *
 * Every change goes to the modem at once, as a working copy of the whole table; the copy becomes the table only when
 * the modem has accepted it.
 */
#include <string.h>

#include "lyn_interface.h"

/** The group of a signal indication, or null. */
static lyn_ind_group_t *lyn_ind_group(lyn_ind_table_t *table, uint32_t indication) {
  for (const lyn_ind_row_t &row : lyn_ind_rows) {
    if (row.indication == indication) {
      return &(table->*row.group);
    }
  }
  return nullptr;
}

/** The flag of an indication without threshold, or null. */
static uint8_t *lyn_ind_flag(lyn_ind_table_t *table, uint32_t indication) {
  switch (indication) {
    case OX_LYN_IND_MODEM_STATUS_E:
      return &table->modem_status;
    case OX_LYN_IND_REG_STATUS_E:
      return &table->reg_status;
    default:
      return nullptr;
  }
}

static int32_t lyn_ind_commit(const lyn_ind_table_t &table) {
  const int32_t status = lyn_yrp_nas_register_ind(&table);
  if (status == OX_LYN_SUCCESS) {
    lyn_state.ind_table = table;
  }
  return status;
}

/** Write the subscribed indications, packed, to at most `room` entries of `list`, or only count them where it is null.
 */
static uint32_t lyn_ind_collect(uint32_t *list, uint32_t room) {
  uint32_t count = 0;
  const auto add = [&](bool enabled, uint32_t indication) {
    if (!enabled) {
      return;
    }
    if (list != nullptr && count < room) {
      list[count] = indication;
    }
    count++;
  };
  add(lyn_state.ind_table.modem_status != 0, OX_LYN_IND_MODEM_STATUS_E);
  add(lyn_state.ind_table.reg_status != 0, OX_LYN_IND_REG_STATUS_E);
  for (const lyn_ind_row_t &row : lyn_ind_rows) {
    add((lyn_state.ind_table.*row.group).enabled != 0, row.indication);
  }
  return count;
}

int32_t ox_lyn_set_ind_info(ox_lyn_hndl_t hndl, ox_lyn_dm_ind_info_t *dm_ind_info) {
  lyn_module_guard_t lock;
  if (!lyn_is_handle(hndl) || dm_ind_info == nullptr || dm_ind_info->record_type != OX_LYN_RECORD_IND_E) {
    LYN_LOG_ERROR("Invalid params - hndl[%p], dm_ind_info[%p]", lyn_log_handle(hndl), static_cast<void *>(dm_ind_info));
    return OX_LYN_ERR_INVALID_PARAM;
  }
  if (!lyn_is_initialised()) {
    return lyn_not_initialised();
  }
  lyn_ind_table_t table = lyn_state.ind_table;
  if (uint8_t *flag = lyn_ind_flag(&table, dm_ind_info->indication)) {
    *flag = 1;
    return lyn_ind_commit(table);
  }
  lyn_ind_group_t *group = lyn_ind_group(&table, dm_ind_info->indication);
  if (group == nullptr) {
    LYN_LOG_ERROR("Setting diagnostic indication information for metric[%u] - not supported!!",
                  dm_ind_info->indication);
    return OX_LYN_ERR_NOT_SUPPORTED;
  }
  if (dm_ind_info->value_type != OX_LYN_VALUE_INT64_E || dm_ind_info->threshold < 1) {
    return OX_LYN_ERR_INVALID_PARAM;
  }
  // Deliberate: only 16 bits of the threshold are kept, 70000 becomes 4464.
  *group = {.enabled = 1, .threshold = static_cast<uint16_t>(dm_ind_info->threshold), .last = 0};
  return lyn_ind_commit(table);
}

int32_t ox_lyn_get_ind_count(ox_lyn_hndl_t hndl, uint32_t *dm_ind_cnt) {
  lyn_module_guard_t lock;
  if (!lyn_is_handle(hndl) || dm_ind_cnt == nullptr) {
    LYN_LOG_ERROR("Invalid params - hndl[%p], dm_ind_cnt[%p]", lyn_log_handle(hndl), static_cast<void *>(dm_ind_cnt));
    return OX_LYN_ERR_INVALID_PARAM;
  }
  if (!lyn_is_initialised()) {
    return lyn_not_initialised();
  }
  *dm_ind_cnt = lyn_ind_collect(nullptr, 0);
  return OX_LYN_SUCCESS;
}

int32_t ox_lyn_get_ind_list(ox_lyn_hndl_t hndl, uint32_t *dm_ind_list, uint32_t dm_ind_list_cnt) {
  /* Deliberate: the count is taken under a lock of its own, so it may be stale below; the entries never exceed the
     caller's capacity all the same. */
  uint32_t count = 0;
  const int32_t status = ox_lyn_get_ind_count(hndl, &count);
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  lyn_module_guard_t lock;
  if (!lyn_is_handle(hndl) || dm_ind_list == nullptr || dm_ind_list_cnt == 0) {
    LYN_LOG_ERROR("Invalid params - hndl[%p], dm_ind_list[%p], dm_ind_list_cnt[%u]", lyn_log_handle(hndl),
                  static_cast<void *>(dm_ind_list), dm_ind_list_cnt);
    return OX_LYN_ERR_INVALID_PARAM;
  }
  if (!lyn_is_initialised()) {
    return lyn_not_initialised();
  }
  if (count > dm_ind_list_cnt) {
    LYN_LOG_ERROR("Indication list count [%u] passed can't store the entire indication list [%u]", dm_ind_list_cnt,
                  count);
    return OX_LYN_ERR_INSUFFICIENT_BUFFER;
  }
  memset(dm_ind_list, 0, sizeof(*dm_ind_list) * dm_ind_list_cnt);
  lyn_ind_collect(dm_ind_list, dm_ind_list_cnt);
  return OX_LYN_SUCCESS;
}

int32_t ox_lyn_clear_ind_list(ox_lyn_hndl_t hndl, uint32_t *dm_clr_ind_list, uint32_t dm_clr_ind_list_cnt) {
  lyn_module_guard_t lock;
  if (!lyn_is_handle(hndl) || dm_clr_ind_list == nullptr || dm_clr_ind_list_cnt == 0) {
    LYN_LOG_ERROR("Invalid params - hndl[%p], dm_clr_ind_list[%p], dm_clr_ind_list_cnt[%u]", lyn_log_handle(hndl),
                  static_cast<void *>(dm_clr_ind_list), dm_clr_ind_list_cnt);
    return OX_LYN_ERR_INVALID_PARAM;
  }
  if (!lyn_is_initialised()) {
    return lyn_not_initialised();
  }
  lyn_ind_table_t table = lyn_state.ind_table;
  for (uint32_t i = 0; i < dm_clr_ind_list_cnt; i++) {
    if (uint8_t *flag = lyn_ind_flag(&table, dm_clr_ind_list[i])) {
      *flag = 0;
    } else if (lyn_ind_group_t *group = lyn_ind_group(&table, dm_clr_ind_list[i])) {
      *group = {};
    } else {
      LYN_LOG_ERROR("Clearing diagnostic indication information for metric[%u] - not supported!!", dm_clr_ind_list[i]);
      return OX_LYN_ERR_NOT_SUPPORTED;
    }
  }
  return lyn_ind_commit(table);
}
