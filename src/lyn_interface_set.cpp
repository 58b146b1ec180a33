/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Set info: one control at a time, by a table of controls. All complete before the call returns.
 */
#include <string.h>

#include <algorithm>
#include <iterator>

#include "lyn_gps.h"
#include "lyn_interface.h"

/* Location stops */

/** Deliberate: the flag stays set; only a delivered single-shot event clears it. */
static int32_t lyn_control_single_shot_stop(const ox_lyn_dm_ctrl_info_t &) {
  if (lyn_state.single_shot_ongoing == 0) {
    LYN_LOG_ERROR("%s : No gps single shot request ongoing %d !", "ox_lyn_set_info", lyn_state.single_shot_ongoing);
    return OX_LYN_ERR_FAILURE;
  }
  return lyn_gps_set_single_shot_location_stop();
}

static int32_t lyn_control_batching_stop(const ox_lyn_dm_ctrl_info_t &) {
  if (lyn_state.batching_ongoing == 0) {
    LYN_LOG_ERROR("No Gps batching request ongoing %d ", lyn_state.batching_ongoing);
    return OX_LYN_ERR_FAILURE;
  }
  const int32_t status = lyn_gps_set_batch_location_stop();
  if (status == OX_LYN_SUCCESS) {
    lyn_state.batching_ongoing = 0;
  }
  return status;
}

/* Cell lock */

/** Deliberate: a count of 0 leaves the list not valid, and more than 60 cells are cut without a word. */
static void lyn_translate_lte_lock(const ox_lyn_lte_cell_lock_t &lock, lyn_nas_cell_lock_req_t *req) {
  req->lte_count = std::min<uint8_t>(lock.count, OX_LYN_LTE_LOCK_LEN);
  req->lte_list_valid = lock.count != 0;
  std::copy_n(lock.cells, req->lte_count, req->lte_cells);
  req->lte_enforce = lock.enforce;
}

static void lyn_translate_nr5g_lock(const ox_lyn_nr5g_cell_lock_t &lock, lyn_nas_cell_lock_req_t *req) {
  req->nr5g_type_valid = 1;
  req->nr5g_type = lock.lock_type;
  if (lock.lock_type == OX_LYN_LOCK_CELL_E) {
    req->pci = lock.pci;
    req->cell_identity_valid = lock.pci != 0;
    req->scs = lock.scs;
    req->arfcn = lock.arfcn;
    static_assert(sizeof(req->cell_blocks) == sizeof(lock.band_mask));
    memcpy(req->cell_blocks, lock.band_mask, sizeof(req->cell_blocks));
  } else if (lock.lock_type == OX_LYN_LOCK_ARFCN_LIST_E) {
    req->arfcn_list_len = std::min<uint32_t>(lock.arfcn_list_len, OX_LYN_NR5G_LOCK_LEN);
    req->arfcn_list_valid = lock.arfcn_list_len != 0;
    std::copy_n(lock.arfcn_list, req->arfcn_list_len, req->arfcn_list);
  }
}

/** Fill one radio's side of a lock request from a control's block. */
static int32_t lyn_translate_lock(const ox_lyn_dm_ctrl_info_t *control, lyn_nas_cell_lock_req_t *req) {
  if (control == nullptr) {
    return OX_LYN_ERR_FAILURE;
  }
  if (control->control == OX_LYN_SET_LTE_CELL_LOCK_LIST_E) {
    lyn_translate_lte_lock(*static_cast<const ox_lyn_lte_cell_lock_t *>(control->value.ptr), req);
  } else if (control->control == OX_LYN_SET_NR5G_CELL_LOCK_LIST_E) {
    lyn_translate_nr5g_lock(*static_cast<const ox_lyn_nr5g_cell_lock_t *>(control->value.ptr), req);
  } else {
    LYN_LOG_ERROR("Invalid cell lock request id  received");
  }
  return OX_LYN_SUCCESS;
}

static int32_t lyn_control_lock(const ox_lyn_dm_ctrl_info_t &control) {
  lyn_nas_cell_lock_req_t req = {};
  int32_t status = lyn_translate_lock(&control, &req);
  if (status != OX_LYN_SUCCESS) {
    LYN_LOG_ERROR("Cell lock dm process info failed\n");
    return status;
  }
  status = lyn_yrp_nas_set_cell_lock_list(&req);
  if (status != OX_LYN_SUCCESS) {
    LYN_LOG_ERROR("LTE/NR5G Set NAS Cell lock list failed\n");
  }
  return status;
}

/* NR 5G de-prioritisation, mmW panel position and install mode */

static int32_t lyn_control_deprioritize(const ox_lyn_dm_ctrl_info_t &control) {
  return lyn_yrp_nas_set_nr5g_deprioritize(control.value.u8);
}

static int32_t lyn_control_pps_config(const ox_lyn_dm_ctrl_info_t &control) {
  const ox_lyn_pps_config_t config = *static_cast<const ox_lyn_pps_config_t *>(control.value.ptr);
  const int32_t status = lyn_yrp_nas_set_pps_config(&config);
  if (status != OX_LYN_SUCCESS) {
    LYN_LOG_ERROR("mmW pps config request is failed\n");
  }
  return status;
}

static int32_t lyn_control_pps_change_status(const ox_lyn_dm_ctrl_info_t &control) {
  const auto change = *static_cast<const ox_lyn_pps_change_status_t *>(control.value.ptr);
  const int32_t status = lyn_yrp_nas_set_pps_change_status(&change);
  if (status != OX_LYN_SUCCESS) {
    LYN_LOG_ERROR("mmW pps change status is failed\n");
  }
  return status;
}

/** Deliberate: the success line is logged whatever the outcome. */
static int32_t lyn_control_install_mode(const ox_lyn_dm_ctrl_info_t &control) {
  const ox_lyn_install_mode_t mode = *static_cast<const ox_lyn_install_mode_t *>(control.value.ptr);
  const int32_t status = lyn_yrp_nas_set_install_mode(&mode);
  LYN_LOG_HIGH(" Install request return success\n");
  if (status != OX_LYN_SUCCESS) {
    LYN_LOG_ERROR("Safe install mode config request is failed\n");
  }
  return status;
}

/* The controls */

typedef struct {
  uint32_t control;
  bool needs_ptr; /**< a null ptr is refused */
  int32_t (*handle)(const ox_lyn_dm_ctrl_info_t &control);
} lyn_control_row_t;

static constexpr lyn_control_row_t lyn_control_rows[] = {
    {OX_LYN_SET_INVALID_E, false, nullptr},
    {OX_LYN_SET_LOC_SINGLE_SHOT_STOP_E, false, lyn_control_single_shot_stop},
    {OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E, false, lyn_control_batching_stop},
    {OX_LYN_SET_LTE_CELL_LOCK_LIST_E, true, lyn_control_lock},
    {OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, true, lyn_control_lock},
    {OX_LYN_SET_NR5G_DEPRIORITIZE_E, false, lyn_control_deprioritize},
    {OX_LYN_SET_MMW_PPS_CONFIG_E, true, lyn_control_pps_config},
    {OX_LYN_SET_MMW_PPS_CHANGE_STATUS_E, true, lyn_control_pps_change_status},
    {OX_LYN_SET_INSTALL_MODE_E, true, lyn_control_install_mode},
};

static constexpr bool lyn_control_rows_in_order() {
  for (size_t i = 0; i < std::size(lyn_control_rows); i++) {
    if (lyn_control_rows[i].control != i) {
      return false;
    }
  }
  return true;
}
static_assert(std::size(lyn_control_rows) == OX_LYN_SET_COUNT, "a control has no row");
static_assert(lyn_control_rows_in_order(), "a row stands in another control's place");

int32_t ox_lyn_set_info(ox_lyn_hndl_t hndl, ox_lyn_dm_ctrl_info_t *dm_ctrl_info) {
  lyn_module_guard_t lock;
  if (!lyn_is_handle(hndl) || dm_ctrl_info == nullptr) {
    LYN_LOG_ERROR("Invalid params - hndl[%p], dm_ctrl_info[%p]", lyn_log_handle(hndl),
                  static_cast<void *>(dm_ctrl_info));
    return OX_LYN_ERR_INVALID_PARAM;
  }
  if (!lyn_is_initialised()) {
    return lyn_not_initialised();
  }
  if (dm_ctrl_info->control == OX_LYN_SET_INVALID_E || dm_ctrl_info->control >= OX_LYN_SET_COUNT) {
    LYN_LOG_ERROR("Setting diagnostic control information for metric[%u] - not supported!!", dm_ctrl_info->control);
    return OX_LYN_ERR_NOT_SUPPORTED;
  }
  const lyn_control_row_t &row = lyn_control_rows[dm_ctrl_info->control];
  if (row.needs_ptr && dm_ctrl_info->value.ptr == nullptr) {
    return OX_LYN_ERR_INVALID_PARAM;
  }
  return row.handle(*dm_ctrl_info);
}
