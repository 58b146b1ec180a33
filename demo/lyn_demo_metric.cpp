/* SPDX-License-Identifier: Apache-2.0 */
// Options 7 and 8: one metric, or a list of metrics in one call. The metrics are one table: display name, what to hand
// in or ask for before the request, how to print the answer. The two options print a few answers differently, which the
// form tells. Metrics without a printer are answered later, through the callback.
#include <cstdio>
#include <iterator>

#include "lyn_demo.h"
#include "lyn_demo_prompt.h"

enum lyn_demo_form_e {
  LYN_DEMO_SINGLE,  // option 7
  LYN_DEMO_LIST     // option 8
};

// Buffers and parameter blocks of one option 7 or 8. Entries of one kind in a list share theirs, so that the last
// answer of a prompt sequence wins.
struct lyn_demo_get_blocks_t {
  ox_lyn_lte_cqi_t lte_cqi;
  ox_lyn_nr5g_cqi_t nr5g_cqi;
  ox_lyn_lte_cell_lock_t lte_lock;
  ox_lyn_nr5g_cell_lock_t nr5g_lock;
  ox_lyn_mtpe_net_params_t mtpe_client;
  ox_lyn_mtpe_req_t mtpe_test;
  ox_lyn_loc_single_shot_req_t single_shot;
  ox_lyn_loc_batching_req_t batching;
};

// One metric. Row n is metric n.
struct lyn_demo_metric_t {
  uint32_t id;
  const char *name;
  // Fills the record's value; false: the questions were abandoned, and the value stays 0.
  bool (*prepare)(lyn_demo_get_blocks_t *blocks, ox_lyn_dm_info_t *info, lyn_demo_form_e form) = nullptr;
  const char *abandoned = nullptr;  // what to say then
  void (*print)(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e form) = nullptr;
  bool allocated = false;  // the module answers with a block that we free
};

// ---- preparation ----

template <auto Buffer>
static bool lyn_demo_give_buffer(lyn_demo_get_blocks_t *blocks, ox_lyn_dm_info_t *info, lyn_demo_form_e) {
  info->value.ptr = &(blocks->*Buffer);
  return true;
}

static bool lyn_demo_prepare_stats(lyn_demo_get_blocks_t *, ox_lyn_dm_info_t *info, lyn_demo_form_e form) {
  info->value.i64 = lyn_demo_ask_profile_handle(
      form == LYN_DEMO_SINGLE ? "Please enter the selected profile handle number from the WWAN profiles list"
                              : "Please enter the selected profile handle number");
  if (form == LYN_DEMO_LIST) {
    printf("metric id %d\n", static_cast<int>(info->metric));
  }
  return true;
}

// Fills one block by its prompt sequence and hands it in.
template <auto Block, auto Ask>
static bool lyn_demo_ask_block(lyn_demo_get_blocks_t *blocks, ox_lyn_dm_info_t *info, lyn_demo_form_e) {
  if (!Ask(&(blocks->*Block))) {
    return false;
  }
  info->value.ptr = &(blocks->*Block);
  return true;
}

// ---- printing ----

static void lyn_demo_print_reg_status(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e) {
  printf("[%s] - %u\n", name, info.value.u32);
}

static void lyn_demo_print_number(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e) {
  printf("[%s] - %lld\n", name, static_cast<long long>(info.value.i64));
}

static void lyn_demo_print_octets(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e) {
  const int64_t *octets = info.value.i64_array;
  printf("[%s] - %lld, %lld, %lld\n", name, static_cast<long long>(octets[0]), static_cast<long long>(octets[1]),
         static_cast<long long>(octets[2]));
}

template <typename Cqi>
static void lyn_demo_print_cqi(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e) {
  const Cqi *cqi = static_cast<const Cqi *>(info.value.ptr);
  printf("[%s] -\n", name);
  for (int i = 0; i < lyn_demo_bounded(cqi->count, std::size(cqi->entries)); ++i) {
    const ox_lyn_cqi_entry_t &entry = cqi->entries[i];
    printf("CQI#%d : cw_cqi_len [%u]\n", i, entry.cw_cqi_len);
    printf("CQI#%d : cw_cqi_0[%u], cw_cqi_1[%u]\n", i, entry.cw_cqi[0], entry.cw_cqi[1]);
  }
}

static void lyn_demo_print_lte_lock(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e form) {
  const ox_lyn_lte_cell_lock_t *lock = static_cast<const ox_lyn_lte_cell_lock_t *>(info.value.ptr);
  if (lock->count == 0) {
    printf(form == LYN_DEMO_SINGLE ? "[%s] - cell lock list not present\n"
                                   : "Metric ID [%s] - cell lock list not present\n",
           name);
    return;
  }
  printf("[%s] -\n", name);
  for (int i = 0; i < lyn_demo_bounded(lock->count, std::size(lock->cells)); ++i) {
    printf("Cell_Lock#%d : pci[%u]\n", i, lock->cells[i].pci);
    printf("Cell_Lock#%d : freq[%u]\n", i, lock->cells[i].freq);
  }
}

// There is one cell, numbered 0.
static void lyn_demo_print_nr5g_cell(const ox_lyn_nr5g_cell_lock_t *lock) {
  const auto mask = [lock](int i) { return static_cast<unsigned long long>(lock->band_mask[i]); };
  printf("Cell_Lock#%d : pci[%u]\n", 0, lock->pci);
  printf("Cell_Lock#%d : freq[%u]\n", 0, lock->arfcn);
  printf("Cell_Lock#%d : scs[%u]\n", 0, lock->scs);
  printf("Cell_Lock#%d : band bits_1_64[%llu]\n", 0, mask(0));
  printf("Cell_Lock#%d : band bits_65_128[%llu]\n", 0, mask(1));
  printf("Cell_Lock#%d : band bits_129_192[%llu]\n", 0, mask(2));
  printf("Cell_Lock#%d : band bits_193_256[%llu]\n", 0, mask(3));
  printf("Cell_Lock#%d : band bits_257_320[%llu]\n", 0, mask(4));
  printf("Cell_Lock#%d : band bits_321_384[%llu]\n", 0, mask(5));
  printf("Cell_Lock#%d : band bits_385_448[%llu]\n", 0, mask(6));
  printf("Cell_Lock#%d : band bits_449_512[%llu]\n", 0, mask(7));
}

static void lyn_demo_print_arfcn_list(const ox_lyn_nr5g_cell_lock_t *lock, lyn_demo_form_e form) {
  const int capacity = static_cast<int>(std::size(lock->arfcn_list));
  const int count = lyn_demo_bounded(lock->arfcn_list_len, std::size(lock->arfcn_list));
  for (int i = 0; i < count; ++i) {
    printf("Cell_Lock %d arfcn based freq[%u]\n", i, static_cast<unsigned>(lock->arfcn_list[i].arfcn));
    if (form == LYN_DEMO_SINGLE) {
      printf("Cell lock %d arfcn based  scs [%u]\n", i, static_cast<unsigned>(lock->arfcn_list[i].scs));
    }
  }
  // A list answers with one spacing, that of the slot behind its last entry; deliberately kept.
  if (form == LYN_DEMO_LIST) {
    printf("Cell lock %d arfcn based  scs [%u]\n", count,
           count < capacity ? static_cast<unsigned>(lock->arfcn_list[count].scs) : 0U);
  }
}

// The answer has the modem's own lock types, which are read here as if they were the control's.
static void lyn_demo_print_nr5g_lock(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e form) {
  const ox_lyn_nr5g_cell_lock_t *lock = static_cast<const ox_lyn_nr5g_cell_lock_t *>(info.value.ptr);
  printf("[%s] -\n", name);
  printf("Cell lock type %d\n", static_cast<int>(lock->lock_type));
  if (lock->lock_type == OX_LYN_LOCK_CELL_E) {
    lyn_demo_print_nr5g_cell(lock);
  } else if (lock->lock_type == OX_LYN_LOCK_ARFCN_LIST_E) {
    lyn_demo_print_arfcn_list(lock, form);
  } else {
    printf("[%s] - cell lock list not present\n", name);
  }
}

static void lyn_demo_print_mcs_lengths(const ox_lyn_mcs_t *mcs, const char *name, lyn_demo_form_e form) {
  printf("LYN DEMO APP: Getting MCS metric Id ->[%s]\n", name);
  // A list answers with the downlink length twice; deliberately kept.
  printf("LYN DM APP: uplink  length %d downlink lenght %d\n",
         static_cast<int>(form == LYN_DEMO_SINGLE ? mcs->ul_len : mcs->dl_len), static_cast<int>(mcs->dl_len));
}

template <size_t N>
static void lyn_demo_print_modulations(const char *radio, const char *link, uint32_t count, const uint32_t (&mods)[N]) {
  for (int i = 0; i < lyn_demo_bounded(count, N); ++i) {
    printf("LYN DEMO APP: Getting %s MCS %s modulation type ->[%d]\n", radio, link, static_cast<int>(mods[i]));
  }
}

static void lyn_demo_print_mcs(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e form) {
  const ox_lyn_mcs_t *mcs = static_cast<const ox_lyn_mcs_t *>(info.value.ptr);
  const bool lte = info.metric == OX_LYN_GET_LTE_MCS_E;
  const char *radio = lte ? "LTE" : "NR5G";
  lyn_demo_print_mcs_lengths(mcs, name, form);
  lyn_demo_print_modulations(radio, "downlink", mcs->dl_len, mcs->dl_mod);
  // LTE's uplink alone has two blanks behind it.
  lyn_demo_print_modulations(radio, lte && form == LYN_DEMO_SINGLE ? "uplink " : "uplink", mcs->ul_len, mcs->ul_mod);
}

// The primary cell is the value's low word; count secondary cells stand behind it.
static void lyn_demo_print_ca_stats(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e form) {
  printf("LYN DEMO APP : Modem Metric ID [%s]\n", name);
  printf("LYN DEMO APP : CA stats-cphy ca pcell info bandwidth - %d\n", static_cast<int>(info.value.u32));
  for (int i = 0; i < lyn_demo_bounded(info.count, std::size(info.value.i64_array) - 1); ++i) {
    printf(form == LYN_DEMO_SINGLE ? "LYN DEMO APP : CA stats ca scell info list\tinstance-%d\n"
                                   : "LYN DEMO APP : CA stats ca scell info list instance-%d\n",
           i);
    printf("LYN DEMO APP : CA stats scell bandwidth- %d\n\n", static_cast<int>(info.value.i64_array[i + 1]));
  }
}

static void lyn_demo_print_endc(const ox_lyn_dm_info_t &info, const char *, lyn_demo_form_e form) {
  const ox_lyn_endc_mode_t *endc = static_cast<const ox_lyn_endc_mode_t *>(info.value.ptr);
  printf("LYN DEMO APP: Modem Metrics ENDC mode valid %d\n", endc->valid);
  printf("LYN DEMO APP: Modem Metrics ENDC mode available %d\n", endc->endc_available);
  printf(form == LYN_DEMO_SINGLE ? "LYN DEMO APP: Modem Metrics ENDC mode restrict dcnr valid %d\n"
                                 : "LYN DEMO APP: Modem Metrics ENDC mode restrict_dcnr_valid %d\n",
         endc->restrict_dcnr_valid);
  printf("LYN DEMO APP: Modem Metrics ENDC mode restrict_dcnr %d\n", endc->restrict_dcnr);
}

static void lyn_demo_print_rrc(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e form) {
  const char *radio = info.metric == OX_LYN_GET_LTE_RRC_STATE_E ? "LTE" : "NR5G";
  printf("LYN DEMO APP : Modem Metric ID [%s]\n", name);
  printf("LYN DEMO APP : Modem Metrics %s RRC state - %lld\n", radio,
         form == LYN_DEMO_SINGLE ? static_cast<int>(info.value.u32) : static_cast<long long>(info.value.i64));
}

static void lyn_demo_print_scs(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e) {
  printf("LYN DEMO APP : Modem Metric ID [%s]\n", name);
  printf("LYN DEMO APP : Modem Metrics NR5G sub carrier spacing - %d\n", static_cast<int>(info.value.u32));
}

static void lyn_demo_print_rf_bandwidth(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e) {
  printf("LYN DEMO APP: Modem Metric ID ->[%s]\n", name);
  for (int i = 0; i < lyn_demo_bounded(info.count, std::size(info.value.i64_array)); ++i) {
    printf("LYN DEMO APP: Modem RF Bandwidth type->[%d]\n", static_cast<int>(info.value.i64_array[i]));
  }
}

static const char *lyn_demo_subscription_name(uint32_t subscription) {
  switch (subscription) {
    case OX_LYN_SUBSCRIPTION_DEFAULT_E:
      return "Default";
    case OX_LYN_SUBSCRIPTION_PRIMARY_E:
      return "Primary";
    case OX_LYN_SUBSCRIPTION_SECONDARY_E:
      return "Secondary";
    default:
      return "Unknown";
  }
}

static const char *lyn_demo_technology_name(uint32_t technology) {
  return technology == OX_LYN_TECHNOLOGY_ANY_E ? "ANY" : technology == OX_LYN_TECHNOLOGY_3GPP_E ? "3gpp" : "3gpp2";
}

static const char *lyn_demo_ip_family_name(uint32_t ip_family) {
  return ip_family == OX_LYN_IP_FAMILY_V4_E ? "V4" : ip_family == OX_LYN_IP_FAMILY_V6_E ? "V6" : "V4V6";
}

static void lyn_demo_print_profile_table(const ox_lyn_wwan_profile_list_t *list) {
  static constexpr const char *RULE =
      "   +---------+----------+------+------+------------+---------------------------------+";
  puts(RULE);
  puts("   | Profile | Subs_Id  | Tech |  IP  | Profile_Id | Profile_Id |       APN Name     |");
  puts("   |         |          |      |      |  (3gpp)    |   (3gpp2)  |                    |");
  puts(RULE);
  for (int i = 0; i < lyn_demo_bounded(list->count, std::size(list->profiles)); ++i) {
    const ox_lyn_wwan_profile_t &profile = list->profiles[i];
    printf("   |%9d|%10s|%6s|%6s|%12d|%12d|%20s|\n", static_cast<int>(profile.profile_index),
           lyn_demo_subscription_name(profile.subscription), lyn_demo_technology_name(profile.technology),
           lyn_demo_ip_family_name(profile.ip_family), profile.profile_id_3gpp, profile.profile_id_3gpp2,
           profile.apn_name);
  }
  puts(RULE);
}

static void lyn_demo_print_profiles(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e form) {
  const ox_lyn_wwan_profile_list_t *list = static_cast<const ox_lyn_wwan_profile_list_t *>(info.value.ptr);
  printf(form == LYN_DEMO_SINGLE ? "LYN DEMO APP: WWAN PROFILE INDEX metric id YRP success->[%s]\n"
                                 : "LYN DEMO APP: MTPE metric id YRP success->[%s]\n",
         name);
  if (list->count == 0) {
    printf("Only Profile-1 is available %d", static_cast<int>(list->profiles[0].profile_index));
  } else {
    lyn_demo_print_profile_table(list);
  }
}

static void lyn_demo_print_stats_single(const ox_lyn_wwan_stats_t *stats) {
  printf("\nbytes_rx: %llu\n", static_cast<unsigned long long>(stats->bytes_rx));
  printf("\nbytes_tx: %llu\n", static_cast<unsigned long long>(stats->bytes_tx));
  printf("\npkts_rx: %d\n", static_cast<int>(stats->pkts_rx));
  printf("\npkts_tx: %d\n", static_cast<int>(stats->pkts_tx));
  printf("\npkts_dropped_rx: %d\n", static_cast<int>(stats->pkts_dropped_rx));
  printf("\npkts_dropped_tx: %d\n", static_cast<int>(stats->pkts_dropped_tx));
}

// A list answers with the low 32 bits of the byte counters, deliberately.
static void lyn_demo_print_stats_list(const ox_lyn_wwan_stats_t *stats) {
  const auto low = [](uint64_t counter) { return static_cast<unsigned long>(counter & UINT32_MAX); };
  printf("\nbytes_rx: %lu", low(stats->bytes_rx));
  printf("\nbytes_tx: %lu", low(stats->bytes_tx));
  printf("\npkts_rx: %lu", low(stats->pkts_rx));
  printf("\npkts_tx: %lu", low(stats->pkts_tx));
  printf("\npkts_dropped_rx: %lu", low(stats->pkts_dropped_rx));
  printf("\npkts_dropped_tx: %lu\n", low(stats->pkts_dropped_tx));
}

static void lyn_demo_print_stats(const ox_lyn_dm_info_t &info, const char *, lyn_demo_form_e form) {
  const ox_lyn_wwan_stats_t *stats = static_cast<const ox_lyn_wwan_stats_t *>(info.value.ptr);
  puts("\nWWAN Stats Fetched.");
  if (form == LYN_DEMO_SINGLE) {
    lyn_demo_print_stats_single(stats);
  } else {
    lyn_demo_print_stats_list(stats);
  }
}

static void lyn_demo_print_mtpe_server(const ox_lyn_dm_info_t &info, const char *name, lyn_demo_form_e) {
  const ox_lyn_mtpe_server_config_t *config = static_cast<const ox_lyn_mtpe_server_config_t *>(info.value.ptr);
  printf("LYN DEMO APP: MTPE metric id YRP success->[%s]\n", name);
  printf("LYN DEMO APP: MTPE bandwidth %d and MTU %d", config->bandwidth_kbps, config->mtu);
}

static void lyn_demo_print_mtpe_started(const ox_lyn_dm_info_t &, const char *name, lyn_demo_form_e) {
  printf("LYN DEMO APP: MTPE metric id [%s]\n", name);
  puts("LYN DEMO APP: MTPE test started successfully ");
}

// Deliberately said for an entry of a list as well, where the API asks for nothing.
static void lyn_demo_print_qos_requested(const ox_lyn_dm_info_t &, const char *name, lyn_demo_form_e) {
  printf("LYN DEMO APP: QOS metric id [%s]\n", name);
  puts("LYN DEMO APP: Network QOS requested successfully");
}

// ---- the table ----

static constexpr lyn_demo_metric_t lyn_demo_metric_rows[] = {
    {.id = OX_LYN_GET_INVALID_E, .name = "Invalid Request"},
    {.id = OX_LYN_GET_REG_STATUS_E, .name = "Registration Status", .print = lyn_demo_print_reg_status},
    {.id = OX_LYN_GET_LTE_SERV_EARFCN_E, .name = "LTE Serving Cell EARFCN", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_NR5G_SERV_EARFCN_E, .name = "NR 5G Serving Cell EARFCN", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_LTE_SERV_PCI_E, .name = "LTE Serving Cell PCI", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_NR5G_SERV_PCI_E, .name = "NR 5G Serving Cell PCI", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_LTE_SERV_CGI_E, .name = "LTE Serving Cell CGI", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_NR5G_SERV_CGI_E, .name = "NR 5G Serving Cell CGI", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_LTE_SERV_PLMN_E, .name = "LTE Serving Cell PLMN", .print = lyn_demo_print_octets},
    {.id = OX_LYN_GET_NR5G_SERV_PLMN_E, .name = "NR 5G Serving Cell PLMN", .print = lyn_demo_print_octets},
    {.id = OX_LYN_GET_LTE_SERV_RSRP_E, .name = "LTE Serving Cell RSRP", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_NR5G_SERV_RSRP_E, .name = "NR 5G Serving Cell RSRP", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_LTE_SERV_RSRQ_E, .name = "LTE Serving Cell RSRQ", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_NR5G_SERV_RSRQ_E, .name = "NR 5G Serving Cell RSRQ", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_LTE_SERV_SINR_E, .name = "LTE Serving Cell SINR", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_NR5G_SERV_SINR_E, .name = "NR 5G Serving Cell SINR", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_LTE_SERV_CQI_E,
     .name = "LTE Serving Cell CQI",
     .prepare = lyn_demo_give_buffer<&lyn_demo_get_blocks_t::lte_cqi>,
     .print = lyn_demo_print_cqi<ox_lyn_lte_cqi_t>},
    {.id = OX_LYN_GET_NR5G_SERV_CQI_E,
     .name = "NR 5G Serving Cell CQI",
     .prepare = lyn_demo_give_buffer<&lyn_demo_get_blocks_t::nr5g_cqi>,
     .print = lyn_demo_print_cqi<ox_lyn_nr5g_cqi_t>},
    {.id = OX_LYN_GET_LTE_SERV_TAC_E, .name = "LTE Serving cell TAC", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_NR5G_SERV_TAC_E, .name = "NR 5G Serving Cell TAC", .print = lyn_demo_print_octets},
    {.id = OX_LYN_GET_LTE_SERV_TX_POWER_E, .name = "LTE Serving cell TX Power", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_NR5G_SERV_TX_POWER_E, .name = "NR 5G Serving cell TX Power", .print = lyn_demo_print_number},
    {.id = OX_LYN_GET_LTE_NBR_EARFCN_E, .name = "LTE Neighboring Cell EARFCN"},
    {.id = OX_LYN_GET_NR5G_NBR_EARFCN_E, .name = "NR 5G Neighboring Cell EARFCN"},
    {.id = OX_LYN_GET_LTE_NBR_PCI_E, .name = "LTE Neighboring Cell PCI"},
    {.id = OX_LYN_GET_NR5G_NBR_PCI_E, .name = "NR 5G Neighboring Cell PCI"},
    {.id = OX_LYN_GET_LTE_NBR_CGI_E, .name = "LTE Neighboring Cell CGI"},
    {.id = OX_LYN_GET_NR5G_NBR_CGI_E, .name = "NR 5G Neighboring Cell CGI"},
    {.id = OX_LYN_GET_LTE_NBR_PLMN_E, .name = "LTE Neighboring Cell PLMN"},
    {.id = OX_LYN_GET_NR5G_NBR_PLMN_E, .name = "NR 5G Neighboring Cell PLMN"},
    {.id = OX_LYN_GET_LTE_NBR_RSRP_E, .name = "LTE Neighboring Cell RSRP"},
    {.id = OX_LYN_GET_NR5G_NBR_RSRP_E, .name = "NR 5G Neighboring Cell RSRP"},
    {.id = OX_LYN_GET_LTE_NBR_RSRQ_E, .name = "LTE Neighboring Cell RSRQ"},
    {.id = OX_LYN_GET_LTE_CELL_LOCK_LIST_E,
     .name = "LTE Cell Lock List",
     .prepare = lyn_demo_give_buffer<&lyn_demo_get_blocks_t::lte_lock>,
     .print = lyn_demo_print_lte_lock},
    {.id = OX_LYN_GET_NR5G_CELL_LOCK_LIST_E,
     .name = "NR 5G Cell Lock List",
     .prepare = lyn_demo_give_buffer<&lyn_demo_get_blocks_t::nr5g_lock>,
     .print = lyn_demo_print_nr5g_lock},
    {.id = OX_LYN_GET_LTE_MCS_E, .name = "Modem MCS LTE Info", .print = lyn_demo_print_mcs, .allocated = true},
    {.id = OX_LYN_GET_NR5G_MCS_E, .name = "Modem MCS NR 5G Info", .print = lyn_demo_print_mcs, .allocated = true},
    {.id = OX_LYN_GET_LTE_CA_STATS_E, .name = "Modem CA stats LTE INFO", .print = lyn_demo_print_ca_stats},
    {.id = OX_LYN_GET_LTE_ENDC_MODE_E,
     .name = "Modem ENDC LTE mode Info",
     .print = lyn_demo_print_endc,
     .allocated = true},
    {.id = OX_LYN_GET_LTE_RRC_STATE_E, .name = "Modem RRC state LTE info", .print = lyn_demo_print_rrc},
    {.id = OX_LYN_GET_NR5G_RRC_STATE_E, .name = "Modem RRC state NR5G info", .print = lyn_demo_print_rrc},
    {.id = OX_LYN_GET_NR5G_SCS_E, .name = "Modem Sub-carrier spacing NR5G info", .print = lyn_demo_print_scs},
    {.id = OX_LYN_GET_LTE_RF_BANDWIDTH_E, .name = "Modem RF bandwidth LTE info", .print = lyn_demo_print_rf_bandwidth},
    {.id = OX_LYN_GET_NR5G_RF_BANDWIDTH_E,
     .name = "Modem RF bandwidth NR5G info",
     .print = lyn_demo_print_rf_bandwidth},
    {.id = OX_LYN_GET_WWAN_PROFILE_INDEX_E,
     .name = "Get WWAN profile Index",
     .print = lyn_demo_print_profiles,
     .allocated = true},
    {.id = OX_LYN_GET_IPV4_STATS_E,
     .name = "Get IPV4 statistics",
     .prepare = lyn_demo_prepare_stats,
     .print = lyn_demo_print_stats,
     .allocated = true},
    {.id = OX_LYN_GET_IPV6_STATS_E,
     .name = "Get IPV6 statistics",
     .prepare = lyn_demo_prepare_stats,
     .print = lyn_demo_print_stats,
     .allocated = true},
    {.id = OX_LYN_GET_MTPE_SERVER_CONFIG_E,
     .name = "Get MTPE Server Config",
     .prepare = lyn_demo_ask_block<&lyn_demo_get_blocks_t::mtpe_client, lyn_demo_ask_mtpe_client>,
     .abandoned = "failed to get the MTPE test info",
     .print = lyn_demo_print_mtpe_server,
     .allocated = true},
    {.id = OX_LYN_GET_MTPE_LTE_INFO_E,
     .name = "Get MTPE LTE Info Req",
     .prepare = lyn_demo_ask_block<&lyn_demo_get_blocks_t::mtpe_test, lyn_demo_ask_mtpe_test>,
     .abandoned = "failed to Configure MTPE test info",
     .print = lyn_demo_print_mtpe_started},
    {.id = OX_LYN_GET_MTPE_NR5G_INFO_E,
     .name = "Get MTPE NR5G Info Req",
     .prepare = lyn_demo_ask_block<&lyn_demo_get_blocks_t::mtpe_test, lyn_demo_ask_mtpe_test>,
     .abandoned = "failed to Configure MTPE test info",
     .print = lyn_demo_print_mtpe_started},
    {.id = OX_LYN_GET_LOC_SINGLE_SHOT_E,
     .name = "GPS Get Single Shot",
     .prepare = lyn_demo_ask_block<&lyn_demo_get_blocks_t::single_shot, lyn_demo_ask_single_shot>},
    {.id = OX_LYN_GET_LOC_ROUTINE_BATCHING_E,
     .name = "GPS Start Batching",
     .prepare = lyn_demo_ask_block<&lyn_demo_get_blocks_t::batching, lyn_demo_ask_batching>},
    {.id = OX_LYN_GET_IPV4_QOS_TFT_E, .name = "Get IPV4 Network QOS/TFT info", .print = lyn_demo_print_qos_requested},
    {.id = OX_LYN_GET_IPV6_QOS_TFT_E, .name = "Get IPV6 Network QOS/TFT info", .print = lyn_demo_print_qos_requested},
};

static_assert(std::size(lyn_demo_metric_rows) == OX_LYN_GET_COUNT && lyn_demo_in_order(lyn_demo_metric_rows));

// The row of a metric; of the invalid request for a number that is none.
static const lyn_demo_metric_t &lyn_demo_metric_of(int64_t metric) {
  return lyn_demo_metric_rows[metric > 0 && metric < OX_LYN_GET_COUNT ? metric : 0];
}

const char *lyn_demo_metric_name(uint32_t metric) {
  return lyn_demo_metric_of(metric).name;
}

// ---- the options ----

// Announces and fills one zeroed record. False: its prompt sequence was abandoned.
static bool lyn_demo_prepare(int32_t option, lyn_demo_get_blocks_t *blocks, ox_lyn_dm_info_t *info,
                             lyn_demo_form_e form) {
  const lyn_demo_metric_t &metric = lyn_demo_metric_of(option);
  printf("LYN DEMO APP : Getting LTE/5G [%s] metric information.\n", metric.name);
  info->record_type = OX_LYN_RECORD_GET_E;
  info->metric = metric.id;
  if (metric.prepare == nullptr || metric.prepare(blocks, info, form)) {
    return true;
  }
  puts(metric.abandoned);
  return false;
}

// Whether the module has put a block in the place of the given value. A success may be without one (metric 38, when
// there is no memory); a failed request may have one: metrics 35 and 36 without an uplink, and those of a list that
// were answered before another one failed.
static bool lyn_demo_has_block(const ox_lyn_dm_info_t &info, int64_t given) {
  return info.value.ptr != nullptr && info.value.i64 != given;
}

static void lyn_demo_print_result(const ox_lyn_dm_info_t &info, int64_t given, lyn_demo_form_e form) {
  const lyn_demo_metric_t &metric = lyn_demo_metric_of(info.metric);
  if (metric.print != nullptr && (!metric.allocated || lyn_demo_has_block(info, given))) {
    metric.print(info, metric.name, form);
  }
}

static void lyn_demo_release_result(const ox_lyn_dm_info_t &info, int64_t given) {
  if (lyn_demo_metric_of(info.metric).allocated && lyn_demo_has_block(info, given)) {
    free(info.value.ptr);
  }
}

int32_t lyn_demo_get_info(const int32_t *options, uint32_t count) {
  lyn_demo_get_blocks_t blocks = {};
  ox_lyn_dm_info_t info = {};
  if (count < 2) {
    puts("LYN DEMO APP : Getting LTE/5G/GPS information failed - invalid options passed.");
    return 0;
  }
  if (!lyn_demo_prepare(options[1], &blocks, &info, LYN_DEMO_SINGLE)) {
    return -1;
  }
  const char *name = lyn_demo_metric_name(info.metric);
  const int64_t given = info.value.i64;
  const int32_t status = ox_lyn_get_info(lyn_demo_hndl, &info);
  if (status == OX_LYN_SUCCESS) {
    lyn_demo_print_result(info, given, LYN_DEMO_SINGLE);
  } else {
    printf("LYN DEMO APP : Getting LTE/5G [%s] metric information failed with status[%d].\n", name, status);
  }
  lyn_demo_release_result(info, given);
  return status;
}

int32_t lyn_demo_get_info_list(const int32_t *options, uint32_t count) {
  lyn_demo_get_blocks_t blocks = {};
  int64_t given[LYN_DEMO_MAX_OPTIONS] = {};
  if (count < 2) {
    puts("LYN DEMO APP : Getting LTE/5G/GPS information list failed - invalid options passed.");
    return 0;
  }
  const uint32_t entries = count - 1;
  const lyn_demo_block_t<ox_lyn_dm_info_t[]> infos(
      static_cast<ox_lyn_dm_info_t *>(calloc(entries, sizeof(ox_lyn_dm_info_t))));
  if (infos == nullptr) {
    // The indication wording is deliberate.
    puts("LYN DEMO APP : Memory allocation failure for LYN DM indication list");
    return 0;
  }
  // Records behind an abandoned prompt sequence stay zero; the list is sent all the same.
  for (uint32_t i = 0; i < entries && lyn_demo_prepare(options[i + 1], &blocks, &infos[i], LYN_DEMO_LIST); ++i) {
    given[i] = infos[i].value.i64;
  }
  const int32_t status = ox_lyn_get_info_list(lyn_demo_hndl, infos.get(), entries);
  if (status != OX_LYN_SUCCESS) {
    printf("LYN DEMO APP : Getting LTE/5G/GPS metric list information failed with status[%d].\n", status);
  }
  for (uint32_t i = 0; i < entries; ++i) {
    if (status == OX_LYN_SUCCESS) {
      lyn_demo_print_result(infos[i], given[i], LYN_DEMO_LIST);
    }
    lyn_demo_release_result(infos[i], given[i]);
  }
  return status;
}
