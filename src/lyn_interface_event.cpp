/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Event delivery: from a posted event to the user's callback.
 *
 * The command thread delivers, one event at a time, in posting order, under the module lock. For each event there is
 * one function that keeps the module's books and builds the callback records; those of neighbour scans and of
 * throughput tests stand with what else they are made of. Delivered blocks are always new: the posted one is freed with
 * its command.
 */
#include "lyn_event.h"

#include <string.h>

#include <iterator>
#include <utility>

#include "lyn_interface_event.h"

/* Records */

lyn_record_t lyn_new_record(uint32_t record_type, uint32_t id, uint32_t value_type) {
  lyn_record_t record = lyn_new_block<ox_lyn_dm_info_t>(LYN_LOG_ERROR_HERE);
  if (record) {
    record->record_type = record_type;
    record->metric = id;
    record->value_type = value_type;
  }
  return record;
}

void lyn_deliver(lyn_record_t record) {
  lyn_state.user_cb_fn(lyn_state.hndl, record.release(), lyn_state.user_data);
}

bool lyn_deliver_number(uint32_t indication, uint32_t value_type, int64_t value) {
  lyn_record_t record = lyn_new_record(OX_LYN_RECORD_IND_E, indication, value_type);
  if (!record) {
    return false;
  }
  record->value.i64 = value;
  lyn_deliver(std::move(record));
  return true;
}

/* Modem, registration and signal */

static void lyn_modem_status(uint32_t value) {
  if (lyn_state.ind_table.modem_status != 0) {
    lyn_deliver_number(OX_LYN_IND_MODEM_STATUS_E, OX_LYN_VALUE_UINT32_E, value);
  }
}

static void lyn_event_modem_up(const void *) {
  lyn_modem_status(OX_LYN_MODEM_UP_E);
}

static void lyn_event_modem_down(const void *) {
  lyn_modem_status(OX_LYN_MODEM_DOWN_E);
}

static void lyn_event_sys_info(const void *data) {
  if (lyn_state.ind_table.reg_status != 0) {
    lyn_deliver_number(OX_LYN_IND_REG_STATUS_E, OX_LYN_VALUE_UINT32_E, *static_cast<const uint32_t *>(data));
  }
}

/** Reads one signal value; false where its part of the message is not valid. Rows in the order of lyn_ind_rows. */
using lyn_sig_read_fn = bool (*)(const yrp_nas_sig_info_ind_t &msg, int32_t *value);

static constexpr lyn_sig_read_fn lyn_sig_reads[] = {
    [](const yrp_nas_sig_info_ind_t &msg, int32_t *value) {
      *value = msg.lte_sig_info.rsrp;
      return msg.lte_sig_info_valid != 0;
    },
    [](const yrp_nas_sig_info_ind_t &msg, int32_t *value) {
      *value = msg.lte_sig_info.rsrq;
      return msg.lte_sig_info_valid != 0;
    },
    [](const yrp_nas_sig_info_ind_t &msg, int32_t *value) {
      *value = msg.lte_sig_info.snr;
      return msg.lte_sig_info_valid != 0;
    },
    [](const yrp_nas_sig_info_ind_t &msg, int32_t *value) {
      *value = msg.nr5g_sig_info.rsrp;
      return msg.nr5g_sig_info_valid != 0;
    },
    [](const yrp_nas_sig_info_ind_t &msg, int32_t *value) {
      *value = msg.nr5g_rsrq;
      return msg.nr5g_rsrq_valid != 0;
    },
    [](const yrp_nas_sig_info_ind_t &msg, int32_t *value) {
      *value = msg.nr5g_sig_info.snr;
      return msg.nr5g_sig_info_valid != 0;
    },
};
static_assert(std::size(lyn_sig_reads) == std::size(lyn_ind_rows));

/**
 * The modem applies the thresholds; here only repeats are suppressed. The last value starts at 0, so a first
 * measurement of 0 is not delivered: deliberate.
 */
static void lyn_event_sig_info(const void *data) {
  const auto &msg = *static_cast<const yrp_nas_sig_info_ind_t *>(data);
  for (size_t i = 0; i < std::size(lyn_ind_rows); i++) {
    lyn_ind_group_t &group = lyn_state.ind_table.*lyn_ind_rows[i].group;
    int32_t value = 0;
    if (group.enabled == 0 || !lyn_sig_reads[i](msg, &value) || value == group.last) {
      continue;
    }
    if (lyn_deliver_number(lyn_ind_rows[i].indication, OX_LYN_VALUE_INT64_E, value)) {
      group.last = value;
    }
  }
}

/* Mobile AP */

static void lyn_event_qos_flow(const void *data) {
  lyn_deliver_copy(LYN_LOG_ERROR_HERE, OX_LYN_RECORD_IND_E, OX_LYN_IND_QOS_FLOW_E, OX_LYN_VALUE_INT64_E,
                   *static_cast<const ox_lyn_qos_flow_t *>(data));
}

/* mmW panel position and install mode */

/** PPS mode by the modem's mode index. */
static constexpr uint32_t lyn_pps_modes[] = {OX_LYN_PPS_MODE_START_E, OX_LYN_PPS_MODE_MEASUREMENT_E,
                                             OX_LYN_PPS_MODE_3_E, OX_LYN_PPS_MODE_INVALID_E};

static void lyn_event_pps(const void *data) {
  const auto &msg = *static_cast<const yrp_nas_pps_ind_t *>(data);
  lyn_block_t<ox_lyn_pps_ind_t> pps = lyn_new_block<ox_lyn_pps_ind_t>(LYN_LOG_ERROR_HERE);
  if (!pps) {
    return;
  }
  pps->position_index = msg.position_index;
  pps->mode =
      msg.mode_index < std::size(lyn_pps_modes) ? lyn_pps_modes[msg.mode_index] : uint32_t{OX_LYN_PPS_MODE_INVALID_E};
  LYN_LOG_HIGH("pps position index  %d\n", pps->position_index);
  LYN_LOG_HIGH("pps is position changed  %d\n", msg.position_changed);
  LYN_LOG_HIGH("pps mode  %d\n", static_cast<int>(pps->mode));
  lyn_deliver_block(OX_LYN_RECORD_IND_E, OX_LYN_IND_PPS_CHANGE_E, OX_LYN_VALUE_INT64_E, std::move(pps));
}

/** Sub-carrier spacing by the modem's code. */
static constexpr int32_t lyn_install_scs[] = {OX_LYN_SCS_15_KHZ_E,  OX_LYN_SCS_30_KHZ_E,  OX_LYN_SCS_60_KHZ_E,
                                              OX_LYN_SCS_120_KHZ_E, OX_LYN_SCS_240_KHZ_E, OX_LYN_SCS_INVALID_E};

static void lyn_log_install_freq(const ox_lyn_install_freq_list_t &list, const ox_lyn_install_freq_t &freq) {
  LYN_LOG_HIGH("Install mode frequency info length %d\n", list.count);
  LYN_LOG_HIGH("Install mode frequency info rsrp %d\n", freq.rsrp);
  LYN_LOG_HIGH("Install mode frequency info snr %d\n", freq.snr);
  LYN_LOG_HIGH("Install mode frequency info arfcn %d\n", static_cast<int>(freq.arfcn));
  LYN_LOG_HIGH("Install mode frequency info scs %d\n", static_cast<int>(freq.scs));
  LYN_LOG_HIGH("Install mode frequency info band %d\n", static_cast<int>(freq.band));
}

static void lyn_event_install_freq(const void *data) {
  const auto &msg = *static_cast<const yrp_nas_install_freq_ind_t *>(data);
  lyn_block_t<ox_lyn_install_freq_list_t> list = lyn_new_block<ox_lyn_install_freq_list_t>(LYN_LOG_ERROR_HERE);
  if (!list) {
    return;
  }
  list->count = static_cast<uint16_t>(lyn_clamp(msg.freq_len, std::size(list->entries)));
  for (uint32_t i = 0; i < list->count; i++) {
    const auto &from = msg.freqs[i];
    const int32_t scs =
        from.scs < std::size(lyn_install_scs) ? lyn_install_scs[from.scs] : int32_t{OX_LYN_SCS_INVALID_E};
    list->entries[i] = {from.arfcn, from.band, static_cast<uint32_t>(scs), from.rsrp, from.snr};
    lyn_log_install_freq(*list, list->entries[i]);
  }
  lyn_deliver_block(OX_LYN_RECORD_IND_E, OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E, OX_LYN_VALUE_INT64_E, std::move(list));
}

static void lyn_event_install_status(const void *data) {
  const auto &msg = *static_cast<const yrp_nas_install_status_ind_t *>(data);
  LYN_LOG_HIGH("Recevied install mode status %d\n", static_cast<int>(msg.status));  // misspelt so, deliberately
  lyn_deliver_number(OX_LYN_IND_INSTALL_MODE_STATUS_E, OX_LYN_VALUE_INT64_E, msg.status);
}

/* Location */

/** Every single-shot event ends the request, also a refusal; only a stop that is never answered leaves it ongoing. */
static void lyn_event_single_shot(const void *data) {
  lyn_deliver_copy(LYN_LOG_ERROR_HERE, OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, OX_LYN_VALUE_LOCATION_E,
                   *static_cast<const ox_lyn_loc_single_shot_t *>(data));
  lyn_state.single_shot_ongoing = 0;
}

/** Give `copy` an array of its own with the posted locations; false when there is no memory. */
static bool lyn_copy_locations(ox_lyn_loc_batch_t *copy, const ox_lyn_loc_batch_t &posted) {
  // No locations still make an array, of one entry: the user frees one with every such status.
  const size_t room = posted.count > 0 ? posted.count : 1;
  copy->locations = static_cast<ox_lyn_location_t *>(calloc(room, sizeof(ox_lyn_location_t)));
  if (copy->locations == nullptr) {
    LYN_LOG_ERROR("Memory allocation failure");
    return false;
  }
  if (posted.locations != nullptr) {
    memcpy(copy->locations, posted.locations, posted.count * sizeof(ox_lyn_location_t));
  }
  copy->count = posted.count;
  return true;
}

static void lyn_event_batch(const void *data) {
  const auto &posted = *static_cast<const ox_lyn_loc_batch_t *>(data);
  lyn_block_t<ox_lyn_loc_batch_t> copy = lyn_new_block<ox_lyn_loc_batch_t>(LYN_LOG_ERROR_HERE);
  if (!copy) {
    return;
  }
  copy->status = posted.status;
  copy->response = posted.response;
  if (posted.status == OX_LYN_LOC_BATCH_LOCATIONS_E && !lyn_copy_locations(copy.get(), posted)) {
    return;
  }
  lyn_block_t<ox_lyn_location_t> locations(copy->locations);  // ours until the record is the user's
  lyn_record_t record = lyn_new_record(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_BATCH_E, OX_LYN_VALUE_LOCATION_E);
  if (!record) {
    return;
  }
  (void)locations.release();
  record->value.ptr = copy.release();
  lyn_deliver(std::move(record));
}

/* Dispatch */

/** What delivers an event; null for what is none. No `default`: the compiler names an event without a row. */
static constexpr auto lyn_event_row(lyn_event_e event) -> void (*)(const void *msg_data) {
  switch (event) {
    case LYN_EVENT_MODEM_UP:
      return lyn_event_modem_up;
    case LYN_EVENT_MODEM_DOWN:
      return lyn_event_modem_down;
    case LYN_EVENT_SYS_INFO:
      return lyn_event_sys_info;
    case LYN_EVENT_SIG_INFO:
      return lyn_event_sig_info;
    case LYN_EVENT_INCREMENTAL_SCAN:
      return lyn_event_scan;
    case LYN_EVENT_QOS_FLOW:
      return lyn_event_qos_flow;
    case LYN_EVENT_MTPE_STATUS:
      return lyn_event_mtpe_status;
    case LYN_EVENT_PPS:
      return lyn_event_pps;
    case LYN_EVENT_INSTALL_FREQ:
      return lyn_event_install_freq;
    case LYN_EVENT_INSTALL_STATUS:
      return lyn_event_install_status;
    case LYN_EVENT_LOC_SINGLE_SHOT:
      return lyn_event_single_shot;
    case LYN_EVENT_LOC_BATCH:
      return lyn_event_batch;
  }
  return nullptr;
}

static void lyn_dispatch_event(const yrp_async_data &event) {
  const auto deliver = lyn_event_row(static_cast<lyn_event_e>(event.msg_id));
  if (deliver == nullptr) {
    LYN_LOG_ERROR("Processing of NAS message ID [%u] - not supported!!", event.msg_id);
    return;
  }
  deliver(event.msg_data);
}

void lyn_process_async_event(lyn_cmd *cmd, void *data) {
  const auto *event = static_cast<const yrp_async_data *>(data);
  if (cmd == nullptr || event == nullptr || event->msg_data == nullptr) {
    LYN_LOG_ERROR("Invalid params - cmd[%p], yrp_async_data[%p]", static_cast<void *>(cmd), data);
    return;
  }
  if (!lyn_lock_while_initialised()) {
    lyn_not_initialised();
    return;
  }
  lyn_dispatch_event(*event);
  lyn_unlock();
}
