/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Neighbour scans: from the metrics that ask for one to the delivered answer. The one owner of both scan groups.
 *
 * A scan serves one radio at a time, LTE first; what is asked of NR 5G meanwhile is sent when the LTE answer has come.
 * All of it runs with the module lock held: the asking on the caller's thread, the answer on the command thread.
 */
#include <string.h>

#include <iterator>

#include "lyn_interface_event.h"

/* Asking */

/** Group and item of each neighbour metric, from OX_LYN_GET_LTE_NBR_EARFCN_E on. */
static constexpr struct {
  lyn_scan_group_t lyn_state_t::*group;
  uint32_t item;
} lyn_nbr_rows[] = {
    {&lyn_state_t::lte_scan, LYN_NBR_EARFCN}, {&lyn_state_t::nr5g_scan, LYN_NBR_EARFCN},
    {&lyn_state_t::lte_scan, LYN_NBR_PCI},    {&lyn_state_t::nr5g_scan, LYN_NBR_PCI},
    {&lyn_state_t::lte_scan, LYN_NBR_CGI},    {&lyn_state_t::nr5g_scan, LYN_NBR_CGI},
    {&lyn_state_t::lte_scan, LYN_NBR_PLMN},   {&lyn_state_t::nr5g_scan, LYN_NBR_PLMN},
    {&lyn_state_t::lte_scan, LYN_NBR_RSRP},   {&lyn_state_t::nr5g_scan, LYN_NBR_RSRP},
    {&lyn_state_t::lte_scan, LYN_NBR_RSRQ},
};
static_assert(std::size(lyn_nbr_rows) == OX_LYN_GET_LTE_NBR_RSRQ_E - OX_LYN_GET_LTE_NBR_EARFCN_E + 1);

bool lyn_scan_is_metric(uint32_t metric) {
  return metric >= OX_LYN_GET_LTE_NBR_EARFCN_E && metric <= OX_LYN_GET_LTE_NBR_RSRQ_E;
}

void lyn_scan_clear() {
  lyn_state.lte_scan = {};
  lyn_state.nr5g_scan = {};
}

void lyn_scan_ask(uint32_t metric) {
  const auto &row = lyn_nbr_rows[metric - OX_LYN_GET_LTE_NBR_EARFCN_E];
  lyn_scan_group_t &group = lyn_state.*row.group;
  group.item[row.item] = 1;
  group.request = 1;
}

bool lyn_scan_is_pending() {
  return lyn_state.lte_scan.request != 0 || lyn_state.nr5g_scan.request != 0;
}

int32_t lyn_scan_busy() {
  LYN_LOG_ERROR("Neighbor cells scan request ongoing nr5g[%u]/lte[%u] - wait for completion!!",
                lyn_state.nr5g_scan.request, lyn_state.lte_scan.request);
  return OX_LYN_ERR_BUSY;
}

int32_t lyn_scan_start() {
  const int32_t status = lyn_yrp_nas_incremental_scan(lyn_state.lte_scan.request, &lyn_state.lte_scan.ongoing,
                                                      lyn_state.nr5g_scan.request, &lyn_state.nr5g_scan.ongoing);
  if (status != OX_LYN_SUCCESS) {
    lyn_scan_clear();
  }
  return status;
}

int32_t lyn_scan_metric(uint32_t metric) {
  if (lyn_scan_is_pending()) {
    return lyn_scan_busy();
  }
  lyn_scan_ask(metric);
  return lyn_scan_start();
}

/* The answer */

/** Copy a PLMN list of at most N entries; returns its length. */
template <size_t N>
static uint32_t lyn_copy_plmn(ox_lyn_plmn_t (&to)[N], const yrp_nas_plmn_t (&from)[N], uint32_t from_count) {
  const uint32_t count = lyn_clamp(from_count, N);
  for (uint32_t i = 0; i < count; i++) {
    to[i] = {from[i].plmn_mcc, from[i].plmn_mnc, from[i].plmn_mnc_includes_pcs_digit};
  }
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
  if (!cells) {
    return;
  }
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
  if (cells && list) {
    lyn_fill_lte_cells(info, msg, item);
  }
  if (item[LYN_NBR_RSRP] != 0 || item[LYN_NBR_RSRQ] != 0) {
    lyn_fill_lte_serving(info, msg, cells, item);
  }
}

static void lyn_fill_nr5g(ox_lyn_nr5g_nbr_info_t *info, const yrp_nas_incremental_scan_ind_t &msg,
                          const uint8_t *item) {
  if (msg.nr5g_nbr_info_valid == 0) {
    return;
  }
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
  if (!record) {
    return;
  }
  if (msg.scan_status == 0) {
    lyn_block_t<Info> info = lyn_new_block<Info>(LYN_LOG_ERROR_HERE);
    if (!info) {
      return;
    }
    fill(info.get(), msg, item);
    record->value_type = value_type;
    record->value.ptr = info.release();
  }
  lyn_deliver(std::move(record));
}

/** The LTE scan is answered while the NR 5G one is pending: send that now, so that two scans never overlap. */
static void lyn_scan_nr5g_next() {
  lyn_scan_group_t &nr5g = lyn_state.nr5g_scan;
  if (lyn_yrp_nas_incremental_scan(0, &lyn_state.lte_scan.ongoing, nr5g.request, &nr5g.ongoing) != OX_LYN_SUCCESS) {
    nr5g = {};
  }
}

/** Deliberate: while no LTE scan runs, every answer is one of NR 5G, asked for or not. */
void lyn_event_scan(const void *data) {
  const auto &msg = *static_cast<const yrp_nas_incremental_scan_ind_t *>(data);
  const bool lte_answer = lyn_state.lte_scan.ongoing == 1;
  lyn_scan_group_t &group = lte_answer ? lyn_state.lte_scan : lyn_state.nr5g_scan;
  group.request = 0;
  group.ongoing = 0;
  if (lte_answer) {
    if (lyn_state.nr5g_scan.request != 0) {
      lyn_scan_nr5g_next();
    }
    lyn_deliver_scan(OX_LYN_ASYNC_LTE_NBR_INFO_E, OX_LYN_VALUE_LTE_NBR_E, msg, group.item, lyn_fill_lte);
  } else {
    lyn_deliver_scan(OX_LYN_ASYNC_NR5G_NBR_INFO_E, OX_LYN_VALUE_NR5G_NBR_E, msg, group.item, lyn_fill_nr5g);
  }
  memset(group.item, 0, sizeof(group.item));
}
