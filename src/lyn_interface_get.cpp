/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Get info: the metric catalogue and the two operations that read it.
 *
 * The catalogue has one row per metric. A metric that the NAS client answers names its query, its conversion and the
 * message for an answer without the item; every other metric names the function that answers or starts it. Adding a
 * metric is adding a row.
 */
#include <string.h>

#include <atomic>
#include <iterator>
#include <utility>

#include "lyn_gps.h"
#include "lyn_interface.h"
#include "lyn_oxmap_interface.h"

/** The answer of one NAS query. */
typedef union {
  lyn_nas_cell_info_t cell;
  lyn_nas_sig_info_t sig;
  lyn_nas_cqi_info_t cqi;
  lyn_nas_tx_pwr_info_t tx;
  lyn_nas_cell_lock_list_t lock;
  lyn_nas_mcs_info_t mcs;
  lyn_nas_ca_info_t ca;
  ox_lyn_endc_mode_t endc;
  lyn_nas_rrc_state_t rrc;
  lyn_nas_scs_info_t scs;
  lyn_nas_rf_bw_info_t rf;
} lyn_answer_t;

/** One request on its way through ox_lyn_get_info. */
typedef struct {
  ox_lyn_dm_info_t *info;
  uint32_t network_status;
  bool keep_lock; /**< the module lock stays locked for ever */
} lyn_get_t;

/** One row of the catalogue: either `query` and `convert`, or `handle`. */
struct lyn_metric_row_t {
  uint32_t metric;
  bool needs_ptr = false; /**< a null ptr is refused before anything else */
  int32_t (*query)(lyn_answer_t *answer, const lyn_get_t &get) = nullptr;
  int32_t (*convert)(const lyn_answer_t &answer, lyn_get_t *get) = nullptr;
  const char *unavailable = nullptr; /**< logged when the conversion finds the item missing */
  int32_t (*handle)(lyn_get_t *get) = nullptr;
  bool in_list = true; /**< ox_lyn_get_info_list takes it, too */
};

/* Queries */

/** A query of the NAS client whose record is one member of the answer. */
template <auto member, auto query>
int32_t lyn_ask(lyn_answer_t *answer, const lyn_get_t &) {
  return query(&(answer->*member));
}

static constexpr auto lyn_query_cell = lyn_ask<&lyn_answer_t::cell, lyn_yrp_nas_get_cell_info>;
static constexpr auto lyn_query_sig = lyn_ask<&lyn_answer_t::sig, lyn_yrp_nas_get_sig_info>;
static constexpr auto lyn_query_cqi = lyn_ask<&lyn_answer_t::cqi, lyn_yrp_nas_get_cqi_info>;
static constexpr auto lyn_query_tx = lyn_ask<&lyn_answer_t::tx, lyn_yrp_nas_get_tx_pwr_info>;
static constexpr auto lyn_query_lock = lyn_ask<&lyn_answer_t::lock, lyn_yrp_nas_get_cell_lock_list>;
static constexpr auto lyn_query_mcs = lyn_ask<&lyn_answer_t::mcs, lyn_yrp_nas_get_mcs_info>;
static constexpr auto lyn_query_ca = lyn_ask<&lyn_answer_t::ca, lyn_yrp_nas_get_cphy_ca_info>;
static constexpr auto lyn_query_endc = lyn_ask<&lyn_answer_t::endc, lyn_yrp_nas_get_endc_mode>;
static constexpr auto lyn_query_rrc = lyn_ask<&lyn_answer_t::rrc, lyn_yrp_nas_get_rrc_state>;
static constexpr auto lyn_query_scs = lyn_ask<&lyn_answer_t::scs, lyn_yrp_nas_get_scs_info>;
static constexpr auto lyn_query_rf = lyn_ask<&lyn_answer_t::rf, lyn_yrp_nas_get_rf_bw_info>;

/** In EN-DC the NR 5G PCI is reported with the system information; without it the NR 5G part has none. */
static int32_t lyn_query_pci(lyn_answer_t *answer, const lyn_get_t &get) {
  int32_t status = lyn_yrp_nas_get_cell_info(&answer->cell);
  if (status != OX_LYN_SUCCESS || get.network_status != OX_LYN_REG_LTE_NR5G_E) {
    return status;
  }
  lyn_nas_sys_info_t sys_info;
  status = lyn_yrp_nas_get_sys_info(&sys_info, 0);
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  answer->cell.nr5g_serving_cell_info_valid = sys_info.nr5g_pci_valid == 1;
  answer->cell.nr5g.pci = sys_info.nr5g_pci;
  return OX_LYN_SUCCESS;
}

/* Conversions */

/** An integer of any width, widened by its own sign; without its item the record keeps its value. */
template <class T>
static int32_t lyn_put_int(lyn_get_t *get, uint8_t valid, T value) {
  if (valid == 0) {
    return OX_LYN_ERR_INFO_UNAVAILABLE;
  }
  get->info->value_type = OX_LYN_VALUE_INT64_E;
  get->info->value.i64 = static_cast<int64_t>(value);
  return OX_LYN_SUCCESS;
}

/** Three octets: a PLMN or an NR 5G TAC. */
static int32_t lyn_put_octets(lyn_get_t *get, uint8_t valid, const uint8_t (&octets)[3]) {
  if (valid == 0) {
    return OX_LYN_ERR_INFO_UNAVAILABLE;
  }
  get->info->value_type = OX_LYN_VALUE_ARRAY_E;
  get->info->count = static_cast<uint32_t>(std::size(octets));
  for (size_t i = 0; i < std::size(octets); i++) {
    get->info->value.i64_array[i] = octets[i];
  }
  return OX_LYN_SUCCESS;
}

/** A 32-bit code in the low word; the value type stays 0. */
static int32_t lyn_put_code(lyn_get_t *get, uint32_t code) {
  get->info->value.i64 = code;
  return OX_LYN_SUCCESS;
}

/** A CQI list into the caller's block, which is cleared whole first. */
template <class Block, size_t N>
static int32_t lyn_put_cqi(lyn_get_t *get, uint8_t valid, uint32_t len, const ox_lyn_cqi_entry_t (&entries)[N]) {
  if (valid == 0) {
    return OX_LYN_ERR_INFO_UNAVAILABLE;
  }
  auto *block = static_cast<Block *>(get->info->value.ptr);
  static_assert(std::size(Block{}.entries) == N);
  memset(block, 0, sizeof(*block));
  block->valid = 1;
  block->count = len;
  memcpy(block->entries, entries, len * sizeof(entries[0]));
  get->info->value_type = OX_LYN_VALUE_CQI_E;
  return OX_LYN_SUCCESS;
}

/** The LTE lock list; the caller's enforce flag stays as it is. */
static int32_t lyn_put_lte_lock(const lyn_answer_t &answer, lyn_get_t *get) {
  if (answer.lock.lte_cell_list_valid == 0) {
    return OX_LYN_ERR_INFO_UNAVAILABLE;
  }
  auto *block = static_cast<ox_lyn_lte_cell_lock_t *>(get->info->value.ptr);
  block->count = static_cast<uint8_t>(answer.lock.count);
  memcpy(block->cells, answer.lock.cells, answer.lock.count * sizeof(answer.lock.cells[0]));
  get->info->value_type = OX_LYN_VALUE_CELL_LOCK_E;
  return OX_LYN_SUCCESS;
}

static int32_t lyn_put_nr5g_lock(const lyn_answer_t &answer, lyn_get_t *get) {
  if (answer.lock.type_valid == 0) {
    return OX_LYN_ERR_INFO_UNAVAILABLE;
  }
  auto *block = static_cast<ox_lyn_nr5g_cell_lock_t *>(get->info->value.ptr);
  block->lock_type = answer.lock.type;  // deliberate: the platform's number, untranslated
  block->pci = answer.lock.pci;
  block->scs = answer.lock.scs;
  block->arfcn = answer.lock.arfcn;
  block->arfcn_list_len = answer.lock.arfcn_list_len;
  memcpy(block->arfcn_list, answer.lock.arfcn_list, answer.lock.arfcn_list_len * sizeof(answer.lock.arfcn_list[0]));
  get->info->value_type = OX_LYN_VALUE_CELL_LOCK_E;
  return OX_LYN_SUCCESS;
}

/**
 * Hand an MCS block to the caller. An empty uplink list makes the call fail with the block handed over all the same:
 * deliberate, and so is the error level of these messages.
 */
static int32_t lyn_give_mcs(lyn_get_t *get, lyn_block_t<ox_lyn_mcs_t> mcs) {
  const int32_t status = mcs->ul_len == 0 ? OX_LYN_ERR_FAILURE : OX_LYN_SUCCESS;
  LYN_LOG_ERROR("MCS downlink_mod_len  %d\n", static_cast<int>(mcs->dl_len));
  LYN_LOG_ERROR("MCS uplink mod len  %d\n", static_cast<int>(mcs->ul_len));
  get->info->value.ptr = mcs.release();
  return status;
}

template <class Radio>
static lyn_block_t<ox_lyn_mcs_t> lyn_new_mcs(const Radio &radio) {
  lyn_block_t<ox_lyn_mcs_t> mcs = lyn_new_block<ox_lyn_mcs_t>(LYN_LOG_ERROR_HERE);
  if (mcs) {
    memcpy(mcs->dl_mod, radio.dl_mod, sizeof(mcs->dl_mod));
    memcpy(mcs->ul_mod, radio.ul_mod, sizeof(mcs->ul_mod));
    mcs->ul_len = radio.ul_len;
    mcs->dl_len = radio.dl_len;
  }
  return mcs;
}

static int32_t lyn_put_lte_mcs(const lyn_answer_t &answer, lyn_get_t *get) {
  lyn_block_t<ox_lyn_mcs_t> mcs = lyn_new_mcs(answer.mcs.lte);
  if (!mcs) {
    return OX_LYN_ERR_FAILURE;
  }
  for (uint32_t i = 0; i < mcs->dl_len; i++) {
    LYN_LOG_ERROR("MCS LTE down mod type %d\n", static_cast<int>(mcs->dl_mod[i]));
  }
  for (uint32_t i = 0; i < mcs->ul_len; i++) {
    LYN_LOG_ERROR("MCS LTE up mod type %d\n", static_cast<int>(mcs->ul_mod[i]));
  }
  return lyn_give_mcs(get, std::move(mcs));
}

static int32_t lyn_put_nr5g_mcs(const lyn_answer_t &answer, lyn_get_t *get) {
  lyn_block_t<ox_lyn_mcs_t> mcs = lyn_new_mcs(answer.mcs.nr5g);
  return mcs ? lyn_give_mcs(get, std::move(mcs)) : static_cast<int32_t>(OX_LYN_ERR_FAILURE);
}

/** Deliberate: a failed allocation reports success and leaves the module locked, so every later operation blocks. */
static int32_t lyn_put_endc(const lyn_answer_t &answer, lyn_get_t *get) {
  lyn_block_t<ox_lyn_endc_mode_t> mode = lyn_new_block<ox_lyn_endc_mode_t>(LYN_LOG_ERROR_HERE);
  if (!mode) {
    get->keep_lock = true;
    return OX_LYN_SUCCESS;
  }
  *mode = answer.endc;
  get->info->value.ptr = mode.release();
  return OX_LYN_SUCCESS;
}

static int32_t lyn_put_lte_rrc(const lyn_answer_t &answer, lyn_get_t *get) {
  LYN_LOG_HIGH("LYN : LTE RRC state %d", static_cast<int>(answer.rrc.lte_state));
  return lyn_put_code(get, answer.rrc.lte_state);
}

static int32_t lyn_put_nr5g_rrc(const lyn_answer_t &answer, lyn_get_t *get) {
  LYN_LOG_HIGH("LYN : NR5G RRC state %d", static_cast<int>(answer.rrc.nr5g_state));
  return lyn_put_code(get, answer.rrc.nr5g_state);
}

static int32_t lyn_put_rf_bw(const lyn_answer_t &answer, lyn_get_t *get) {
  get->info->count = answer.rf.len;
  for (uint32_t i = 0; i < answer.rf.len; i++) {
    get->info->value.i64_array[i] = answer.rf.bw[i];
  }
  return OX_LYN_SUCCESS;
}

/* Mobile AP and location */

static std::atomic<void *> lyn_spare_profiles{nullptr};

/** A failed query keeps its block: it waits in the slot for the next one. */
static int32_t lyn_handle_profiles(lyn_get_t *get) {
  void *block = lyn_slot_take(lyn_spare_profiles, sizeof(ox_lyn_wwan_profile_list_t));
  if (block == nullptr) {
    LYN_LOG_ERROR("Memory allocation failure");
    return OX_LYN_ERR_FAILURE;
  }
  if (lyn_oxmap_get_profile_handle(static_cast<ox_lyn_wwan_profile_list_t *>(block)) != 1) {
    lyn_slot_put(lyn_spare_profiles, block);
    return OX_LYN_ERR_FAILURE;
  }
  get->info->value.ptr = block;
  return OX_LYN_SUCCESS;
}

static int32_t lyn_handle_scan(lyn_get_t *get) {
  return lyn_scan_metric(get->info->metric);
}

static int32_t lyn_handle_mtpe(lyn_get_t *get) {
  return lyn_mtpe_begin(static_cast<const ox_lyn_mtpe_req_t *>(get->info->value.ptr));
}

static int32_t lyn_handle_single_shot(lyn_get_t *get) {
  LYN_LOG_HIGH("%s:OX_LYN_GET_LOC_SINGLE_SHOT_E %d", "ox_lyn_get_info", lyn_state.single_shot_ongoing);
  if (lyn_state.single_shot_ongoing != 0) {
    LYN_LOG_ERROR("Gps single shot request ongoing %d - wait for completion!!", 1);
    return OX_LYN_ERR_BUSY;
  }
  const auto *req = static_cast<const ox_lyn_loc_single_shot_req_t *>(get->info->value.ptr);
  const int32_t status = lyn_gps_get_single_shot_location_info(req);
  if (status == OX_LYN_SUCCESS) {
    lyn_state.single_shot_ongoing = 1;
  }
  return status;
}

static int32_t lyn_handle_batching(lyn_get_t *get) {
  LYN_LOG_HIGH("%s:OX_LYN_GET_LOC_ROUTINE_BATCHING_E %d", "ox_lyn_get_info", lyn_state.batching_ongoing);
  if (lyn_state.batching_ongoing != 0) {
    LYN_LOG_ERROR("Gps batching request ongoing %d - wait for completion!!", 1);
    return OX_LYN_ERR_BUSY;
  }
  const auto *req = static_cast<const ox_lyn_loc_batching_req_t *>(get->info->value.ptr);
  const int32_t status = lyn_gps_start_batching_info(req);
  if (status == OX_LYN_SUCCESS) {
    lyn_state.batching_ongoing = 1;
  }
  return status;
}

/* The catalogue */

/** A metric of the NAS client that is one integer: its query, its validity marker and its value in the answer. */
#define LYN_INT_ROW(metric_id, query_fn, valid_of, value_of, missing)                                          \
  {                                                                                                            \
    .metric = metric_id, .query = query_fn,                                                                    \
    .convert = [](const lyn_answer_t &a, lyn_get_t *get) { return lyn_put_int(get, a.valid_of, a.value_of); }, \
    .unavailable = missing                                                                                     \
  }

/** The same for three octets. */
#define LYN_OCTETS_ROW(metric_id, valid_of, value_of, missing)                                                    \
  {                                                                                                               \
    .metric = metric_id, .query = lyn_query_cell,                                                                 \
    .convert = [](const lyn_answer_t &a, lyn_get_t *get) { return lyn_put_octets(get, a.valid_of, a.value_of); }, \
    .unavailable = missing                                                                                        \
  }

static constexpr lyn_metric_row_t lyn_metric_rows[] = {
    {.metric = OX_LYN_GET_INVALID_E, .in_list = false},
    {.metric = OX_LYN_GET_REG_STATUS_E},  // answered by the service check itself
    LYN_INT_ROW(OX_LYN_GET_LTE_SERV_EARFCN_E, lyn_query_cell, cell.lte_intra_valid, cell.lte.earfcn,
                "LTE serving cell EARFCN information is not available!!"),
    // "EARFCN" is deliberate for an NR-ARFCN, and so is "5G NR" in this text alone.
    LYN_INT_ROW(OX_LYN_GET_NR5G_SERV_EARFCN_E, lyn_query_cell, cell.nr5g_arfcn_valid, cell.nr5g_arfcn,
                "5G NR serving cell EARFCN information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_LTE_SERV_PCI_E, lyn_query_pci, cell.lte_intra_valid, cell.lte.pci,
                "LTE serving cell PCI information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_NR5G_SERV_PCI_E, lyn_query_pci, cell.nr5g_serving_cell_info_valid, cell.nr5g.pci,
                "NR 5G serving cell PCI information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_LTE_SERV_CGI_E, lyn_query_cell, cell.lte_intra_valid, cell.lte.cgi,
                "LTE serving cell CGI information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_NR5G_SERV_CGI_E, lyn_query_cell, cell.nr5g_serving_cell_info_valid, cell.nr5g.cgi,
                "NR 5G serving cell CGI information is not available!!"),
    LYN_OCTETS_ROW(OX_LYN_GET_LTE_SERV_PLMN_E, cell.lte_intra_valid, cell.lte.plmn_id,
                   "LTE serving cell PLMN information is not available!!"),
    LYN_OCTETS_ROW(OX_LYN_GET_NR5G_SERV_PLMN_E, cell.nr5g_serving_cell_info_valid, cell.nr5g.plmn_id,
                   "NR 5G serving cell PLMN information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_LTE_SERV_RSRP_E, lyn_query_sig, sig.lte_sig_info_valid, sig.lte.rsrp,
                "LTE serving cell RSRP information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_NR5G_SERV_RSRP_E, lyn_query_sig, sig.nr5g_sig_info_valid, sig.nr5g.rsrp,
                "NR 5G serving cell RSRP information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_LTE_SERV_RSRQ_E, lyn_query_sig, sig.lte_sig_info_valid, sig.lte.rsrq,
                "LTE serving cell RSRQ information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_NR5G_SERV_RSRQ_E, lyn_query_sig, sig.nr5g_rsrq_valid, sig.nr5g_rsrq,
                "NR 5G serving cell RSRQ information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_LTE_SERV_SINR_E, lyn_query_sig, sig.lte_sig_info_valid, sig.lte.snr,
                "LTE serving cell SINR information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_NR5G_SERV_SINR_E, lyn_query_sig, sig.nr5g_sig_info_valid, sig.nr5g.snr,
                "NR 5G serving cell SINR information is not available!!"),
    {.metric = OX_LYN_GET_LTE_SERV_CQI_E,
     .needs_ptr = true,
     .query = lyn_query_cqi,
     .convert =
         [](const lyn_answer_t &a, lyn_get_t *get) {
           return lyn_put_cqi<ox_lyn_lte_cqi_t>(get, a.cqi.lte_cc_cqi_valid, a.cqi.lte_cc_cqi_len, a.cqi.lte);
         },
     .unavailable = "LTE serving cell CQI information is not available!!"},
    {.metric = OX_LYN_GET_NR5G_SERV_CQI_E,
     .needs_ptr = true,
     .query = lyn_query_cqi,
     .convert =
         [](const lyn_answer_t &a, lyn_get_t *get) {
           return lyn_put_cqi<ox_lyn_nr5g_cqi_t>(get, a.cqi.nr5g_cc_cqi_valid, a.cqi.nr5g_cc_cqi_len, a.cqi.nr5g);
         },
     .unavailable = "NR 5G serving cell CQI information is not available!!"},
    LYN_INT_ROW(OX_LYN_GET_LTE_SERV_TAC_E, lyn_query_cell, cell.lte_intra_valid, cell.lte.tac,
                "LTE serving cell TAC information is not available!!"),
    LYN_OCTETS_ROW(OX_LYN_GET_NR5G_SERV_TAC_E, cell.nr5g_serving_cell_info_valid, cell.nr5g.tac,
                   "NR 5G serving cell TAC information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_LTE_SERV_TX_POWER_E, lyn_query_tx, tx.lte.tx_valid, tx.lte.tx_pwr,
                "LTE serving cell TX power information is not available!!"),
    LYN_INT_ROW(OX_LYN_GET_NR5G_SERV_TX_POWER_E, lyn_query_tx, tx.nr5g.tx_valid, tx.nr5g.tx_pwr,
                "NR 5G serving cell TX power information is not available!!"),
    {.metric = OX_LYN_GET_LTE_NBR_EARFCN_E, .handle = lyn_handle_scan},
    {.metric = OX_LYN_GET_NR5G_NBR_EARFCN_E, .handle = lyn_handle_scan},
    {.metric = OX_LYN_GET_LTE_NBR_PCI_E, .handle = lyn_handle_scan},
    {.metric = OX_LYN_GET_NR5G_NBR_PCI_E, .handle = lyn_handle_scan},
    {.metric = OX_LYN_GET_LTE_NBR_CGI_E, .handle = lyn_handle_scan},
    {.metric = OX_LYN_GET_NR5G_NBR_CGI_E, .handle = lyn_handle_scan},
    {.metric = OX_LYN_GET_LTE_NBR_PLMN_E, .handle = lyn_handle_scan},
    {.metric = OX_LYN_GET_NR5G_NBR_PLMN_E, .handle = lyn_handle_scan},
    {.metric = OX_LYN_GET_LTE_NBR_RSRP_E, .handle = lyn_handle_scan},
    {.metric = OX_LYN_GET_NR5G_NBR_RSRP_E, .handle = lyn_handle_scan},
    {.metric = OX_LYN_GET_LTE_NBR_RSRQ_E, .handle = lyn_handle_scan},
    {.metric = OX_LYN_GET_LTE_CELL_LOCK_LIST_E,
     .needs_ptr = true,
     .query = lyn_query_lock,
     .convert = lyn_put_lte_lock,
     .unavailable = "LTE cell lock list information is not available!!"},
    {.metric = OX_LYN_GET_NR5G_CELL_LOCK_LIST_E,
     .needs_ptr = true,
     .query = lyn_query_lock,
     .convert = lyn_put_nr5g_lock,
     .unavailable = "NR 5G cell lock list information is not available!!"},
    {.metric = OX_LYN_GET_LTE_MCS_E, .query = lyn_query_mcs, .convert = lyn_put_lte_mcs},
    {.metric = OX_LYN_GET_NR5G_MCS_E, .query = lyn_query_mcs, .convert = lyn_put_nr5g_mcs},
    {.metric = OX_LYN_GET_LTE_CA_STATS_E,
     .query = lyn_query_ca,
     .convert = [](const lyn_answer_t &a, lyn_get_t *get) { return lyn_put_int(get, 1, a.ca.dl_bandwidth); }},
    {.metric = OX_LYN_GET_LTE_ENDC_MODE_E, .query = lyn_query_endc, .convert = lyn_put_endc},
    {.metric = OX_LYN_GET_LTE_RRC_STATE_E, .query = lyn_query_rrc, .convert = lyn_put_lte_rrc},
    {.metric = OX_LYN_GET_NR5G_RRC_STATE_E, .query = lyn_query_rrc, .convert = lyn_put_nr5g_rrc},
    {.metric = OX_LYN_GET_NR5G_SCS_E,
     .query = lyn_query_scs,
     .convert = [](const lyn_answer_t &a, lyn_get_t *get) { return lyn_put_code(get, a.scs.scs); }},
    {.metric = OX_LYN_GET_LTE_RF_BANDWIDTH_E, .query = lyn_query_rf, .convert = lyn_put_rf_bw},
    {.metric = OX_LYN_GET_NR5G_RF_BANDWIDTH_E, .query = lyn_query_rf, .convert = lyn_put_rf_bw},
    {.metric = OX_LYN_GET_WWAN_PROFILE_INDEX_E, .handle = lyn_handle_profiles},
    {.metric = OX_LYN_GET_IPV4_STATS_E,
     .handle = [](lyn_get_t *get) { return lyn_oxmap_get_wwan_stats(OX_LYN_IP_FAMILY_V4_E, get->info); }},
    {.metric = OX_LYN_GET_IPV6_STATS_E,
     .handle = [](lyn_get_t *get) { return lyn_oxmap_get_wwan_stats(OX_LYN_IP_FAMILY_V6_E, get->info); }},
    {.metric = OX_LYN_GET_MTPE_SERVER_CONFIG_E,
     .needs_ptr = true,
     .handle = [](lyn_get_t *get) { return lyn_oxmap_get_mtpe_test_info(get->info); }},
    {.metric = OX_LYN_GET_MTPE_LTE_INFO_E, .handle = lyn_handle_mtpe},
    {.metric = OX_LYN_GET_MTPE_NR5G_INFO_E, .handle = lyn_handle_mtpe},
    {.metric = OX_LYN_GET_LOC_SINGLE_SHOT_E, .handle = lyn_handle_single_shot},
    {.metric = OX_LYN_GET_LOC_ROUTINE_BATCHING_E, .handle = lyn_handle_batching},
    {.metric = OX_LYN_GET_IPV4_QOS_TFT_E,
     .handle = [](lyn_get_t *get) { return lyn_oxmap_get_global_qos_flow_info(OX_LYN_IP_FAMILY_V4_E, get->info); },
     .in_list = false},
    {.metric = OX_LYN_GET_IPV6_QOS_TFT_E,
     .handle = [](lyn_get_t *get) { return lyn_oxmap_get_global_qos_flow_info(OX_LYN_IP_FAMILY_V6_E, get->info); },
     .in_list = false},
};

#undef LYN_INT_ROW
#undef LYN_OCTETS_ROW

static constexpr bool lyn_metric_rows_in_order() {
  for (size_t i = 0; i < std::size(lyn_metric_rows); i++) {
    if (lyn_metric_rows[i].metric != i) {
      return false;
    }
  }
  return true;
}
static_assert(std::size(lyn_metric_rows) == OX_LYN_GET_COUNT, "a metric has no row");
static_assert(lyn_metric_rows_in_order(), "a row stands in another metric's place");

/* Operations */

static int32_t lyn_metric_not_supported(uint32_t metric) {
  LYN_LOG_ERROR("Retrieving the diagnostic information for metric[%u] - not supported!!", metric);
  return OX_LYN_ERR_NOT_SUPPORTED;
}

/** Query the NAS client and convert its answer. */
static int32_t lyn_query_and_convert(const lyn_metric_row_t &row, lyn_get_t *get) {
  lyn_answer_t answer;
  int32_t status = row.query(&answer, *get);
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  status = row.convert(answer, get);
  if (status == OX_LYN_ERR_INFO_UNAVAILABLE) {
    LYN_LOG_ERROR("%s", row.unavailable);
  }
  return status;
}

/** Answer one request of a module that is up. */
static int32_t lyn_get(lyn_get_t *get) {
  lyn_nas_sys_info_t sys_info;
  const int32_t status = lyn_yrp_nas_get_sys_info(&sys_info, 1);
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  get->network_status = sys_info.network_status;
  const uint32_t metric = get->info->metric;
  if (metric == OX_LYN_GET_REG_STATUS_E) {
    get->info->value_type = OX_LYN_VALUE_UINT32_E;
    get->info->value.i64 = sys_info.network_status;
    return OX_LYN_SUCCESS;
  }
  // Deliberate: every metric but one needs service, also those of no radio and the numbers that are none.
  if (sys_info.network_status < OX_LYN_REG_LTE_E || sys_info.network_status > OX_LYN_REG_NR5G_E) {
    LYN_LOG_ERROR("LTE and NR 5G service status unavailable [%u] - retry", sys_info.network_status);
    return OX_LYN_ERR_SERVICE_UNAVAILABLE;
  }
  if (metric == OX_LYN_GET_INVALID_E || metric >= OX_LYN_GET_COUNT) {
    return lyn_metric_not_supported(metric);
  }
  const lyn_metric_row_t &row = lyn_metric_rows[metric];
  if (row.needs_ptr && get->info->value.ptr == nullptr) {
    return OX_LYN_ERR_INVALID_PARAM;
  }
  return row.query != nullptr ? lyn_query_and_convert(row, get) : row.handle(get);
}

int32_t ox_lyn_get_info(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *dm_info) {
  lyn_module_guard_t lock;
  if (!lyn_is_handle(hndl) || dm_info == nullptr || dm_info->record_type != OX_LYN_RECORD_GET_E) {
    LYN_LOG_ERROR("Invalid params - hndl[%p], dm_info[%p]", lyn_log_handle(hndl), static_cast<void *>(dm_info));
    return OX_LYN_ERR_INVALID_PARAM;
  }
  if (!lyn_is_initialised()) {
    return lyn_not_initialised();
  }
  dm_info->value_type = OX_LYN_VALUE_NONE_E;
  lyn_get_t get = {.info = dm_info, .network_status = 0, .keep_lock = false};
  const int32_t status = lyn_get(&get);
  if (get.keep_lock) {
    lock.keep();
  }
  return status;
}

static int32_t lyn_check_list(ox_lyn_hndl_t hndl, const ox_lyn_dm_info_t *dm_info_list, uint32_t dm_info_list_cnt) {
  if (!lyn_is_handle(hndl) || dm_info_list == nullptr || dm_info_list_cnt == 0) {
    LYN_LOG_ERROR("Invalid params - hndl[%p], dm_info_list[%p], dm_info_list_cnt[%d]", lyn_log_handle(hndl),
                  static_cast<const void *>(dm_info_list), static_cast<int>(dm_info_list_cnt));
    return OX_LYN_ERR_INVALID_PARAM;
  }
  return lyn_is_initialised() ? static_cast<int32_t>(OX_LYN_SUCCESS) : lyn_not_initialised();
}

/** Whether an entry would collide with what is ongoing when the list begins. */
static int32_t lyn_precheck(uint32_t metric) {
  if (lyn_scan_is_metric(metric) && lyn_scan_is_pending()) {
    return lyn_scan_busy();
  }
  if (metric == OX_LYN_GET_LOC_SINGLE_SHOT_E && lyn_state.single_shot_ongoing != 0) {
    LYN_LOG_ERROR("Gps scan ongoing single_shot[%d] - wait for completion!!", 1);
    return OX_LYN_ERR_BUSY;
  }
  if (metric == OX_LYN_GET_LOC_ROUTINE_BATCHING_E && lyn_state.batching_ongoing != 0) {
    LYN_LOG_ERROR("Gps scan ongoing batching [%d] - wait for completion!!", 1);
    return OX_LYN_ERR_FAILURE;  // deliberate: not busy, unlike the single shot
  }
  return OX_LYN_SUCCESS;
}

/** Answer one entry by ox_lyn_get_info, which takes the lock itself. */
static int32_t lyn_get_entry(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *dm_info) {
  lyn_unlock();
  const int32_t status = ox_lyn_get_info(hndl, dm_info);
  lyn_lock();
  return status;
}

int32_t ox_lyn_get_info_list(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *dm_info_list, uint32_t dm_info_list_cnt) {
  lyn_module_guard_t lock;
  int32_t status = lyn_check_list(hndl, dm_info_list, dm_info_list_cnt);
  for (uint32_t i = 0; status == OX_LYN_SUCCESS && i < dm_info_list_cnt; i++) {
    status = lyn_precheck(dm_info_list[i].metric);
  }
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  for (uint32_t i = 0; i < dm_info_list_cnt; i++) {
    const uint32_t metric = dm_info_list[i].metric;
    LYN_LOG_ERROR("SRS checking metric number %d\n", static_cast<int>(metric));  // deliberately at error level
    if (lyn_scan_is_metric(metric)) {
      lyn_scan_ask(metric);
      status = OX_LYN_SUCCESS;
    } else if (metric < OX_LYN_GET_COUNT && lyn_metric_rows[metric].in_list) {
      status = lyn_get_entry(hndl, &dm_info_list[i]);
      if (status == OX_LYN_SUCCESS) {  // the module may have gone down in between
        status = lyn_check_list(hndl, dm_info_list, dm_info_list_cnt);
      }
      if (status != OX_LYN_SUCCESS) {
        return status;  // deliberate: neighbour metrics before it stay pending, without a scan to end them
      }
    } else {
      // Deliberate: takes back the neighbour metrics and any scan that runs, and counts only as the last entry. 52 and
      // 53 are refused here.
      lyn_scan_clear();
      status = lyn_metric_not_supported(metric);
    }
  }
  // Deliberately without a look at the service, and also for what an earlier call left pending or still waits for.
  return lyn_scan_is_pending() ? lyn_scan_start() : status;
}
