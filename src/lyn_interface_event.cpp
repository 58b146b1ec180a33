/*
 * Event delivery: from a posted event to the user's callback.
 *
 * Any thread posts; the command thread delivers, one event at a time, in posting order, under the module lock. One
 * table names, for each event, the function that keeps the module's books and builds the callback records. Delivered
 * blocks are always new: the posted one is freed with its command.
 */
#include "lyn_event.h"

#include <string.h>

#include <iterator>
#include <utility>

#include "lyn_interface.h"
#include "lyn_oxmap_interface.h"

using lyn_record_t = lyn_block_t<ox_lyn_dm_info_t>;

/* ------------------------------------------------------------------------------------------------------------------ */
/* Records                                                                                                            */
/* ------------------------------------------------------------------------------------------------------------------ */

/** A callback record without value, or null when there is no memory: that delivery is skipped. */
static lyn_record_t lyn_new_record(uint32_t record_type, uint32_t id, uint32_t value_type) {
  lyn_record_t record = lyn_new_block<ox_lyn_dm_info_t>(LYN_LOG_ERROR_HERE);
  if (record) {
    record->record_type = record_type;
    record->metric = id;
    record->value_type = value_type;
  }
  return record;
}

/** Hand a record to the user, who owns it from here on. */
static void lyn_deliver(lyn_record_t record) {
  lyn_state.user_cb_fn(lyn_state.hndl, record.release(), lyn_state.user_data);
}

/** Deliver an indication with a number. Returns whether it was delivered. */
static bool lyn_deliver_number(uint32_t indication, uint32_t value_type, int64_t value) {
  lyn_record_t record = lyn_new_record(OX_LYN_RECORD_IND_E, indication, value_type);
  if (!record)
    return false;
  record->value.i64 = value;
  lyn_deliver(std::move(record));
  return true;
}

/** Deliver a block, which becomes the user's with the record. */
template <class T>
static void lyn_deliver_block(uint32_t record_type, uint32_t id, uint32_t value_type, lyn_block_t<T> block) {
  if (!block)
    return;
  lyn_record_t record = lyn_new_record(record_type, id, value_type);
  if (!record)
    return;
  record->value.ptr = block.release();
  lyn_deliver(std::move(record));
}

/** Deliver a new copy of a posted block. */
template <class T>
static void lyn_deliver_copy(uint32_t record_type, uint32_t id, uint32_t value_type, const T &posted) {
  lyn_block_t<T> copy = lyn_new_block<T>(LYN_LOG_ERROR_HERE);
  if (copy)
    *copy = posted;
  lyn_deliver_block(record_type, id, value_type, std::move(copy));
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* Modem, registration and signal                                                                                     */
/* ------------------------------------------------------------------------------------------------------------------ */

static void lyn_modem_status(uint32_t value) {
  if (lyn_state.ind_table.modem_status != 0)
    lyn_deliver_number(OX_LYN_IND_MODEM_STATUS_E, OX_LYN_VALUE_UINT32_E, value);
}

static void lyn_event_modem_up(const void *) {
  lyn_modem_status(OX_LYN_MODEM_UP_E);
}

static void lyn_event_modem_down(const void *) {
  lyn_modem_status(OX_LYN_MODEM_DOWN_E);
}

static void lyn_event_sys_info(const void *data) {
  if (lyn_state.ind_table.reg_status != 0)
    lyn_deliver_number(OX_LYN_IND_REG_STATUS_E, OX_LYN_VALUE_UINT32_E, *static_cast<const uint32_t *>(data));
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
    if (group.enabled == 0 || !lyn_sig_reads[i](msg, &value) || value == group.last)
      continue;
    if (lyn_deliver_number(lyn_ind_rows[i].indication, OX_LYN_VALUE_INT64_E, value))
      group.last = value;
  }
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* Neighbour scan                                                                                                     */
/* ------------------------------------------------------------------------------------------------------------------ */

static uint32_t lyn_clamp(uint32_t count, size_t room) {
  return count < room ? count : static_cast<uint32_t>(room);
}

/** Copy a PLMN list of at most N entries; returns its length. */
template <size_t N>
static uint32_t lyn_copy_plmn(ox_lyn_plmn_t (&to)[N], const yrp_nas_plmn_t (&from)[N], uint32_t from_count) {
  const uint32_t count = lyn_clamp(from_count, N);
  for (uint32_t i = 0; i < count; i++)
    to[i] = {from[i].plmn_mcc, from[i].plmn_mnc, from[i].plmn_mnc_includes_pcs_digit};
  return count;
}

/** What the cells of both radios have. */
template <class Cell, class From>
static void lyn_fill_cell(Cell *cell, const From &from, uint32_t index, const uint8_t *item) {
  cell->present = 1;
  cell->index = index;
  cell->earfcn = from.earfcn;
  cell->pci = from.pci;
  if (item[LYN_NBR_PLMN] != 0) {
    cell->plmn_valid = 1;
    cell->plmn_count = lyn_copy_plmn(cell->plmn, from.plmn, from.plmn_count);
  }
}

static void lyn_fill_lte_cells(ox_lyn_lte_nbr_info_t *info, const yrp_nas_incremental_scan_ind_t &msg,
                               const uint8_t *item) {
  const uint32_t count = lyn_clamp(msg.lte_nbr_count, std::size(info->cells));
  for (uint32_t i = 0; i < count; i++) {
    ox_lyn_lte_nbr_t &cell = info->cells[i];
    lyn_fill_cell(&cell, msg.lte_nbr[i], i + 1, item);
    if (item[LYN_NBR_CGI] != 0) {
      cell.cgi_valid = 1;
      cell.cgi = msg.lte_nbr[i].cgi;
    }
  }
}

static void lyn_fill_lte_serving(ox_lyn_lte_nbr_info_t *info, const yrp_nas_incremental_scan_ind_t &msg, bool cells,
                                 const uint8_t *item) {
  auto &serving = info->serving;
  serving.valid = 1;
  if (!cells)
    return;
  serving.earfcn = msg.lte_highest_signal_nbr.earfcn;
  serving.pci = msg.lte_highest_signal_nbr.pci;
  if (item[LYN_NBR_RSRP] != 0) {
    serving.rsrp_valid = 1;
    serving.rsrp = msg.lte_highest_signal_nbr.rsrp;
  }
  if (item[LYN_NBR_RSRQ] != 0) {
    serving.rsrq_valid = 1;
    serving.rsrq = msg.lte_highest_signal_nbr.rsrq;
  }
}

static void lyn_fill_lte(ox_lyn_lte_nbr_info_t *info, const yrp_nas_incremental_scan_ind_t &msg, const uint8_t *item) {
  const bool cells = msg.lte_nbr_info_valid != 0 && msg.lte_nbr_count > 0;
  const bool list =
      item[LYN_NBR_EARFCN] != 0 || item[LYN_NBR_PCI] != 0 || item[LYN_NBR_CGI] != 0 || item[LYN_NBR_PLMN] != 0;
  if (cells && list)
    lyn_fill_lte_cells(info, msg, item);
  if (item[LYN_NBR_RSRP] != 0 || item[LYN_NBR_RSRQ] != 0)
    lyn_fill_lte_serving(info, msg, cells, item);
}

static void lyn_fill_nr5g(ox_lyn_nr5g_nbr_info_t *info, const yrp_nas_incremental_scan_ind_t &msg,
                          const uint8_t *item) {
  if (msg.nr5g_nbr_info_valid == 0)
    return;
  const uint32_t count = lyn_clamp(msg.nr5g_nbr_count, std::size(info->cells));
  for (uint32_t i = 0; i < count; i++) {
    const auto &from = msg.nr5g_nbr[i];
    ox_lyn_nr5g_nbr_t &cell = info->cells[i];
    lyn_fill_cell(&cell, from, i + 1, item);
    if (item[LYN_NBR_RSRP] != 0) {
      cell.rsrp_valid = 1;
      cell.rsrp = from.rsrp;
    }
    if (item[LYN_NBR_CGI] != 0) {
      cell.cgi_valid = 1;
      cell.cgi_count = lyn_clamp(from.cgi_count, std::size(cell.cgi));
      memcpy(cell.cgi, from.cgi, cell.cgi_count * sizeof(cell.cgi[0]));
    }
  }
}

/** Deliver a scan's answer: with a block of the items asked for, or with value type 0 where the scan failed. */
template <class Info>
static void lyn_deliver_scan(uint32_t async, uint32_t value_type, const yrp_nas_incremental_scan_ind_t &msg,
                             const uint8_t *item,
                             void (*fill)(Info *, const yrp_nas_incremental_scan_ind_t &, const uint8_t *)) {
  lyn_record_t record = lyn_new_record(OX_LYN_RECORD_ASYNC_E, async, OX_LYN_VALUE_NONE_E);
  if (!record)
    return;
  if (msg.scan_status == 0) {
    lyn_block_t<Info> info = lyn_new_block<Info>(LYN_LOG_ERROR_HERE);
    if (!info)
      return;
    fill(info.get(), msg, item);
    record->value_type = value_type;
    record->value.ptr = info.release();
  }
  lyn_deliver(std::move(record));
}

/** The LTE scan is answered while the NR 5G one is pending: send that now, so that two scans never overlap. */
static void lyn_scan_nr5g_next() {
  lyn_scan_group_t &nr5g = lyn_state.nr5g_scan;
  if (lyn_yrp_nas_incremental_scan(0, &lyn_state.lte_scan.ongoing, nr5g.request, &nr5g.ongoing) != OX_LYN_SUCCESS)
    nr5g = {};
}

/** Deliberate: while no LTE scan runs, every answer is one of NR 5G, asked for or not. */
static void lyn_event_scan(const void *data) {
  const auto &msg = *static_cast<const yrp_nas_incremental_scan_ind_t *>(data);
  const bool lte_answer = lyn_state.lte_scan.ongoing == 1;
  lyn_scan_group_t &group = lte_answer ? lyn_state.lte_scan : lyn_state.nr5g_scan;
  group.request = 0;
  group.ongoing = 0;
  if (lte_answer) {
    if (lyn_state.nr5g_scan.request != 0)
      lyn_scan_nr5g_next();
    lyn_deliver_scan(OX_LYN_ASYNC_LTE_NBR_INFO_E, OX_LYN_VALUE_LTE_NBR_E, msg, group.item, lyn_fill_lte);
  } else {
    lyn_deliver_scan(OX_LYN_ASYNC_NR5G_NBR_INFO_E, OX_LYN_VALUE_NR5G_NBR_E, msg, group.item, lyn_fill_nr5g);
  }
  memset(group.item, 0, sizeof(group.item));
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* Mobile AP                                                                                                          */
/* ------------------------------------------------------------------------------------------------------------------ */

static void lyn_event_qos_flow(const void *data) {
  lyn_deliver_copy(OX_LYN_RECORD_IND_E, OX_LYN_IND_QOS_FLOW_E, OX_LYN_VALUE_INT64_E,
                   *static_cast<const ox_lyn_qos_flow_t *>(data));
}

enum { LYN_MTPE_CONFIGURED = 1, LYN_MTPE_COMPLETED = 2, LYN_MTPE_FAILED = 3 };
enum { LYN_MTPE_DOWNLINK = 2, LYN_MTPE_BOTH = 3 };

/** Uplink has run: configure downlink, where client and server have changed their roles. */
static bool lyn_mtpe_second_direction() {
  ox_lyn_mtpe_req_t &req = lyn_state.mtpe_req;
  std::swap(req.src_port, req.dst_port);
  std::swap(req.src_ipv4, req.dst_ipv4);
  std::swap(req.src_ipv6, req.dst_ipv6);
  req.test_type = LYN_MTPE_DOWNLINK;
  return lyn_oxmap_configure_mtpe(&req) == 0;
}

/** Follow a test: start what is configured, tear down what has completed. A failure of either counts as a failed test.
 */
static void lyn_mtpe_follow(ox_lyn_mtpe_status_t *status) {
  bool done = true;
  if (status->test_status == LYN_MTPE_CONFIGURED)
    done = lyn_oxmap_mtpe_start(1) != 0;
  else if (status->test_status == LYN_MTPE_COMPLETED)
    done = lyn_oxmap_mtpe_start(0) != 0;
  if (!done) {
    status->failure_reason = LYN_MTPE_FAILED;
    status->test_status = LYN_MTPE_FAILED;
  }
}

/** Whether a test still runs after this status; any status but these two ends it. */
static bool lyn_mtpe_goes_on(const ox_lyn_mtpe_status_t &status) {
  if (status.test_status == LYN_MTPE_CONFIGURED)
    return true;
  return status.test_status == LYN_MTPE_COMPLETED && lyn_state.mtpe_req.test_type == LYN_MTPE_BOTH &&
         lyn_mtpe_second_direction();
}

static void lyn_event_mtpe_status(const void *data) {
  ox_lyn_mtpe_status_t status = *static_cast<const ox_lyn_mtpe_status_t *>(data);
  lyn_mtpe_follow(&status);
  if (!lyn_mtpe_goes_on(status))
    lyn_state.mtpe_ongoing = 0;
  lyn_deliver_copy(OX_LYN_RECORD_IND_E, OX_LYN_IND_MTPE_STATUS_E, OX_LYN_VALUE_INT64_E, status);
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* mmW panel position and install mode                                                                                */
/* ------------------------------------------------------------------------------------------------------------------ */

/** PPS mode by the modem's mode index. */
static constexpr uint32_t lyn_pps_modes[] = {1, 2, 3, 0};

static void lyn_event_pps(const void *data) {
  const auto &msg = *static_cast<const yrp_nas_pps_ind_t *>(data);
  lyn_block_t<ox_lyn_pps_ind_t> pps = lyn_new_block<ox_lyn_pps_ind_t>(LYN_LOG_ERROR_HERE);
  if (!pps)
    return;
  pps->position_index = msg.position_index;
  pps->mode = msg.mode_index < std::size(lyn_pps_modes) ? lyn_pps_modes[msg.mode_index] : 0;
  LYN_LOG_HIGH("pps position index  %d\n", pps->position_index);
  LYN_LOG_HIGH("pps is position changed  %d\n", msg.position_changed);
  LYN_LOG_HIGH("pps mode  %d\n", static_cast<int>(pps->mode));
  lyn_deliver_block(OX_LYN_RECORD_IND_E, OX_LYN_IND_PPS_CHANGE_E, OX_LYN_VALUE_INT64_E, std::move(pps));
}

/** Sub-carrier spacing by the modem's code. */
static constexpr int32_t lyn_install_scs[] = {1, 2, 3, 4, 5, -1};

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
  if (!list)
    return;
  list->count = static_cast<uint16_t>(lyn_clamp(msg.freq_len, std::size(list->entries)));
  for (uint32_t i = 0; i < list->count; i++) {
    const auto &from = msg.freqs[i];
    const int32_t scs = from.scs < std::size(lyn_install_scs) ? lyn_install_scs[from.scs] : -1;
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

/* ------------------------------------------------------------------------------------------------------------------ */
/* Location                                                                                                           */
/* ------------------------------------------------------------------------------------------------------------------ */

/** Every single-shot event ends the request, also a refusal; only a stop that is never answered leaves it ongoing. */
static void lyn_event_single_shot(const void *data) {
  lyn_deliver_copy(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, OX_LYN_VALUE_LOCATION_E,
                   *static_cast<const ox_lyn_loc_single_shot_t *>(data));
  lyn_state.single_shot_ongoing = 0;
}

/** Give `copy` an array of its own with the posted locations; false when there is no memory. */
static bool lyn_copy_locations(ox_lyn_loc_batch_t *copy, const ox_lyn_loc_batch_t &posted) {
  // No locations still make an array, of one entry: the user frees one whenever the status is 1.
  const size_t room = posted.count > 0 ? posted.count : 1;
  copy->locations = static_cast<ox_lyn_location_t *>(calloc(room, sizeof(ox_lyn_location_t)));
  if (copy->locations == nullptr) {
    LYN_LOG_ERROR("Memory allocation failure");
    return false;
  }
  if (posted.locations != nullptr)
    memcpy(copy->locations, posted.locations, posted.count * sizeof(ox_lyn_location_t));
  copy->count = posted.count;
  return true;
}

static void lyn_event_batch(const void *data) {
  const auto &posted = *static_cast<const ox_lyn_loc_batch_t *>(data);
  lyn_block_t<ox_lyn_loc_batch_t> copy = lyn_new_block<ox_lyn_loc_batch_t>(LYN_LOG_ERROR_HERE);
  if (!copy)
    return;
  copy->status = posted.status;
  copy->response = posted.response;
  if (posted.status == 1 && !lyn_copy_locations(copy.get(), posted))
    return;
  lyn_block_t<ox_lyn_location_t> locations(copy->locations);  // ours until the record is the user's
  lyn_record_t record = lyn_new_record(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_BATCH_E, OX_LYN_VALUE_LOCATION_E);
  if (!record)
    return;
  (void)locations.release();
  record->value.ptr = copy.release();
  lyn_deliver(std::move(record));
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* Dispatch                                                                                                           */
/* ------------------------------------------------------------------------------------------------------------------ */

typedef struct {
  uint32_t msg_id;
  void (*deliver)(const void *msg_data);
} lyn_event_row_t;

static constexpr lyn_event_row_t lyn_event_rows[] = {
    {LYN_EVENT_SIG_INFO, lyn_event_sig_info},           {LYN_EVENT_SYS_INFO, lyn_event_sys_info},
    {LYN_EVENT_MODEM_UP, lyn_event_modem_up},           {LYN_EVENT_MODEM_DOWN, lyn_event_modem_down},
    {LYN_EVENT_INCREMENTAL_SCAN, lyn_event_scan},       {LYN_EVENT_QOS_FLOW, lyn_event_qos_flow},
    {LYN_EVENT_MTPE_STATUS, lyn_event_mtpe_status},     {LYN_EVENT_PPS, lyn_event_pps},
    {LYN_EVENT_INSTALL_FREQ, lyn_event_install_freq},   {LYN_EVENT_INSTALL_STATUS, lyn_event_install_status},
    {LYN_EVENT_LOC_SINGLE_SHOT, lyn_event_single_shot}, {LYN_EVENT_LOC_BATCH, lyn_event_batch},
};

static void lyn_dispatch_event(const yrp_async_data &event) {
  for (const lyn_event_row_t &row : lyn_event_rows) {
    if (row.msg_id == event.msg_id) {
      row.deliver(event.msg_data);
      return;
    }
  }
  LYN_LOG_ERROR("Processing of NAS message ID [%u] - not supported!!", event.msg_id);
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

/* ------------------------------------------------------------------------------------------------------------------ */
/* Posting                                                                                                            */
/* ------------------------------------------------------------------------------------------------------------------ */

/** Free a posted block with all that it owns. */
static void lyn_free_event_data(uint32_t msg_id, void *msg_data) {
  if (msg_id == LYN_EVENT_LOC_BATCH && msg_data != nullptr)
    free(static_cast<ox_lyn_loc_batch_t *>(msg_data)->locations);
  free(msg_data);
}

/** The command of every event that is posted; its record stands in the queue beside it. */
static lyn_cmd lyn_event_cmd = {.execute_f = lyn_process_async_event, .free_f = lyn_free_async_event, .data = nullptr};

void lyn_free_async_event(lyn_cmd *cmd, void *data) {
  auto *event = static_cast<yrp_async_data *>(data);
  if (event != nullptr)
    lyn_free_event_data(event->msg_id, event->msg_data);
  if (cmd == &lyn_event_cmd)
    return;
  free(event);
  free(cmd);
}

/** What a post that was not queued comes to; what failed in the queue itself is logged there. */
static int32_t lyn_refuse_event(lyn_cmdq_post_e result) {
  switch (result) {
    case LYN_CMDQ_SHUT:
      lyn_not_initialised();
      return OX_LYN_ERR_FAILURE;
    case LYN_CMDQ_NO_CHUNK:
    case LYN_CMDQ_NO_ITEMS:
      LYN_LOG_ERROR("Memory allocation failure");
      return result == LYN_CMDQ_NO_CHUNK ? OX_LYN_ERR_NO_MEMORY : OX_LYN_ERR_FAILURE;
    case LYN_CMDQ_QUEUED:
    case LYN_CMDQ_QUEUED_FAILED:
    case LYN_CMDQ_NO_NODE:
    case LYN_CMDQ_FAILED:
      break;
  }
  return OX_LYN_ERR_FAILURE;
}

int32_t lyn_post_async_event(uint32_t yrp_msg_id, void *yrp_msg_data) {
  if (yrp_msg_data == nullptr) {
    LYN_LOG_ERROR("Invalid params - yrp_msg_id[%u], yrp_msg_data[%p]", yrp_msg_id, yrp_msg_data);
    return OX_LYN_ERR_INVALID_PARAM;
  }
  const yrp_async_data event = {.msg_id = yrp_msg_id, .msg_data = yrp_msg_data};
  const lyn_cmdq_post_e result = lyn_cmdq_post(&lyn_gate, &lyn_event_cmd, &event);
  if (result == LYN_CMDQ_QUEUED)
    return OX_LYN_SUCCESS;
  if (result != LYN_CMDQ_QUEUED_FAILED)
    lyn_free_event_data(yrp_msg_id, yrp_msg_data);
  return lyn_refuse_event(result);
}
