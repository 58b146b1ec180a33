/* SPDX-License-Identifier: Apache-2.0 */
// The user callback: prints every indication and every asynchronous response, and releases it.
//
// It runs on the module's command thread, one event at a time, while the main loop prints too; lines of the two may
// interleave. The record is ours, and so is every block behind its ptr.
#include <cstdio>
#include <iterator>

#include "lyn_demo.h"

static constexpr const char *LYN_DEMO_RULE_60 = "------------------------------------------------------------";

static int32_t lyn_demo_install_toggle = 1;  // number of the last install-mode screen; the first shows 0

// The display name of a row; the placeholder where it has none or there is no row.
template <typename Row, size_t N>
static const char *lyn_demo_name_of(const Row (&rows)[N], uint32_t id, const char *placeholder) {
  return id < N && rows[id].name != nullptr ? rows[id].name : placeholder;
}

// ---- indications ----

static void lyn_demo_print_modem_status(const ox_lyn_dm_info_t &info, const char *) {
  if (info.value.u32 == OX_LYN_MODEM_UP_E) {
    puts("LYN DEMO APP CALLBACK - Modem up status indication");
  } else if (info.value.u32 == OX_LYN_MODEM_DOWN_E) {
    puts("LYN DEMO APP CALLBACK - Modem down status indication");
  }
}

static void lyn_demo_print_reg_status_ind(const ox_lyn_dm_info_t &info, const char *) {
  printf("LYN DEMO APP CALLBACK - Registration status indication[%u].\n", info.value.u32);
}

static void lyn_demo_print_signal(const ox_lyn_dm_info_t &info, const char *signal) {
  printf("LYN DEMO APP CALLBACK - %s indication[%lld].\n", signal, static_cast<long long>(info.value.i64));
}

static void lyn_demo_print_mtpe_status(const ox_lyn_dm_info_t &info, const char *) {
  const ox_lyn_mtpe_status_t *test = static_cast<const ox_lyn_mtpe_status_t *>(info.value.ptr);
  printf("LYN DEMO APP CALLBACK - MTPE Test type %d\n", static_cast<int>(test->test_type));
  printf("LYN DEMO APP CALLBACK - MTPE Test status %d\n", static_cast<int>(test->test_status));
  if (test->test_status == OX_LYN_MTPE_STATUS_COMPLETED_E) {
    printf("LYN DEMO APP CALLBACK - MTPE Test peak rate caluculated %d\n", static_cast<int>(test->peak_rate));
  }
  if (test->failure_reason != OX_LYN_MTPE_FAILURE_NONE_E) {
    printf("LYN DEMO APP CALLBACK - MTPE failure reason %d\n", static_cast<int>(test->failure_reason));
  }
}

static void lyn_demo_print_qos_flow(const ox_lyn_dm_info_t &info, const char *) {
  const ox_lyn_qos_flow_t *flow = static_cast<const ox_lyn_qos_flow_t *>(info.value.ptr);
  puts("LYN DEMO APP CALLBACK - Successfully Recevied Indication Results");
  printf("LYN DEMO APP CALLBACK - QOS bearer ID %d\n", static_cast<uint8_t>(flow->bearer_id));
  printf("LYN DEMO APP CALLBACK - QOS Tx_5g_qci value %d\n", static_cast<int>(flow->tx_5g_qci));
  printf("LYN DEMO APP CALLBACK - QOS Rx_5g_qci value %d\n", static_cast<int>(flow->rx_5g_qci));
}

static void lyn_demo_print_pps_change(const ox_lyn_dm_info_t &info, const char *) {
  const ox_lyn_pps_ind_t *pps = static_cast<const ox_lyn_pps_ind_t *>(info.value.ptr);
  printf("LYN DEMO APP indication result for PPS Index  %d\n", pps->position_index);
  printf("LYN DEMO APP indication result for PPS mode %d\n", static_cast<int>(pps->mode));
}

static void lyn_demo_print_install_status(const ox_lyn_dm_info_t &info, const char *) {
  printf("LYN DEMO APP indication for install status mode  %d\n", static_cast<int>(info.value.u32));
}

static void lyn_demo_print_install_entry(const ox_lyn_install_freq_t &entry) {
  printf("\033[33;5m Arfcn            --> \033[32m %d\n", static_cast<int>(entry.arfcn));
  printf("\033[33;5m NR5G Band        --> \033[32m %d\n", static_cast<int>(entry.band));
  printf("\033[33;5m Sub Carrier Freq --> \033[32m %d\n", static_cast<int>(entry.scs));
  printf("\033[33;5m RSRP             --> \033[32m%d\n", entry.rsrp);
  printf("\033[33;5m SNR              --> \033[32m%d\n", entry.snr);
  printf("\033[39m%s\n", LYN_DEMO_RULE_60);
}

// A whole screen in colour. The terminal is not reset behind it, deliberately: it keeps blinking until it is told.
static void lyn_demo_print_install_screen(const ox_lyn_dm_info_t &info, const char *) {
  const ox_lyn_install_freq_list_t *list = static_cast<const ox_lyn_install_freq_list_t *>(info.value.ptr);
  lyn_demo_install_toggle = lyn_demo_install_toggle == 0 ? 1 : 0;
  printf("\033[2J");
  printf("\033[31;5;1m\033#6LYN DEMO APP Indication Install Mode - Indication #%d\n", lyn_demo_install_toggle);
  printf("\033[97m%s\n", LYN_DEMO_RULE_60);
  for (int i = 0; i < lyn_demo_bounded(list->count, std::size(list->entries)); ++i) {
    lyn_demo_print_install_entry(list->entries[i]);
  }
}

enum lyn_demo_payload_e {
  LYN_DEMO_NO_PAYLOAD,
  LYN_DEMO_PAYLOAD_KEPT,  // ours, but never freed: deliberate, and the demo client's only leak
  LYN_DEMO_PAYLOAD_FREED
};

// One indication: its display name, its printer and what becomes of its block. Row n is indication n.
struct lyn_demo_ind_t {
  uint32_t id;
  const char *name = nullptr;                                                 // null: an event without one
  void (*print)(const ox_lyn_dm_info_t &info, const char *signal) = nullptr;  // null: not supported
  const char *signal = nullptr;                                               // what the value is, in a signal's line
  lyn_demo_payload_e payload = LYN_DEMO_NO_PAYLOAD;
};

static constexpr lyn_demo_ind_t lyn_demo_ind_rows[] = {
    {.id = OX_LYN_IND_INVALID_E, .name = "Invalid Indication"},
    {.id = OX_LYN_IND_MODEM_STATUS_E, .name = "Modem Status", .print = lyn_demo_print_modem_status},
    {.id = OX_LYN_IND_REG_STATUS_E, .name = "Registration Status", .print = lyn_demo_print_reg_status_ind},
    {.id = OX_LYN_IND_LTE_RSRP_E,
     .name = "LTE Serving Cell RSRP",
     .print = lyn_demo_print_signal,
     .signal = "LTE serving cell RSRP"},
    {.id = OX_LYN_IND_NR5G_RSRP_E,
     .name = "NR 5G Serving Cell RSRP",
     .print = lyn_demo_print_signal,
     .signal = "NR 5G serving cell RSRP"},
    {.id = OX_LYN_IND_LTE_RSRQ_E,
     .name = "LTE Serving Cell RSRQ",
     .print = lyn_demo_print_signal,
     .signal = "LTE serving cell RRSQ"},  // these letters are deliberate
    {.id = OX_LYN_IND_NR5G_RSRQ_E,
     .name = "NR 5G Serving Cell RSRQ",
     .print = lyn_demo_print_signal,
     .signal = "NR 5G serving cell RSRQ"},
    {.id = OX_LYN_IND_LTE_SINR_E,
     .name = "LTE Serving Cell SINR",
     .print = lyn_demo_print_signal,
     .signal = "LTE serving cell SINR"},
    {.id = OX_LYN_IND_NR5G_SINR_E,
     .name = "NR 5G Serving Cell SINR",
     .print = lyn_demo_print_signal,
     .signal = "NR 5G serving cell SINR"},
    {.id = OX_LYN_IND_MTPE_STATUS_E, .print = lyn_demo_print_mtpe_status, .payload = LYN_DEMO_PAYLOAD_KEPT},
    {.id = OX_LYN_IND_QOS_FLOW_E, .print = lyn_demo_print_qos_flow, .payload = LYN_DEMO_PAYLOAD_KEPT},
    {.id = OX_LYN_IND_PPS_CHANGE_E, .print = lyn_demo_print_pps_change, .payload = LYN_DEMO_PAYLOAD_KEPT},
    {.id = OX_LYN_IND_INSTALL_MODE_STATUS_E, .print = lyn_demo_print_install_status},
    {.id = OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E,
     .print = lyn_demo_print_install_screen,
     .payload = LYN_DEMO_PAYLOAD_FREED},
};

static_assert(std::size(lyn_demo_ind_rows) == OX_LYN_IND_COUNT && lyn_demo_in_order(lyn_demo_ind_rows));

const char *lyn_demo_ind_name(uint32_t ind) {
  return lyn_demo_name_of(lyn_demo_ind_rows, ind, "Unknown Indication");
}

static void lyn_demo_on_indication(const ox_lyn_dm_info_t &info) {
  if (info.value_type == OX_LYN_VALUE_NONE_E) {
    printf("LYN DEMO APP CALLBACK - Metric information not valid for indication[%s].\n",
           lyn_demo_ind_name(info.metric));
    return;
  }
  const lyn_demo_ind_t &ind = lyn_demo_ind_rows[info.metric < std::size(lyn_demo_ind_rows) ? info.metric : 0];
  if (ind.print == nullptr) {
    printf("LYN DEMO APP : Invalid indication[%u] - Not Supported!!\n", info.metric);
    return;
  }
  if (ind.payload != LYN_DEMO_NO_PAYLOAD && info.value.ptr == nullptr) {
    return;
  }
  ind.print(info, ind.signal);
  if (ind.payload == LYN_DEMO_PAYLOAD_FREED) {
    free(info.value.ptr);
  }
}

// ---- asynchronous responses ----

// The letters RRSP and RRSQ are deliberate, here and for NR 5G.
static void lyn_demo_print_serving(const ox_lyn_lte_nbr_info_t &info) {
  puts("LYN DEMO APP CALLBACK - LTE neighbor signal information valid.");
  printf("LYN DEMO APP CALLBACK - LTE neighbor cell ID[%u]\n", info.serving.pci);
  printf("LYN DEMO APP CALLBACK - LTE neighbor frequency[%u]\n", info.serving.earfcn);
  if (info.serving.rsrp_valid) {
    printf("LYN DEMO APP CALLBACK - LTE neighbor RRSP[%d]\n", info.serving.rsrp);
  }
  if (info.serving.rsrq_valid) {
    printf("LYN DEMO APP CALLBACK - LTE neighbor RRSQ[%d]\n", info.serving.rsrq);
  }
}

static void lyn_demo_print_plmn(const char *radio, int number, const ox_lyn_plmn_t &plmn) {
  printf("LYN DEMO APP CALLBACK - %s neighbor #%d : PLMN MCC[%u]\n", radio, number, plmn.mcc);
  printf("LYN DEMO APP CALLBACK - %s neighbor #%d : PLMN MNC[%u]\n", radio, number, plmn.mnc);
  printf("LYN DEMO APP CALLBACK - %s neighbor #%d : PLMN PCS[%u]\n", radio, number, plmn.includes_pcs_digit);
}

static void lyn_demo_print_lte_cell(int i, const ox_lyn_lte_nbr_t &cell) {
  printf("LYN DEMO APP CALLBACK - LTE neighbor #%d : Frequency[%u]\n", i, cell.earfcn);
  printf("LYN DEMO APP CALLBACK - LTE neighbor #%d : Cell ID[%u]\n", i, cell.pci);
  if (cell.cgi_valid) {
    printf("LYN DEMO APP CALLBACK - LTE neighbor #%d : Global Cell ID[%u]\n", i, cell.cgi);
  }
  if (!cell.plmn_valid) {
    return;
  }
  // Numbered with the PLMN, not with the neighbour; deliberate, and unlike NR 5G.
  for (int j = 0; j < lyn_demo_bounded(cell.plmn_count, std::size(cell.plmn)); ++j) {
    lyn_demo_print_plmn("LTE", j, cell.plmn[j]);
  }
}

static void lyn_demo_on_lte_neighbours(const ox_lyn_dm_info_t &event) {
  puts("LYN DEMO APP CALLBACK - LTE neighbor information asynchronous response.");
  const lyn_demo_block_t<ox_lyn_lte_nbr_info_t> info(static_cast<ox_lyn_lte_nbr_info_t *>(event.value.ptr));
  if (info == nullptr) {
    puts("LYN DEMO APP CALLBACK - LTE neighbor information asynchronous response extension not valid.");
    return;
  }
  if (info->serving.valid) {
    lyn_demo_print_serving(*info);
  }
  for (int i = 0; i < OX_LYN_LTE_NBR_LEN && info->cells[i].present; ++i) {
    lyn_demo_print_lte_cell(i, info->cells[i]);
  }
}

static void lyn_demo_print_nr5g_nbr(int i, const ox_lyn_nr5g_nbr_t &cell) {
  printf("LYN DEMO APP CALLBACK - NR 5G neighbor #%d : Cell ID[%u]\n", i, cell.pci);
  printf("LYN DEMO APP CALLBACK - NR 5G neighbor #%d : Frequency[%u]\n", i, cell.earfcn);
  if (cell.rsrp_valid) {
    printf("LYN DEMO APP CALLBACK - NR 5G neighbor #%d : RRSP[%d]\n", i, cell.rsrp);
  }
  const int plmns = cell.plmn_valid ? lyn_demo_bounded(cell.plmn_count, std::size(cell.plmn)) : 0;
  for (int j = 0; j < plmns; ++j) {
    lyn_demo_print_plmn("NR 5G", i, cell.plmn[j]);
  }
  const int cgis = cell.cgi_valid ? lyn_demo_bounded(cell.cgi_count, std::size(cell.cgi)) : 0;
  for (int j = 0; j < cgis; ++j) {
    printf("LYN DEMO APP CALLBACK - NR 5G neighbor #%d : CGI[%llu]\n", i, static_cast<unsigned long long>(cell.cgi[j]));
  }
}

static void lyn_demo_on_nr5g_neighbours(const ox_lyn_dm_info_t &event) {
  puts("LYN DEMO APP CALLBACK - NR 5G neighbor information asynchronous response.");
  const lyn_demo_block_t<ox_lyn_nr5g_nbr_info_t> info(static_cast<ox_lyn_nr5g_nbr_info_t *>(event.value.ptr));
  if (info == nullptr) {
    // Unlike the LTE line this one has no line break, deliberately.
    printf("LYN DEMO APP CALLBACK - NR 5G neighbor information asynchronous response extension not valid.");
    return;
  }
  for (int i = 0; i < OX_LYN_NR5G_NBR_LEN && info->cells[i].present; ++i) {
    lyn_demo_print_nr5g_nbr(i, info->cells[i]);
  }
}

static void lyn_demo_print_location(const ox_lyn_location_t &location) {
  puts("\n Location info Details: ");
  printf(" LocationFlagsMask is %d   \n", static_cast<int>(location.flags));
  printf(" Timestamp is%lld \n", static_cast<long long>(location.timestamp));
  printf(" Latitude is %f \n", location.latitude);
  printf(" Longitude is %f \n", location.longitude);
  printf(" Altitude is %f \n", location.altitude);
  printf(" Speed is %f \n", static_cast<double>(location.speed));
  printf(" Bearing is %f \n", static_cast<double>(location.bearing));
  printf(" HorizontalAccuracy is %f \n", static_cast<double>(location.horizontal_accuracy));
  printf(" VerticalAccuracy is %f \n", static_cast<double>(location.vertical_accuracy));
  printf(" SpeedAccuracy is %f \n ", static_cast<double>(location.speed_accuracy));
  printf(" BearingAccuracy is %f \n ", static_cast<double>(location.bearing_accuracy));
  printf(" Technology Flagmask is %d \n ", static_cast<int>(location.tech_mask));
  if ((location.flags & OX_LYN_LOC_FLAG_EXTRA_TIME_0_E) != 0) {
    printf(" Timestamp is %lld \n", static_cast<long long>(location.extra_time[0]));
  }
  if ((location.flags & OX_LYN_LOC_FLAG_EXTRA_TIME_1_E) != 0) {
    printf(" Timestamp is %lld \n", static_cast<long long>(location.extra_time[1]));
  }
}

static void lyn_demo_on_single_shot(const ox_lyn_dm_info_t &event) {
  const lyn_demo_block_t<ox_lyn_loc_single_shot_t> shot(static_cast<ox_lyn_loc_single_shot_t *>(event.value.ptr));
  if (shot == nullptr) {
    return;
  }
  printf("single shot location response is %d \n", static_cast<int>(shot->response));
  const bool located =
      shot->response == OX_LYN_LOC_RESPONSE_SUCCESS_E || shot->response == OX_LYN_LOC_RESPONSE_TIMEOUT_E;
  if (shot->kind == OX_LYN_LOC_KIND_RESULT_E && located) {
    lyn_demo_print_location(shot->location);
  }
  if (shot->kind == OX_LYN_LOC_KIND_STOP_E) {
    printf("single shot location stop successful is %d \n", static_cast<int>(shot->response));
  }
}

static void lyn_demo_on_batch(const ox_lyn_dm_info_t &event) {
  const lyn_demo_block_t<ox_lyn_loc_batch_t> batch(static_cast<ox_lyn_loc_batch_t *>(event.value.ptr));
  if (batch == nullptr) {
    return;
  }
  printf("batching_routine_location_callback, batching status: %d, pos cnt %d \n", batch->status, batch->count);
  if (batch->status != OX_LYN_LOC_BATCH_LOCATIONS_E) {
    return;
  }
  const lyn_demo_block_t<ox_lyn_location_t[]> locations(batch->locations);
  const bool printed = batch->response == OX_LYN_LOC_RESPONSE_SUCCESS_E && locations != nullptr;
  for (int i = 0; printed && i < batch->count; ++i) {
    puts("########################################################### ");
    printf("Batching location entry %d : \n", i);
    lyn_demo_print_location(batch->locations[i]);
  }
}

// One response: its display name and its printer, which also frees the block. Row n is response n.
struct lyn_demo_async_t {
  uint32_t id;
  const char *name = nullptr;                              // null: an event without one
  void (*print)(const ox_lyn_dm_info_t &event) = nullptr;  // null: not supported
};

static constexpr lyn_demo_async_t lyn_demo_async_rows[] = {
    {.id = OX_LYN_ASYNC_INVALID_E, .name = "Invalid Async Response"},
    {.id = OX_LYN_ASYNC_LTE_NBR_INFO_E, .name = "LTE Neighbor Info", .print = lyn_demo_on_lte_neighbours},
    {.id = OX_LYN_ASYNC_NR5G_NBR_INFO_E, .name = "NR 5G Neighbor Info", .print = lyn_demo_on_nr5g_neighbours},
    {.id = OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, .print = lyn_demo_on_single_shot},
    {.id = OX_LYN_ASYNC_LOC_BATCH_E, .print = lyn_demo_on_batch},
};
static_assert(std::size(lyn_demo_async_rows) == OX_LYN_ASYNC_COUNT && lyn_demo_in_order(lyn_demo_async_rows));

const char *lyn_demo_async_name(uint32_t async_resp) {
  return lyn_demo_name_of(lyn_demo_async_rows, async_resp, "Unknown Async Response");
}

// False: the response is unknown.
static bool lyn_demo_on_async_response(const ox_lyn_dm_info_t &event) {
  if (event.value_type == OX_LYN_VALUE_NONE_E) {
    printf("LYN DEMO APP CALLBACK - Metric information not valid for async response[%s].\n",
           lyn_demo_async_name(event.metric));
    return true;
  }
  const lyn_demo_async_t &response =
      lyn_demo_async_rows[event.metric < std::size(lyn_demo_async_rows) ? event.metric : 0];
  if (response.print == nullptr) {
    printf("LYN DEMO APP : Asynchronous response[%u] - Not Supported!!\n", event.metric);
    return false;
  }
  response.print(event);
  return true;
}

void lyn_demo_user_cb(ox_lyn_hndl_t, ox_lyn_dm_info_t *dm_info, uint32_t) {
  if (dm_info == nullptr) {
    return;
  }
  bool known = true;
  if (dm_info->record_type == OX_LYN_RECORD_IND_E) {
    lyn_demo_on_indication(*dm_info);
  } else if (dm_info->record_type == OX_LYN_RECORD_ASYNC_E) {
    known = lyn_demo_on_async_response(*dm_info);
  } else {
    printf("LYN DEMO APP : Info type[%u] - Not Supported!!\n", dm_info->record_type);
    known = false;
  }
  if (known) {  // an event that nobody knows is not freed, deliberately: what hangs on it is not known either
    free(dm_info);
  }
}
