/* SPDX-License-Identifier: Apache-2.0 */
/*
 * NAS client, queries: what the module asks the modem for.
 *
 * A query is a row of steps. Each step says at which network status it is asked, message and request, the text of its
 * failure, and how the answer is read into the result; lyn_nas_query does the rest. A status that no step is asked at
 * gives an empty result, and a failed step leaves what the one before it has read.
 *
 * The modem numbers enumerated values its own way; what is read out is in the API's numbering. Logged are single values
 * as the modem gave them, also those that it did not flag valid, and the entries of a list as they are stored.
 */
#include "lyn_yrp_nas_priv.h"

/* Translation */

/** The modem's codes from `first` on become `low` to `high`, all others `other`. */
typedef struct {
  uint32_t first, low, high, other;
} lyn_nas_codes_t;

// The RRC states of both radios deliberately share one numbering.
static constexpr lyn_nas_codes_t LYN_NAS_LTE_RRC = {
    .first = 1, .low = OX_LYN_RRC_LTE_1_E, .high = OX_LYN_RRC_LTE_5_E, .other = OX_LYN_RRC_UNKNOWN_E};
static constexpr lyn_nas_codes_t LYN_NAS_NR5G_RRC = {
    .first = 0, .low = OX_LYN_RRC_NR5G_IDLE_E, .high = OX_LYN_RRC_NR5G_CONNECTED_E, .other = OX_LYN_RRC_UNKNOWN_E};
static constexpr lyn_nas_codes_t LYN_NAS_SCS = {
    .first = 0, .low = OX_LYN_SCS_15_KHZ_E, .high = OX_LYN_SCS_240_KHZ_E, .other = OX_LYN_SCS_UNKNOWN_E};
static constexpr lyn_nas_codes_t LYN_NAS_CA_BANDWIDTH = {.first = 0,
                                                         .low = OX_LYN_CA_BANDWIDTH_1_4_MHZ_E,
                                                         .high = OX_LYN_CA_BANDWIDTH_20_MHZ_E,
                                                         .other = OX_LYN_CA_BANDWIDTH_UNKNOWN_E};
static constexpr lyn_nas_codes_t LYN_NAS_RF_BANDWIDTH = {.first = 0,
                                                         .low = OX_LYN_RF_BANDWIDTH_LTE_1_4_MHZ_E,
                                                         .high = OX_LYN_RF_BANDWIDTH_NR5G_400_MHZ_E,
                                                         .other = OX_LYN_RF_BANDWIDTH_UNKNOWN_E};
static constexpr lyn_nas_codes_t LYN_NAS_LTE_MODULATION = {
    .first = 0, .low = OX_LYN_LTE_MOD_BPSK_E, .high = OX_LYN_LTE_MOD_1024QAM_E, .other = OX_LYN_LTE_MOD_UNKNOWN_E};
static constexpr lyn_nas_codes_t LYN_NAS_NR5G_MODULATION = {.first = 0,
                                                            .low = OX_LYN_NR5G_MOD_PI_2_BPSK_E,
                                                            .high = OX_LYN_NR5G_MOD_256QAM_E,
                                                            .other = OX_LYN_NR5G_MOD_UNKNOWN_E};

static constexpr uint32_t lyn_nas_translate(const lyn_nas_codes_t &codes, uint32_t code) {
  const uint32_t steps = code - codes.first;  // of a code before the first one: more than any list has
  return steps <= codes.high - codes.low ? codes.low + steps : codes.other;
}

/* The frame */

/** One message of a query. */
template <typename Req, typename Resp, typename Result>
struct lyn_nas_step_t {
  bool (*asked)(uint32_t network_status);
  uint32_t msg_id;
  Req req;
  lyn_nas_log_failure_fn log_failure;
  void (*read)(const Resp &resp, Result &result);
  size_t resp_len = sizeof(Resp);
};

static constexpr bool lyn_nas_always(uint32_t) {
  return true;
}

/** LTE alone. Deliberate: beside an NR 5G cell, EN-DC mode and carrier aggregation are not asked for. */
static constexpr bool lyn_nas_has_lte_only(uint32_t network_status) {
  return network_status == OX_LYN_REG_LTE_E;
}

/** All steps go by one reading of the network status, which an indication may change meanwhile. */
template <typename Req, typename Resp, typename Result, size_t STEPS>
static int32_t lyn_nas_query(Result *result, lyn_nas_log_null_fn log_null,
                             const lyn_nas_step_t<Req, Resp, Result> (&steps)[STEPS]) {
  const int32_t checked = lyn_nas_check(result, log_null);
  if (checked != OX_LYN_SUCCESS) {
    return checked;
  }
  lyn_nas_exchange_t<Req, Resp> exchange;
  if (!lyn_nas_alloc_logged(exchange, LYN_LOG_ERROR_HERE)) {
    return OX_LYN_ERR_NO_MEMORY;
  }
  memset(result, 0, sizeof(*result));
  const uint32_t network_status = lyn_nas_network_status;
  for (const auto &step : steps) {
    if (!step.asked(network_status)) {
      continue;
    }
    lyn_nas_clear(exchange);
    *exchange.req = step.req;
    if (lyn_nas_send(exchange, step.msg_id, step.log_failure, sizeof(Req), step.resp_len) != OX_LYN_SUCCESS) {
      return OX_LYN_ERR_FAILURE;
    }
    step.read(*exchange.resp, *result);
  }
  return OX_LYN_SUCCESS;
}

/* System information (77) */

static void lyn_nas_read_sys_info(const yrp_nas_sys_info_resp_t &resp, lyn_nas_sys_info_t &sys_info) {
  sys_info.network_status = lyn_nas_derive_status(resp, LYN_LOG_HIGH_HERE);
  if (resp.nr5g_pci_valid != 0) {
    LYN_LOG_HIGH("NR 5G PCI information - nr5g_pci_valid[%u], nr5g_pci[%u]", resp.nr5g_pci_valid, resp.nr5g_pci);
    sys_info.nr5g_pci_info_valid = 1;
    sys_info.nr5g_pci_valid = resp.nr5g_pci_valid;
    sys_info.nr5g_pci = resp.nr5g_pci;
  }
}

int32_t lyn_yrp_nas_get_sys_info(lyn_nas_sys_info_t *sys_info, uint8_t update_status) {
  static constexpr lyn_nas_step_t<yrp_nas_empty_req_t, yrp_nas_sys_info_resp_t, lyn_nas_sys_info_t> steps[] = {
      {.asked = lyn_nas_always,
       .msg_id = YRP_NAS_GET_SYS_INFO,
       .req = {},
       .log_failure = LYN_NAS_FAILURE("Retrieving system info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_sys_info}};
  const int32_t status = lyn_nas_query(sys_info, LYN_NAS_NULL("Invalid params - sys_info[%p]"), steps);
  if (status == OX_LYN_SUCCESS && update_status != 0) {
    lyn_nas_network_status = sys_info->network_status;
  }
  return status;
}

/* Serving cells (67) */

static void lyn_nas_log_lte_cell(const yrp_nas_cell_location_info_resp_t &resp) {
  const auto &cell = resp.lte_intra;
  LYN_LOG_HIGH("LTE serving cell info - lte_intra_valid[%u]", resp.lte_intra_valid);
  LYN_LOG_HIGH("LTE serving cell info - earfcn[%hu]", cell.earfcn);
  LYN_LOG_HIGH("LTE serving cell info - pci[%hu]", cell.pci);
  LYN_LOG_HIGH("LTE serving cell info - tac[%hu]", cell.tac);
  LYN_LOG_HIGH("LTE serving cell info - cgi[%u]", cell.cgi);
  LYN_LOG_HIGH("LTE serving cell info - plmn_id[0x%x 0x%x 0x%x]", cell.plmn_id[0], cell.plmn_id[1], cell.plmn_id[2]);
  LYN_LOG_HIGH("LTE serving cell info - rsrp[%hi]", cell.rsrp);
  LYN_LOG_HIGH("LTE serving cell info - rsrq[%hi]", cell.rsrq);
}

static void lyn_nas_log_nr5g_cell(const yrp_nas_cell_location_info_resp_t &resp) {
  const auto &cell = resp.nr5g_serving_cell_info;
  LYN_LOG_HIGH("NR 5G serving cell info - nr5g_serving_cell_info_valid[%u]", resp.nr5g_serving_cell_info_valid);
  LYN_LOG_HIGH("NR 5G serving cell info - nr5g_arfcn_valid[%u]", resp.nr5g_arfcn_valid);
  LYN_LOG_HIGH("NR 5G serving cell info - nr5g_arfcn[%u]", static_cast<uint32_t>(resp.nr5g_arfcn));
  LYN_LOG_HIGH("NR 5G serving cell info - pci[%hu]", cell.pci);
  LYN_LOG_HIGH("NR 5G serving cell info - cgi[%llu]", static_cast<unsigned long long>(cell.cgi));
  LYN_LOG_HIGH("NR 5G serving cell info - rsrp[%hi]", cell.rsrp);
  LYN_LOG_HIGH("NR 5G serving cell info - rsrq[%hi]", cell.rsrq);
  LYN_LOG_HIGH("NR 5G serving cell info - snr[%hi]", cell.snr);
  LYN_LOG_HIGH("NR 5G serving cell info - plmn_id[0x%x 0x%x 0x%x]", cell.plmn_id[0], cell.plmn_id[1], cell.plmn_id[2]);
  LYN_LOG_HIGH("NR 5G serving cell info - tac[0x%x 0x%x 0x%x]", cell.tac[0], cell.tac[1], cell.tac[2]);
}

static void lyn_nas_read_lte_cell(const yrp_nas_cell_location_info_resp_t &resp, lyn_nas_cell_info_t &cell_info) {
  const auto &cell = resp.lte_intra;
  if (resp.lte_intra_valid == 0) {
    return;
  }
  cell_info.lte_intra_valid = 1;
  cell_info.lte.earfcn = cell.earfcn;
  cell_info.lte.pci = cell.pci;
  cell_info.lte.tac = cell.tac;
  cell_info.lte.cgi = cell.cgi;
  std::copy(std::begin(cell.plmn_id), std::end(cell.plmn_id), cell_info.lte.plmn_id);
  cell_info.lte.rsrp = cell.rsrp;
  cell_info.lte.rsrq = cell.rsrq;
}

static void lyn_nas_read_nr5g_cell(const yrp_nas_cell_location_info_resp_t &resp, lyn_nas_cell_info_t &cell_info) {
  const auto &cell = resp.nr5g_serving_cell_info;
  if (resp.nr5g_arfcn_valid != 0) {
    cell_info.nr5g_arfcn_valid = 1;
    cell_info.nr5g_arfcn = resp.nr5g_arfcn;
  }
  if (resp.nr5g_serving_cell_info_valid == 0) {
    return;
  }
  cell_info.nr5g_serving_cell_info_valid = 1;
  cell_info.nr5g.pci = cell.pci;
  cell_info.nr5g.cgi = cell.cgi;
  cell_info.nr5g.rsrp = cell.rsrp;
  cell_info.nr5g.rsrq = cell.rsrq;
  cell_info.nr5g.snr = cell.snr;
  std::copy(std::begin(cell.plmn_id), std::end(cell.plmn_id), cell_info.nr5g.plmn_id);
  std::copy(std::begin(cell.tac), std::end(cell.tac), cell_info.nr5g.tac);
}

static void lyn_nas_read_cell_info(const yrp_nas_cell_location_info_resp_t &resp, lyn_nas_cell_info_t &cell_info) {
  lyn_nas_log_lte_cell(resp);
  lyn_nas_read_lte_cell(resp, cell_info);
  lyn_nas_log_nr5g_cell(resp);
  lyn_nas_read_nr5g_cell(resp, cell_info);
}

int32_t lyn_yrp_nas_get_cell_info(lyn_nas_cell_info_t *cell_info) {
  static constexpr lyn_nas_step_t<yrp_nas_empty_req_t, yrp_nas_cell_location_info_resp_t, lyn_nas_cell_info_t> steps[] =
      {{.asked = lyn_nas_always,
        .msg_id = YRP_NAS_GET_CELL_LOCATION_INFO,
        .req = {},
        .log_failure = LYN_NAS_FAILURE("Retrieving cell info failed - error[%d], response [%d/%d]"),
        .read = lyn_nas_read_cell_info}};
  return lyn_nas_query(cell_info, LYN_NAS_NULL("Invalid params - cell_info[%p]"), steps);
}

/* Signal levels (79) */

static void lyn_nas_read_lte_sig_info(const yrp_nas_sig_info_resp_t &resp, lyn_nas_sig_info_t &sig_info) {
  const auto &signal = resp.lte_sig_info;
  LYN_LOG_HIGH("LTE signal info - lte_sig_info_valid[%u]", resp.lte_sig_info_valid);
  LYN_LOG_HIGH("LTE signal info - rssi[%hi]", static_cast<int16_t>(signal.rssi));
  LYN_LOG_HIGH("LTE signal info - rsrq[%hi]", static_cast<int16_t>(signal.rsrq));
  LYN_LOG_HIGH("LTE signal info - rsrp[%hi]", signal.rsrp);
  LYN_LOG_HIGH("LTE signal info - snr[%hi]", signal.snr);
  if (resp.lte_sig_info_valid != 0) {
    sig_info.lte_sig_info_valid = 1;
    sig_info.lte = {.rssi = signal.rssi, .rsrq = signal.rsrq, .rsrp = signal.rsrp, .snr = signal.snr};
  }
}

static void lyn_nas_read_nr5g_sig_info(const yrp_nas_sig_info_resp_t &resp, lyn_nas_sig_info_t &sig_info) {
  const auto &signal = resp.nr5g_sig_info;
  LYN_LOG_HIGH("NR 5G signal info - nr5g_sig_info_valid[%u]", resp.nr5g_sig_info_valid);
  LYN_LOG_HIGH("NR 5G signal info - rsrp[%hi]", signal.rsrp);
  LYN_LOG_HIGH("NR 5G signal info - snr[%hi]", signal.snr);
  LYN_LOG_HIGH("NR 5G signal info - nr5g_rsrq_valid[%u]", resp.nr5g_rsrq_valid);
  LYN_LOG_HIGH("NR 5G signal info - rsrq[%hi]", resp.nr5g_rsrq);
  if (resp.nr5g_sig_info_valid != 0) {
    sig_info.nr5g_sig_info_valid = 1;
    sig_info.nr5g = {.rsrp = signal.rsrp, .snr = signal.snr};
  }
  if (resp.nr5g_rsrq_valid != 0) {
    sig_info.nr5g_rsrq_valid = 1;
    sig_info.nr5g_rsrq = resp.nr5g_rsrq;
  }
}

static void lyn_nas_read_sig_info(const yrp_nas_sig_info_resp_t &resp, lyn_nas_sig_info_t &sig_info) {
  lyn_nas_read_lte_sig_info(resp, sig_info);
  lyn_nas_read_nr5g_sig_info(resp, sig_info);
}

int32_t lyn_yrp_nas_get_sig_info(lyn_nas_sig_info_t *sig_info) {
  static constexpr lyn_nas_step_t<yrp_nas_empty_req_t, yrp_nas_sig_info_resp_t, lyn_nas_sig_info_t> steps[] = {
      {.asked = lyn_nas_always,
       .msg_id = YRP_NAS_GET_SIG_INFO,
       .req = {},
       .log_failure = LYN_NAS_FAILURE("Retrieving signal info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_sig_info}};
  return lyn_nas_query(sig_info, LYN_NAS_NULL("Invalid params - sig_info[%p]"), steps);
}

/* Transmit power (90) */

static void lyn_nas_read_lte_tx_pwr(const yrp_nas_tx_rx_info_resp_t &resp, lyn_nas_tx_pwr_info_t &tx_pwr_info) {
  LYN_LOG_HIGH("LTE transmit power info - tx_valid[%d]", resp.tx_valid);
  LYN_LOG_HIGH("LTE transmit power info - tx_pwr[%d]", resp.tx_pwr);
  if (resp.tx_valid != 0) {
    tx_pwr_info.lte = {.tx_valid = 1, .tx_pwr = resp.tx_pwr};
  }
}

static void lyn_nas_read_nr5g_tx_pwr(const yrp_nas_tx_rx_info_resp_t &resp, lyn_nas_tx_pwr_info_t &tx_pwr_info) {
  LYN_LOG_HIGH("NR 5G transmit power info - tx_valid[%d]", resp.tx_valid);
  LYN_LOG_HIGH("NR 5G transmit power info - tx_pwr[%d]", resp.tx_pwr);
  if (resp.tx_valid != 0) {
    tx_pwr_info.nr5g = {.tx_valid = 1, .tx_pwr = resp.tx_pwr};
  }
}

int32_t lyn_yrp_nas_get_tx_pwr_info(lyn_nas_tx_pwr_info_t *tx_pwr_info) {
  static constexpr lyn_nas_step_t<yrp_nas_tx_rx_info_req_t, yrp_nas_tx_rx_info_resp_t, lyn_nas_tx_pwr_info_t> steps[] =
      {{.asked = lyn_nas_has_lte,
        .msg_id = YRP_NAS_GET_TX_RX_INFO,
        .req = {.radio_if = YRP_NAS_RADIO_IF_LTE},
        .log_failure = LYN_NAS_FAILURE("Retrieving TX/RX power info failed - error[%d], response[%d/%d]"),
        .read = lyn_nas_read_lte_tx_pwr},
       {.asked = lyn_nas_has_nr5g,
        .msg_id = YRP_NAS_GET_TX_RX_INFO,
        .req = {.radio_if = YRP_NAS_RADIO_IF_NR5G},
        .log_failure = LYN_NAS_FAILURE("Retrieving TX/RX power info failed - error[%d], response[%d/%d]"),
        .read = lyn_nas_read_nr5g_tx_pwr}};
  return lyn_nas_query(tx_pwr_info, LYN_NAS_NULL("Invalid params - tx_pwr_info[%p]"), steps);
}

/* MCS (90) */

typedef void (*lyn_nas_log_entry_fn)(uint32_t value);

/** Where one list of the result stands. */
typedef struct {
  uint8_t &valid;
  uint32_t &len;
  uint32_t (&modes)[OX_LYN_MCS_LEN];
} lyn_nas_modes_t;

/** Copy the modes of one list. False, and nothing is touched, when it is not valid or empty. */
static bool lyn_nas_read_modes(uint8_t valid, uint32_t len, const uint32_t (&codes)[YRP_NAS_MOD_MAX],
                               const lyn_nas_codes_t &translation, lyn_nas_log_entry_fn log_mode,
                               const lyn_nas_modes_t &out) {
  if (valid == 0 || len == 0) {
    return false;
  }
  out.valid = 1;
  out.len = lyn_nas_clamp(len, codes, out.modes);
  for (uint32_t i = 0; i < out.len; i++) {
    out.modes[i] = lyn_nas_translate(translation, codes[i]);
    log_mode(out.modes[i]);
  }
  return true;
}

static void lyn_nas_read_lte_mcs(const yrp_nas_tx_rx_info_resp_t &resp, lyn_nas_mcs_info_t &mcs) {
  LYN_LOG_HIGH("MCS info - LTE downlink valid[%d]", resp.downlink_mod_valid);
  LYN_LOG_HIGH("MCS info -LTE  downlink length[%d]", resp.downlink_mod_len);
  if (!lyn_nas_read_modes(resp.downlink_mod_valid, resp.downlink_mod_len, resp.downlink_mod, LYN_NAS_LTE_MODULATION,
                          [](uint32_t mode) { LYN_LOG_HIGH("MCS info local LTE- Downlink mode [%d]", mode); },
                          {mcs.lte.dl_valid, mcs.lte.dl_len, mcs.lte.dl_mod})) {
    LYN_LOG_ERROR("MCS info Failed not valid %d length %d \n", resp.downlink_mod_valid, resp.downlink_mod_len);
  }
  LYN_LOG_HIGH("MCS info - LTE uplink valid[%d]", resp.uplink_mod_valid);
  LYN_LOG_HIGH("MCS info -LTE  uplink length[%d]", resp.uplink_mod_len);
  if (!lyn_nas_read_modes(resp.uplink_mod_valid, resp.uplink_mod_len, resp.uplink_mod, LYN_NAS_LTE_MODULATION,
                          [](uint32_t mode) { LYN_LOG_HIGH("MCS info  info - LTE uplink mode [%d]", mode); },
                          {mcs.lte.ul_valid, mcs.lte.ul_len, mcs.lte.ul_mod})) {
    LYN_LOG_ERROR("MCS info Failed not valid %d length %d \n", resp.uplink_mod_valid, resp.uplink_mod_len);
  }
}

/** Deliberately silent about a missing list, unlike LTE. */
static void lyn_nas_read_nr5g_mcs(const yrp_nas_tx_rx_info_resp_t &resp, lyn_nas_mcs_info_t &mcs) {
  LYN_LOG_HIGH("MCS info - NR5G downlink valid[%d]", resp.downlink_mod_valid);
  LYN_LOG_HIGH("MCS info -NR5G  downlink length[%d]", resp.downlink_mod_len);
  (void)lyn_nas_read_modes(resp.downlink_mod_valid, resp.downlink_mod_len, resp.downlink_mod, LYN_NAS_NR5G_MODULATION,
                           [](uint32_t mode) { LYN_LOG_HIGH("NR5G MCS local info - NR5G Downlink mode [%d]", mode); },
                           {mcs.nr5g.dl_valid, mcs.nr5g.dl_len, mcs.nr5g.dl_mod});
  LYN_LOG_HIGH("MCS info - NR5G uplink valid[%d]", resp.uplink_mod_valid);
  LYN_LOG_HIGH("MCS info -NR5G  uplink length[%d]", resp.uplink_mod_len);
  (void)lyn_nas_read_modes(resp.uplink_mod_valid, resp.uplink_mod_len, resp.uplink_mod, LYN_NAS_NR5G_MODULATION,
                           [](uint32_t mode) { LYN_LOG_HIGH("NR5G MCS info - NR5G  uplink mode [%d]", mode); },
                           {mcs.nr5g.ul_valid, mcs.nr5g.ul_len, mcs.nr5g.ul_mod});
}

int32_t lyn_yrp_nas_get_mcs_info(lyn_nas_mcs_info_t *get_mcs_info) {
  static constexpr lyn_nas_step_t<yrp_nas_tx_rx_info_req_t, yrp_nas_tx_rx_info_resp_t, lyn_nas_mcs_info_t> steps[] = {
      {.asked = lyn_nas_has_lte,
       .msg_id = YRP_NAS_GET_TX_RX_INFO,
       .req = {.radio_if = YRP_NAS_RADIO_IF_LTE},
       .log_failure = LYN_NAS_FAILURE("Retrieving to MCS info  info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_lte_mcs},
      {.asked = lyn_nas_has_nr5g,
       .msg_id = YRP_NAS_GET_TX_RX_INFO,
       .req = {.radio_if = YRP_NAS_RADIO_IF_NR5G},
       .log_failure = LYN_NAS_FAILURE("Retrieving MCS NR5G info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_nr5g_mcs}};
  return lyn_nas_query(get_mcs_info, LYN_NAS_NULL("Invalid params - get_mcs_info[%p]"), steps);
}

/* RRC state (210) */

static void lyn_nas_read_lte_rrc(const yrp_nas_rrc_state_resp_t &resp, lyn_nas_rrc_state_t &rrc) {
  LYN_LOG_HIGH("LTE  rrc state valid [%d]", resp.lte_rrc_state_valid);
  LYN_LOG_HIGH("LTE  rrc state [%d]", resp.lte_rrc_state);
  if (resp.lte_rrc_state_valid != 0) {
    rrc.lte_valid = 1;
    rrc.lte_state = lyn_nas_translate(LYN_NAS_LTE_RRC, resp.lte_rrc_state);
  }
}

static void lyn_nas_read_nr5g_rrc(const yrp_nas_rrc_state_resp_t &resp, lyn_nas_rrc_state_t &rrc) {
  LYN_LOG_HIGH("NR5G  rrc state valid [%d]", resp.nr5g_rrc_state_valid);
  LYN_LOG_HIGH("NR5G  rrc state [%d]", resp.nr5g_rrc_state);
  if (resp.nr5g_rrc_state_valid != 0) {
    rrc.nr5g_valid = 1;
    rrc.nr5g_state = lyn_nas_translate(LYN_NAS_NR5G_RRC, resp.nr5g_rrc_state);
  }
}

int32_t lyn_yrp_nas_get_rrc_state(lyn_nas_rrc_state_t *get_rrc_status) {
  static constexpr lyn_nas_step_t<yrp_nas_empty_req_t, yrp_nas_rrc_state_resp_t, lyn_nas_rrc_state_t> steps[] = {
      {.asked = lyn_nas_has_lte,
       .msg_id = YRP_NAS_GET_RRC_STATE,
       .req = {},
       .log_failure = LYN_NAS_FAILURE("Retrieving to RRC state  info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_lte_rrc},
      {.asked = lyn_nas_has_nr5g,
       .msg_id = YRP_NAS_GET_RRC_STATE,
       .req = {},
       .log_failure = LYN_NAS_FAILURE("Retrieving RRC state info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_nr5g_rrc}};
  return lyn_nas_query(get_rrc_status, LYN_NAS_NULL("Invalid params - get_rrc_status[%p]"), steps);
}

/* EN-DC mode and sub-carrier spacing (77) */

/** The second flag is deliberately the constant 1: the modem's own flag is only logged. */
static void lyn_nas_read_endc_mode(const yrp_nas_sys_info_resp_t &resp, ox_lyn_endc_mode_t &endc) {
  LYN_LOG_HIGH("Modem Metrics ENDC mode valid [%d]", resp.endc_available_valid);
  LYN_LOG_HIGH("Modem Metrics ENDC mode available [%d]", resp.endc_available);
  LYN_LOG_HIGH("Modem Metrics ENDC mode restrict_dcnr_valid [%d]", resp.restrict_dcnr_valid);
  LYN_LOG_HIGH("Modem Metrics ENDC mode restrict_dcnr; [%d]", resp.restrict_dcnr);
  if (resp.endc_available_valid != 0) {
    endc.valid = 1;
    endc.endc_available = resp.endc_available;
    endc.restrict_dcnr_valid = 1;
    endc.restrict_dcnr = resp.restrict_dcnr;
  }
}

int32_t lyn_yrp_nas_get_endc_mode(ox_lyn_endc_mode_t *get_endc_mode_info) {
  static constexpr lyn_nas_step_t<yrp_nas_empty_req_t, yrp_nas_sys_info_resp_t, ox_lyn_endc_mode_t> steps[] = {
      {.asked = lyn_nas_has_lte_only,
       .msg_id = YRP_NAS_GET_SYS_INFO,
       .req = {},
       .log_failure = LYN_NAS_FAILURE("Retrieving to ENDC mode info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_endc_mode}};
  return lyn_nas_query(get_endc_mode_info, LYN_NAS_NULL("Invalid params - get_endc_mode_info[%p]"), steps);
}

static void lyn_nas_read_scs(const yrp_nas_sys_info_resp_t &resp, lyn_nas_scs_info_t &scs_info) {
  LYN_LOG_HIGH("NR5G sub carrier spacing (SCS) valid[%d]", resp.nr5g_scs_valid);
  LYN_LOG_HIGH("NR5G sub carrier spacing type [%d]", resp.nr5g_scs);
  if (resp.nr5g_scs_valid != 0) {
    scs_info = {.valid = 1, .scs = lyn_nas_translate(LYN_NAS_SCS, resp.nr5g_scs)};
  }
}

/** That the failure text speaks of carrier aggregation is deliberate: log readers know it so. */
int32_t lyn_yrp_nas_get_scs_info(lyn_nas_scs_info_t *get_sub_carr_space_info) {
  static constexpr lyn_nas_step_t<yrp_nas_empty_req_t, yrp_nas_sys_info_resp_t, lyn_nas_scs_info_t> steps[] = {
      {.asked = lyn_nas_has_nr5g,
       .msg_id = YRP_NAS_GET_SYS_INFO,
       .req = {},
       .log_failure = LYN_NAS_FAILURE("Retrieving to CPHY CA info info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_scs}};
  return lyn_nas_query(get_sub_carr_space_info, LYN_NAS_NULL("Invalid params - get_sub_carr_space_info[%p]"), steps);
}

/* Carrier aggregation (172) */

static void lyn_nas_read_ca(const yrp_nas_cphy_ca_info_resp_t &resp, lyn_nas_ca_info_t &ca_info) {
  LYN_LOG_HIGH("CPHY CA-stats - downlink bandwidth valid[%d]", resp.dl_bandwidth_valid);
  LYN_LOG_HIGH("CPHY CA-stats - downlink bandwidth type [%d]", resp.dl_bandwidth);
  if (resp.dl_bandwidth_valid != 0) {
    ca_info = {.valid = 1, .dl_bandwidth = lyn_nas_translate(LYN_NAS_CA_BANDWIDTH, resp.dl_bandwidth)};
  }
}

int32_t lyn_yrp_nas_get_cphy_ca_info(lyn_nas_ca_info_t *get_cphy_ca_info) {
  static constexpr lyn_nas_step_t<yrp_nas_empty_req_t, yrp_nas_cphy_ca_info_resp_t, lyn_nas_ca_info_t> steps[] = {
      {.asked = lyn_nas_has_lte_only,
       .msg_id = YRP_NAS_GET_CPHY_CA_INFO,
       .req = {},
       .log_failure = LYN_NAS_FAILURE("Retrieving to CPHY CA info info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_ca}};
  return lyn_nas_query(get_cphy_ca_info, LYN_NAS_NULL("Invalid params - get_cphy_ca_info[%p]"), steps);
}

/* RF bandwidths (49) */

/**
 * Both radios are deliberately read into the same fields: an NR 5G list replaces the LTE one, unless it is not valid or
 * empty.
 */
static void lyn_nas_read_bandwidths(uint8_t valid, uint32_t len, const uint32_t (&codes)[YRP_NAS_RF_BAND_MAX],
                                    lyn_nas_log_entry_fn log_bandwidth, lyn_nas_rf_bw_info_t &rf_bw) {
  if (valid == 0 || len == 0) {
    return;
  }
  rf_bw = {};
  rf_bw.valid = 1;
  rf_bw.len = lyn_nas_clamp(len, codes, rf_bw.bw);
  for (uint32_t i = 0; i < rf_bw.len; i++) {
    rf_bw.bw[i] = lyn_nas_translate(LYN_NAS_RF_BANDWIDTH, codes[i]);
    log_bandwidth(rf_bw.bw[i]);
  }
}

static void lyn_nas_read_lte_rf_bw(const yrp_nas_rf_band_info_resp_t &resp, lyn_nas_rf_bw_info_t &rf_bw) {
  LYN_LOG_HIGH("Modem Info - Rf Bandwidth valid [%d]", resp.lte_rf_bandwidth_valid);
  LYN_LOG_HIGH("Modem Info - Rf Bandwidth length [%d]", resp.lte_rf_bandwidth_len);
  lyn_nas_read_bandwidths(
      resp.lte_rf_bandwidth_valid, resp.lte_rf_bandwidth_len, resp.lte_rf_bandwidth,
      [](uint32_t bw) { LYN_LOG_HIGH("Modem Info - Rf Bandwidth type  [%d]", bw); }, rf_bw);
}

static void lyn_nas_read_nr5g_rf_bw(const yrp_nas_rf_band_info_resp_t &resp, lyn_nas_rf_bw_info_t &rf_bw) {
  LYN_LOG_HIGH("Modem Info - NR5G Rf Bandwidth valid [%d]", resp.nr5g_rf_bandwidth_valid);
  LYN_LOG_HIGH("Modem Info -NR5G Rf Bandwidth length [%d]", resp.nr5g_rf_bandwidth_len);
  lyn_nas_read_bandwidths(
      resp.nr5g_rf_bandwidth_valid, resp.nr5g_rf_bandwidth_len, resp.nr5g_rf_bandwidth,
      [](uint32_t bw) { LYN_LOG_HIGH("Modem Info -NR5G Rf Bandwidth type [%d]", bw); }, rf_bw);
}

int32_t lyn_yrp_nas_get_rf_bw_info(lyn_nas_rf_bw_info_t *get_rf_bw_status) {
  static constexpr lyn_nas_step_t<yrp_nas_empty_req_t, yrp_nas_rf_band_info_resp_t, lyn_nas_rf_bw_info_t> steps[] = {
      {.asked = lyn_nas_has_lte,
       .msg_id = YRP_NAS_GET_RF_BAND_INFO,
       .req = {},
       .log_failure = LYN_NAS_FAILURE("Retrieving to Rf bw  info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_lte_rf_bw},
      {.asked = lyn_nas_has_nr5g,
       .msg_id = YRP_NAS_GET_RF_BAND_INFO,
       .req = {},
       .log_failure = LYN_NAS_FAILURE("Retrieving RF bandwdth info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_nr5g_rf_bw}};
  return lyn_nas_query(get_rf_bw_status, LYN_NAS_NULL("Invalid params - get_rf_bw_status[%p]"), steps);
}

/* CQI (307) */

typedef void (*lyn_nas_log_cqi_fn)(uint32_t carrier, uint32_t cqi);

/** Copy the codewords of every component carrier. Returns the number of carriers. */
template <size_t FROM_LEN, size_t TO_LEN>
static uint32_t lyn_nas_read_cqi(uint32_t len, const yrp_nas_cc_cqi_t (&from)[FROM_LEN],
                                 ox_lyn_cqi_entry_t (&to)[TO_LEN], lyn_nas_log_cqi_fn log_cqi) {
  const uint32_t count = lyn_nas_clamp(len, from, to);
  for (uint32_t i = 0; i < count; i++) {
    to[i].cw_cqi_len = lyn_nas_clamp(from[i].cw_cqi_len, from[i].cw_cqi, to[i].cw_cqi);
    for (uint32_t k = 0; k < to[i].cw_cqi_len; k++) {
      to[i].cw_cqi[k] = from[i].cw_cqi[k];
      log_cqi(i, to[i].cw_cqi[k]);
    }
  }
  return count;
}

static void lyn_nas_read_lte_cqi(const yrp_nas_cqi_info_resp_t &resp, lyn_nas_cqi_info_t &cqi_info) {
  LYN_LOG_HIGH("LTE CQI info - lte_cc_cqi_valid[%u]", resp.lte_cc_cqi_valid);
  LYN_LOG_HIGH("LTE CQI info - lte_cc_cqi_len[%u]", resp.lte_cc_cqi_len);
  if (resp.lte_cc_cqi_valid != 0) {
    cqi_info.lte_cc_cqi_valid = 1;
    cqi_info.lte_cc_cqi_len = lyn_nas_read_cqi(
        resp.lte_cc_cqi_len, resp.lte_cc_cqi, cqi_info.lte,
        [](uint32_t carrier, uint32_t cqi) { LYN_LOG_HIGH("LTE CQI info #%d - lte_cw_cqi[%u]", carrier, cqi); });
  }
}

static void lyn_nas_read_nr5g_cqi(const yrp_nas_cqi_info_resp_t &resp, lyn_nas_cqi_info_t &cqi_info) {
  LYN_LOG_HIGH("NR 5G CQI info - nr5g_cc_cqi_valid[%u]", resp.nr5g_cc_cqi_valid);
  LYN_LOG_HIGH("NR 5G CQI info - nr5g_cc_cqi_len[%u]", resp.nr5g_cc_cqi_len);
  if (resp.nr5g_cc_cqi_valid != 0) {
    cqi_info.nr5g_cc_cqi_valid = 1;
    cqi_info.nr5g_cc_cqi_len = lyn_nas_read_cqi(
        resp.nr5g_cc_cqi_len, resp.nr5g_cc_cqi, cqi_info.nr5g,
        [](uint32_t carrier, uint32_t cqi) { LYN_LOG_HIGH("NR 5G CQI info #%d - nr5g_cw_cqi[%u]", carrier, cqi); });
  }
}

int32_t lyn_yrp_nas_get_cqi_info(lyn_nas_cqi_info_t *cqi_info) {
  static constexpr lyn_nas_step_t<yrp_nas_cqi_info_req_t, yrp_nas_cqi_info_resp_t, lyn_nas_cqi_info_t> steps[] = {
      {.asked = lyn_nas_has_lte,
       .msg_id = YRP_NAS_GET_CQI_INFO,
       .req = {.radio_if_valid = 1, .radio_if = YRP_NAS_CQI_RADIO_LTE},
       .log_failure = LYN_NAS_FAILURE("Retrieving CQI info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_lte_cqi},
      {.asked = lyn_nas_has_nr5g,
       .msg_id = YRP_NAS_GET_CQI_INFO,
       .req = {.radio_if_valid = 1, .radio_if = YRP_NAS_CQI_RADIO_NR5G},
       .log_failure = LYN_NAS_FAILURE("Retrieving CQI info failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_nr5g_cqi}};
  return lyn_nas_query(cqi_info, LYN_NAS_NULL("Invalid params - cqi_info[%p]"), steps);
}

/* Cell lock lists (346, 271) */

/** The two responses share one buffer. */
typedef union {
  yrp_nas_lte_cell_lock_list_resp_t lte;
  yrp_nas_nr5g_cell_lock_list_resp_t nr5g;
} lyn_nas_lock_list_resp_t;

static void lyn_nas_read_lte_lock_list(const lyn_nas_lock_list_resp_t &answer, lyn_nas_cell_lock_list_t &locks) {
  const auto &resp = answer.lte;
  LYN_LOG_HIGH("LTE multi-lock cell list - lte_cell_list_valid[%d]", resp.lte_cell_list_valid);
  if (resp.lte_cell_list_valid == 0) {
    return;
  }
  locks.lte_cell_list_valid = 1;
  locks.count = lyn_nas_clamp(resp.lte_cell_list_len, resp.lte_cell_list, locks.cells);
  for (uint32_t i = 0; i < locks.count; i++) {
    locks.cells[i] = {.pci = resp.lte_cell_list[i].pci, .freq = resp.lte_cell_list[i].freq};
    LYN_LOG_HIGH("LTE multi-lock cell list #%d - pci[%hu]", i, locks.cells[i].pci);
    LYN_LOG_HIGH("LTE multi-lock cell list #%d - freq[%hu]", i, locks.cells[i].freq);
  }
}

/** The lock type is deliberately not translated, although the set request numbers it its own way. */
static void lyn_nas_read_nr5g_lock_cell(const yrp_nas_nr5g_cell_lock_list_resp_t &resp,
                                        lyn_nas_cell_lock_list_t &locks) {
  LYN_LOG_HIGH("NR 5G multi-lock cell list - type_valid[%u], type[%u]", resp.type_valid, resp.type);
  LYN_LOG_HIGH("NR 5G multi-lock cell list - cell_identity_valid[%u]", resp.cell_identity_valid);
  LYN_LOG_HIGH("NR 5G multi-lock cell list - pci[%hu]", resp.cell_identity.pci);
  LYN_LOG_HIGH("NR 5G multi-lock cell list - arfcn[%d]", resp.cell_identity.arfcn);
  LYN_LOG_HIGH("NR 5G multi-lock cell list - scs [%d]", resp.cell_identity.scs);
  if (resp.type_valid != 0) {
    locks.type_valid = 1;
    locks.type = resp.type;
  }
  if (resp.cell_identity_valid != 0) {
    locks.cell_identity_valid = 1;
    locks.pci = resp.cell_identity.pci;
    locks.arfcn = resp.cell_identity.arfcn;
    locks.scs = lyn_nas_translate(LYN_NAS_SCS, resp.cell_identity.scs);
  }
}

static void lyn_nas_read_nr5g_lock_arfcns(const yrp_nas_nr5g_cell_lock_list_resp_t &resp,
                                          lyn_nas_cell_lock_list_t &locks) {
  LYN_LOG_HIGH("NR 5G multi-lock cell list - arfcn_identity_valid[%u]", resp.arfcn_identity_valid);
  LYN_LOG_HIGH("NR 5G multi-lock cell list - arfcn_list_len[%u]", resp.arfcn_list_len);
  if (resp.arfcn_identity_valid == 0) {
    return;
  }
  locks.arfcn_identity_valid = 1;
  locks.arfcn_list_len = lyn_nas_clamp(resp.arfcn_list_len, resp.arfcn_list, locks.arfcn_list);
  for (uint32_t i = 0; i < locks.arfcn_list_len; i++) {
    auto &entry = locks.arfcn_list[i];
    entry.arfcn = static_cast<int32_t>(resp.arfcn_list[i].arfcn);
    entry.scs = static_cast<int32_t>(lyn_nas_translate(LYN_NAS_SCS, resp.arfcn_list[i].scs));
    LYN_LOG_HIGH("NR 5G multi-lock cell list - #%d arfcn[%u]", i, resp.arfcn_list[i].arfcn);
    LYN_LOG_HIGH("NR 5G multi-lock cell list freq based - scs [%d]", entry.scs);
  }
}

static void lyn_nas_read_nr5g_lock_list(const lyn_nas_lock_list_resp_t &answer, lyn_nas_cell_lock_list_t &locks) {
  lyn_nas_read_nr5g_lock_cell(answer.nr5g, locks);
  lyn_nas_read_nr5g_lock_arfcns(answer.nr5g, locks);
}

int32_t lyn_yrp_nas_get_cell_lock_list(lyn_nas_cell_lock_list_t *cell_lock_list) {
  static constexpr lyn_nas_step_t<yrp_nas_empty_req_t, lyn_nas_lock_list_resp_t, lyn_nas_cell_lock_list_t> steps[] = {
      {.asked = lyn_nas_has_lte,
       .msg_id = YRP_NAS_GET_LTE_CELL_LOCK_LIST,
       .req = {},
       .log_failure = LYN_NAS_FAILURE("Retrieving LTE cell lock list failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_lte_lock_list,
       .resp_len = sizeof(yrp_nas_lte_cell_lock_list_resp_t)},
      {.asked = lyn_nas_has_nr5g,
       .msg_id = YRP_NAS_GET_NR5G_CELL_LOCK_LIST,
       .req = {},
       .log_failure = LYN_NAS_FAILURE("Retrieving NR 5G cell lock list failed - error[%d], response[%d/%d]"),
       .read = lyn_nas_read_nr5g_lock_list,
       .resp_len = sizeof(yrp_nas_nr5g_cell_lock_list_resp_t)}};
  return lyn_nas_query(cell_lock_list, LYN_NAS_NULL("Invalid params - cell_lock_list[%p]"), steps);
}
