/* SPDX-License-Identifier: Apache-2.0 */
/*
 * NAS messages that change the board: registrations, deltas, cell locks, panel position, install mode,
 * de-prioritisation and the neighbour scan.
 */
#include "sim_nas.h"

namespace {

/** Lock types as message 271 numbers them: one above those of message 270, whose unlock thus becomes 3. */
enum : uint32_t { lock_none = 0, lock_one_cell = 1, lock_arfcn_list = 2, lock_unlocked = 3 };

/** Status that indication 335 reports of the install mode. */
enum : uint32_t { install_stopped = 0, install_started = 1 };

/** As good as never, and far from what the clock can count. */
constexpr std::chrono::years never(100);

void take(bool &setting, uint8_t valid, uint8_t value) {
  if (valid) {
    setting = value != 0;
  }
}

std::optional<uint16_t> delta(uint8_t valid, uint16_t value) {
  return valid ? std::optional<uint16_t>(value) : std::nullopt;
}

yrp_nas_nr5g_cell_lock_list_resp_t lock_of_scenario(const sim_nr5g_lock &lock) {
  yrp_nas_nr5g_cell_lock_list_resp_t got = {};
  got.type_valid = 1;
  got.type = lock.type;
  got.cell_identity_valid = lock.type == lock_one_cell;
  if (got.cell_identity_valid) {
    got.cell_identity = {lock.pci, lock.arfcn, lock.scs};
  }
  got.arfcn_identity_valid = lock.type == lock_arfcn_list && !lock.list.empty();
  if (got.arfcn_identity_valid) {
    got.arfcn_list_len =
        sim_nas_copy(lock.list, got.arfcn_list, [](const sim_nr5g_lock_arfcn &from, yrp_nas_nr5g_lock_arfcn_t &to) {
          to = {from.arfcn, from.scs};
        });
  }
  return got;
}

void fill_plmns(const std::vector<sim_plmn> &plmns, uint32_t &count, auto &out) {
  count = sim_nas_copy(plmns, out, [](const sim_plmn &from, yrp_nas_plmn_t &to) {
    to = {from.mcc, from.mnc, from.pcs_digit};
  });
}

/** The first neighbour is the one with the highest signal. */
void fill_lte_neighbours(yrp_nas_incremental_scan_ind_t &ind, const sim_lte &lte) {
  if (!sim_lte_on() || !lte.neighbour_measured || lte.neighbour.empty()) {
    return;
  }
  ind.lte_nbr_info_valid = 1;
  ind.lte_nbr_count = sim_nas_copy(lte.neighbour, ind.lte_nbr, [](const sim_lte_nbr &from, auto &to) {
    to.earfcn = from.earfcn;
    to.pci = from.pci;
    to.cgi = from.cgi;
    fill_plmns(from.plmn, to.plmn_count, to.plmn);
  });
  const sim_lte_nbr &best = lte.neighbour.front();
  ind.lte_highest_signal_nbr = {best.earfcn, best.pci, best.rsrp, best.rsrq};
}

void fill_nr5g_neighbours(yrp_nas_incremental_scan_ind_t &ind, const sim_nr5g &nr5g) {
  if (!sim_nr5g_on() || nr5g.neighbour.empty()) {
    return;
  }
  ind.nr5g_nbr_info_valid = 1;
  ind.nr5g_nbr_count = sim_nas_copy(nr5g.neighbour, ind.nr5g_nbr, [](const sim_nr5g_nbr &from, auto &to) {
    to.rsrp = from.rsrp;
    to.earfcn = from.arfcn;
    to.pci = from.pci;
    to.cgi_count = sim_nas_copy(from.cgi, to.cgi);
    fill_plmns(from.plmn, to.plmn_count, to.plmn);
  });
}

/** A scan that failed has found nobody. */
void answer_scan(yrp_client_type handle, uint8_t network_type) {
  const sim_state &board = sim_board_raw();
  yrp_nas_incremental_scan_ind_t ind = {};
  ind.scan_status = board.scenario.scan.status;
  if (ind.scan_status == 0) {
    if (network_type == YRP_NAS_NETWORK_TYPE_LTE) {
      fill_lte_neighbours(ind, board.now.lte);
    } else {
      fill_nr5g_neighbours(ind, board.now.nr5g);
    }
  }
  sim_indicate_to(handle, sim_lib::nas, YRP_NAS_INCREMENTAL_NETWORK_SCAN, &ind);
}

/** An NR 5G cell that a de-prioritisation leaves, or has left. */
bool nr5g_cell_there() {
  const sim_sys_info &info = sim_board_raw().now.sys_info;
  return info.nr5g_pci >= 0 || (info.nr5g != sim_srv::absent && info.nr5g != sim_srv::no_service);
}

sim_install_freq install_measurement(const yrp_nas_freq_t &freq, const sim_measured &values) {
  return {freq.arfcn, freq.band, freq.scs, static_cast<int16_t>(*values[SIM_NR5G_RSRP]),
          static_cast<int16_t>(*values[SIM_NR5G_SNR])};
}

}  // namespace

void sim_nas_reset() {
  sim_state &board = sim_board_raw();
  board.nas = {};
  for (const sim_lock_cell &cell : board.scenario.radio.lte.cell_lock) {
    board.nas.lte_lock.push_back({cell.pci, cell.freq});
  }
  board.nas.nr5g_lock = lock_of_scenario(board.scenario.radio.nr5g.cell_lock);
}

void sim_nas_indication_register(sim_nas_call &call, const yrp_nas_indication_register_req_t &req) {
  sim_registration &nas = call.client.nas;
  take(nas.sys_info, req.sys_info_valid, req.sys_info);
  take(nas.sig_info, req.sig_info_valid, req.sig_info);
  take(nas.panel, req.reg_panel_pos_change_ind_valid, req.reg_panel_pos_change_ind);
  take(nas.install_meas, req.reg_install_meas_ind_valid, req.reg_install_meas_ind);
  take(nas.install_status, req.reg_install_status_ind_valid, req.reg_install_status_ind);
}

void sim_nas_config_sig_info(sim_nas_call &call, const yrp_nas_config_sig_info_req_t &req) {
  sim_registration &nas = call.client.nas;
  nas.delta[SIM_LTE_RSRP] = delta(req.lte_rsrp_delta_valid, req.lte_rsrp_delta);
  nas.delta[SIM_LTE_RSRQ] = delta(req.lte_rsrq_delta_valid, req.lte_rsrq_delta);
  nas.delta[SIM_LTE_SNR] = delta(req.lte_snr_delta_valid, req.lte_snr_delta);
  nas.delta[SIM_NR5G_RSRP] = delta(req.nr5g_rsrp_delta_valid, req.nr5g_rsrp_delta);
  nas.delta[SIM_NR5G_RSRQ] = delta(req.nr5g_rsrq_delta_valid, req.nr5g_rsrq_delta);
  nas.delta[SIM_NR5G_SNR] = delta(req.nr5g_snr_delta_valid, req.nr5g_snr_delta);
  nas.deltas_given = true;
  nas.reported = {};
  call.then.push_back([&client = call.client, handle = call.handle] { sim_measure_first_report(client, handle); });
}

void sim_nas_set_lte_cell_lock_list(const yrp_nas_set_lte_cell_lock_list_req_t &req, yrp_nas_resp_t &) {
  sim_board_raw().nas.lte_lock.assign(req.lte_cell_list, req.lte_cell_list + req.lte_cell_list_len);
}

void sim_nas_set_nr5g_cell_lock_list(const yrp_nas_set_nr5g_cell_lock_list_req_t &req, yrp_nas_resp_t &resp) {
  yrp_nas_nr5g_cell_lock_list_resp_t lock = {};
  lock.type_valid = 1;
  lock.type = req.type + 1;
  const bool list_given = req.arfcn_list_valid && req.arfcn_list_len > 0;
  if (lock.type > lock_unlocked || lock.type == lock_none || (lock.type == lock_one_cell && !req.cell_identity_valid) ||
      (lock.type == lock_arfcn_list && !list_given)) {
    sim_nas_refuse(resp, SIM_NAS_ERR_INVALID);
    return;
  }
  if (lock.type == lock_one_cell) {
    lock.cell_identity_valid = 1;
    lock.cell_identity = {req.cell_identity.pci, req.cell_identity.arfcn, req.cell_identity.scs};
  }
  if (lock.type == lock_arfcn_list) {
    lock.arfcn_identity_valid = 1;
    lock.arfcn_list_len = req.arfcn_list_len;
    std::copy(req.arfcn_list, req.arfcn_list + req.arfcn_list_len, lock.arfcn_list);
  }
  sim_board_raw().nas.nr5g_lock = lock;
}

void sim_nas_set_pps_config(const yrp_nas_set_pps_config_req_t &req, yrp_nas_status_resp_t &resp) {
  sim_board_raw().nas.pps = req;
  resp.status_valid = 1;
}

void sim_nas_set_pps_change_status(const yrp_nas_set_pps_change_status_req_t &req, yrp_nas_resp_t &resp) {
  if (req.pps_mode > 2) {
    sim_nas_refuse(resp, SIM_NAS_ERR_INVALID);
  } else {
    sim_board_raw().nas.pps_change = req;
  }
}

void sim_nas_set_nr5g_deprioritize(sim_nas_call &call, const yrp_nas_set_nr5g_deprioritize_req_t &req) {
  sim_nas_config &nas = sim_board_raw().nas;
  if (!nr5g_cell_there()) {
    sim_nas_refuse(*static_cast<yrp_nas_resp_t *>(call.resp), SIM_NAS_ERR_NOT_POSSIBLE);
    return;
  }
  if (nas.deprioritized == (req.deprioritize != 0)) {
    return;
  }
  nas.deprioritized = req.deprioritize != 0;
  call.then.push_back([] {
    sim_nas_send_sys_info();
    sim_measure_report();
  });
}

void sim_nas_set_install_mode(sim_nas_call &call, const yrp_nas_set_install_mode_req_t &req) {
  yrp_nas_status_resp_t &resp = *static_cast<yrp_nas_status_resp_t *>(call.resp);
  if (req.mode > 1) {
    sim_nas_refuse(resp, SIM_NAS_ERR_INVALID);
    return;
  }
  sim_nas_config &nas = sim_board_raw().nas;
  nas.installing = req.mode == 0;
  nas.install = req;
  resp.status_valid = 1;
  const uint32_t status = nas.installing ? install_started : install_stopped;
  call.then.push_back([status] { sim_nas_send_install_status(status); });
}

void sim_nas_install_tick() {
  const sim_nas_config &nas = sim_board_raw().nas;
  if (!nas.installing || !nas.install.freq_list_valid) {
    return;
  }
  const sim_measured values = sim_measure();
  const bool measured = values[SIM_NR5G_RSRP].has_value();
  std::vector<sim_install_freq> freqs;
  for (uint32_t i = 0; measured && i < nas.install.freq_list_len; i++) {
    freqs.push_back(install_measurement(nas.install.freq_list[i], values));
  }
  sim_nas_send_install_measurement(freqs, measured);
}

/** One scan at a time: the next begins when the one before it has been answered. */
void sim_nas_incremental_scan(sim_nas_call &call, const yrp_nas_incremental_scan_req_t &req) {
  const bool known = req.network_type_valid &&
                     (req.network_type == YRP_NAS_NETWORK_TYPE_LTE || req.network_type == YRP_NAS_NETWORK_TYPE_NR5G);
  if (!known) {
    sim_nas_refuse(*static_cast<yrp_nas_resp_t *>(call.resp), SIM_NAS_ERR_INVALID);
    return;
  }
  sim_state &board = sim_board_raw();
  const double answer_ms = board.scenario.scan.answer_ms;
  if (answer_ms < 0) {
    return;
  }
  const auto duration =
      std::chrono::duration_cast<sim_clock::duration>(std::chrono::duration<double, std::milli>(answer_ms));
  // However many wait, the end of what the clock can count is out of reach.
  const sim_clock::time_point now = sim_clock::now();
  board.nas.scan_free = std::clamp(board.nas.scan_free, now, now + never) + duration;
  sim_timeline_at(board.nas.scan_free, [handle = call.handle, type = req.network_type] { answer_scan(handle, type); });
}
