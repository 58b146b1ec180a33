/* SPDX-License-Identifier: Apache-2.0 */
/*
 * NAS messages that only ask. A part is valid while its radio is measured (see sim_lte_on, sim_nr5g_on) and everything
 * that stands in the part has a value.
 */
#include "sim_nas.h"

namespace {

constexpr auto octets = [](const auto &from, auto &to) { std::copy(std::begin(from), std::end(from), std::begin(to)); };

template <size_t capacity>
void copy_cqi(const std::vector<std::vector<uint8_t>> &carriers, uint8_t &valid, uint32_t &count,
              yrp_nas_cc_cqi_t (&out)[capacity]) {
  valid = !carriers.empty();
  count = sim_nas_copy(carriers, out, [](const std::vector<uint8_t> &codewords, yrp_nas_cc_cqi_t &carrier) {
    carrier.cw_cqi_len = sim_nas_copy(codewords, carrier.cw_cqi);
  });
}

void fill_tx_rx(yrp_nas_tx_rx_info_resp_t &resp, int32_t tx_power, const std::vector<uint32_t> &downlink,
                const std::vector<uint32_t> &uplink) {
  resp.tx_valid = resp.downlink_mod_valid = resp.uplink_mod_valid = 1;
  resp.tx_pwr = tx_power;
  resp.downlink_mod_len = sim_nas_copy(downlink, resp.downlink_mod);
  resp.uplink_mod_len = sim_nas_copy(uplink, resp.uplink_mod);
}

void fill_lte_cell(yrp_nas_cell_location_info_resp_t &resp, const sim_lte &lte) {
  if (!sim_lte_on() || !lte.tac || !lte.cgi || !lte.rsrp || !lte.rsrq) {
    return;
  }
  resp.lte_intra_valid = 1;
  auto &cell = resp.lte_intra;
  cell.earfcn = lte.earfcn;
  cell.pci = lte.pci;
  cell.tac = *lte.tac;
  cell.cgi = *lte.cgi;
  octets(lte.plmn, cell.plmn_id);
  cell.rsrp = static_cast<int16_t>(*lte.rsrp);
  cell.rsrq = static_cast<int16_t>(*lte.rsrq);
}

void fill_nr5g_cell(yrp_nas_cell_location_info_resp_t &resp, const sim_nr5g &nr5g) {
  if (!sim_nr5g_on()) {
    return;
  }
  resp.nr5g_arfcn_valid = 1;
  resp.nr5g_arfcn = nr5g.arfcn;
  if (!nr5g.rsrp || !nr5g.rsrq || !nr5g.snr) {
    return;
  }
  resp.nr5g_serving_cell_info_valid = 1;
  auto &cell = resp.nr5g_serving_cell_info;
  cell.pci = nr5g.pci;
  cell.cgi = nr5g.cgi;
  cell.rsrp = static_cast<int16_t>(*nr5g.rsrp);
  cell.rsrq = static_cast<int16_t>(*nr5g.rsrq);
  cell.snr = static_cast<int16_t>(*nr5g.snr);
  octets(nr5g.plmn, cell.plmn_id);
  octets(nr5g.tac, cell.tac);
}

}  // namespace

void sim_nas_get_rf_band_info(yrp_nas_rf_band_info_resp_t &resp) {
  const sim_radio &radio = sim_board_raw().now;
  resp.lte_rf_bandwidth_valid = sim_lte_on();
  if (sim_lte_on()) {
    resp.lte_rf_bandwidth_len = sim_nas_copy(radio.lte.rf_bandwidth, resp.lte_rf_bandwidth);
  }
  resp.nr5g_rf_bandwidth_valid = sim_nr5g_on();
  if (sim_nr5g_on()) {
    resp.nr5g_rf_bandwidth_len = sim_nas_copy(radio.nr5g.rf_bandwidth, resp.nr5g_rf_bandwidth);
  }
}

void sim_nas_get_cell_location_info(yrp_nas_cell_location_info_resp_t &resp) {
  fill_lte_cell(resp, sim_board_raw().now.lte);
  fill_nr5g_cell(resp, sim_board_raw().now.nr5g);
}

void sim_nas_get_sys_info(yrp_nas_sys_info_resp_t &resp) {
  const sim_radio &radio = sim_board_raw().now;
  sim_nas_fill_sys_info(resp, sim_nas_sys_info());
  if (sim_lte_on()) {
    resp.endc_available_valid = resp.restrict_dcnr_valid = 1;
    resp.endc_available = radio.endc.available;
    resp.restrict_dcnr = radio.endc.restrict_dcnr;
  }
  resp.nr5g_scs_valid = sim_nr5g_on();
  if (sim_nr5g_on()) {
    resp.nr5g_scs = radio.nr5g.scs;
  }
}

void sim_nas_get_sig_info(yrp_nas_sig_info_resp_t &resp) {
  const sim_measured values = sim_measure();
  const auto narrow = [&values](sim_value value) { return static_cast<int16_t>(*values[value]); };
  if (values[SIM_LTE_RSRP]) {
    resp.lte_sig_info_valid = 1;
    resp.lte_sig_info = {sim_board_raw().now.lte.rssi, static_cast<int8_t>(*values[SIM_LTE_RSRQ]), narrow(SIM_LTE_RSRP),
                         narrow(SIM_LTE_SNR)};
  }
  if (values[SIM_NR5G_RSRP]) {
    resp.nr5g_sig_info_valid = 1;
    resp.nr5g_sig_info = {narrow(SIM_NR5G_RSRP), narrow(SIM_NR5G_SNR)};
  }
  resp.nr5g_rsrq_valid = values[SIM_NR5G_RSRQ].has_value();
  if (resp.nr5g_rsrq_valid) {
    resp.nr5g_rsrq = narrow(SIM_NR5G_RSRQ);
  }
}

void sim_nas_get_tx_rx_info(const yrp_nas_tx_rx_info_req_t &req, yrp_nas_tx_rx_info_resp_t &resp) {
  const sim_lte &lte = sim_board_raw().now.lte;
  const sim_nr5g &nr5g = sim_board_raw().now.nr5g;
  if (req.radio_if == YRP_NAS_RADIO_IF_LTE) {
    if (sim_lte_on()) {
      fill_tx_rx(resp, lte.tx_power, lte.dl_mod, lte.ul_mod);
    }
  } else if (req.radio_if == YRP_NAS_RADIO_IF_NR5G) {
    if (sim_nr5g_on()) {
      fill_tx_rx(resp, nr5g.tx_power, nr5g.dl_mod, nr5g.ul_mod);
    }
  } else {
    sim_nas_refuse(resp, SIM_NAS_ERR_INVALID);
  }
}

void sim_nas_get_cphy_ca_info(yrp_nas_cphy_ca_info_resp_t &resp) {
  resp.dl_bandwidth_valid = sim_lte_on();
  if (sim_lte_on()) {
    resp.dl_bandwidth = sim_board_raw().now.lte.ca_dl_bandwidth;
  }
}

void sim_nas_get_rrc_state(yrp_nas_rrc_state_resp_t &resp) {
  const sim_radio &radio = sim_board_raw().now;
  resp.lte_rrc_state_valid = sim_lte_on();
  if (sim_lte_on()) {
    resp.lte_rrc_state = radio.lte.rrc_state;
  }
  resp.nr5g_rrc_state_valid = sim_nr5g_on();
  if (sim_nr5g_on()) {
    resp.nr5g_rrc_state = radio.nr5g.rrc_state;
  }
}

void sim_nas_get_cqi_info(const yrp_nas_cqi_info_req_t &req, yrp_nas_cqi_info_resp_t &resp) {
  if (req.radio_if_valid && req.radio_if > YRP_NAS_CQI_RADIO_LTE) {
    sim_nas_refuse(resp, SIM_NAS_ERR_INVALID);
    return;
  }
  const sim_radio &radio = sim_board_raw().now;
  const bool lte = !req.radio_if_valid || req.radio_if == YRP_NAS_CQI_RADIO_LTE;
  const bool nr5g = !req.radio_if_valid || req.radio_if == YRP_NAS_CQI_RADIO_NR5G;
  if (lte && sim_lte_on()) {
    copy_cqi(radio.lte.cqi, resp.lte_cc_cqi_valid, resp.lte_cc_cqi_len, resp.lte_cc_cqi);
  }
  if (nr5g && sim_nr5g_on()) {
    copy_cqi(radio.nr5g.cqi, resp.nr5g_cc_cqi_valid, resp.nr5g_cc_cqi_len, resp.nr5g_cc_cqi);
  }
}

/** Locks are settings of the modem, not measurements: valid whatever the radios do. */
void sim_nas_get_lte_cell_lock_list(yrp_nas_lte_cell_lock_list_resp_t &resp) {
  resp.lte_cell_list_valid = 1;
  resp.lte_cell_list_len = sim_nas_copy(sim_board_raw().nas.lte_lock, resp.lte_cell_list);
}

void sim_nas_get_nr5g_cell_lock_list(yrp_nas_nr5g_cell_lock_list_resp_t &resp) {
  resp = sim_board_raw().nas.nr5g_lock;
}
